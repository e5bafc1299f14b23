// Who may touch which device, and the flag of those who need the whole machine.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlKeyExistsException.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/ResourceLockManager.h"
#include "DiagCtrl/internal/ground/Invariant.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TraceFile.h"

TARVEX_PRIVATE_MEMBER(LockMapTag, DiagCtrl::ResourceLockManager::mResStrLockMap);
TARVEX_PRIVATE_MEMBER(ShareMapTag, DiagCtrl::ResourceLockManager::mResStrShareMap);

namespace TarvexDiags::DiagCtrl {
namespace {

using ::testing::ElementsAre;
using TestSupport::privateMember;

/// What the manager knows of one component.
struct Component {
  bool held;
  int shares;
  bool operator==(const Component& other) const {
    return held == other.held && shares == other.shares;
  }
};
void PrintTo(const Component& component, std::ostream* out) {
  *out << (component.held ? "held" : "free") << ", " << component.shares << " below";
}

constexpr Component kFree = {false, 0};
constexpr Component kHeld = {true, 0};
constexpr Component shared(int holders) {
  return {false, holders};
}

class ResourceLockManagerTest : public ::testing::Test {
 protected:
  ~ResourceLockManagerTest() override { delete m_manager; }

  void registerTags(const std::vector<std::string>& tags) {
    for (const std::string& tag : tags) {
      m_manager->createResourceLock(tag, -1);
    }
  }
  bool take(const std::string& tag) { return m_manager->getResourceLock(tag); }
  void release(const std::string& tag) { m_manager->releaseResourceLock(tag); }

  ResStrLockMap& locks() { return privateMember<LockMapTag>(*m_manager); }
  ResStrShareMap& shares() { return privateMember<ShareMapTag>(*m_manager); }

  /// Every component with its state; checks that both maps know the same ones.
  std::map<std::string, Component> state() {
    std::map<std::string, Component> result;
    EXPECT_EQ(locks().size(), shares().size());
    for (const auto& [name, held] : locks()) {
      EXPECT_EQ(shares().count(name), 1U) << name;
      result[name] = {held, shares()[name]};
    }
    return result;
  }
  using State = std::map<std::string, Component>;

  ResourceLockManager* m_manager = ResourceLockManager::getInstance();
};

template <class Exception>
void expectRefused(const std::function<void()>& action, DiagCtrlBaseException::MinorCodeEnum minor,
                   const std::string& method) {
  try {
    action();
    ADD_FAILURE() << method << " did not throw";
  } catch (const Exception& failure) {
    EXPECT_EQ(failure.getMinor(), minor);
    EXPECT_EQ(failure.getParameter(), "ResourceLockManager::" + method + "()");
  }
}

void expectUnknown(const std::function<void()>& action, const std::string& method) {
  expectRefused<DiagCtrlKeyNotExistException>(action, DiagCtrlBaseException::KeyNotExistException,
                                              method);
}

// ---- Registering -----------------------------------------------------------------------------

TEST_F(ResourceLockManagerTest, registers_the_last_component_of_a_tag) {
  registerTags({"machine/bus/disk", "cpu", "machine/fan/"});
  EXPECT_EQ(state(), (State{{"", kFree}, {"cpu", kFree}, {"disk", kFree}}));
}

TEST_F(ResourceLockManagerTest, refuses_a_tag_whose_last_component_is_registered) {
  registerTags({"P/X"});
  for (const char* tag : {"P/X", "Q/X", "X"}) {
    expectRefused<DiagCtrlKeyExistsException>([&] { m_manager->createResourceLock(tag, -1); },
                                              DiagCtrlBaseException::KeyExistsException,
                                              "createResourceLock");
  }
  EXPECT_EQ(state(), (State{{"X", kFree}}));
}

TEST_F(ResourceLockManagerTest, takes_any_time_for_registering) {
  for (const long timeOut : {-1L, 0L, 200L}) {
    m_manager->createResourceLock("X", timeOut);
    m_manager->resetResourceLockMap(timeOut);
    m_manager->removeResourceLock("X", timeOut);
    EXPECT_EQ(state(), State{});
  }
}

TEST_F(ResourceLockManagerTest, unregisters_the_last_component_of_a_tag) {
  registerTags({"P", "P/X"});
  m_manager->removeResourceLock("elsewhere/X", -1);
  EXPECT_EQ(state(), (State{{"P", kFree}}));
  expectUnknown([&] { m_manager->removeResourceLock("P/X", -1); }, "removeResourceLock");
}

TEST_F(ResourceLockManagerTest, unregisters_a_held_device_whose_release_then_fails) {
  registerTags({"P", "P/X"});
  ASSERT_TRUE(take("P/X"));
  m_manager->removeResourceLock("P/X", -1);
  expectUnknown([&] { release("P/X"); }, "releaseResourceLock");
  EXPECT_EQ(state(), (State{{"P", shared(1)}}));
}

// ---- Taking and giving back --------------------------------------------------------------------

TEST_F(ResourceLockManagerTest, lets_siblings_run_side_by_side_and_keeps_their_parent_out) {
  registerTags({"P", "P/X", "P/Y"});
  const auto expect = [this](Component p, Component x, Component y) {
    EXPECT_EQ(state(), (State{{"P", p}, {"X", x}, {"Y", y}}));
  };
  EXPECT_TRUE(take("P/X"));
  expect(shared(1), kHeld, kFree);
  EXPECT_TRUE(take("P/Y"));
  expect(shared(2), kHeld, kHeld);
  EXPECT_FALSE(take("P"));
  expect(shared(2), kHeld, kHeld);
  EXPECT_FALSE(take("P/X"));
  expect(shared(2), kHeld, kHeld);
  release("P/X");
  expect(shared(1), kFree, kHeld);
  release("P/Y");
  expect(kFree, kFree, kFree);
  EXPECT_TRUE(take("P"));
  expect(kHeld, kFree, kFree);
  EXPECT_FALSE(take("P/X"));
  expect(kHeld, kFree, kFree);
}

TEST_F(ResourceLockManagerTest, confuses_devices_with_one_name_under_different_parents) {
  registerTags({"P", "P/X"});
  ASSERT_TRUE(take("Q/X"));
  EXPECT_EQ(state(), (State{{"P", kFree}, {"X", kHeld}})) << "Q is unknown and not counted";
  EXPECT_FALSE(take("P/X"));
  release("Q/X");
  EXPECT_TRUE(take("P/X"));
}

TEST_F(ResourceLockManagerTest, takes_a_tag_without_separator_as_one_component) {
  registerTags({"P"});
  EXPECT_TRUE(take("P"));
  EXPECT_EQ(state(), (State{{"P", kHeld}}));
  release("P");
  EXPECT_EQ(state(), (State{{"P", kFree}}));
}

TEST_F(ResourceLockManagerTest, excludes_two_devices_with_equal_tags) {
  registerTags({"P/X"});
  EXPECT_TRUE(take("P/X"));
  EXPECT_FALSE(take("P/X"));
  release("P/X");
  EXPECT_TRUE(take("P/X"));
}

TEST_F(ResourceLockManagerTest, counts_at_every_registered_level_above) {
  registerTags({"A", "A/B/C", "A/B/C/D"});
  EXPECT_TRUE(take("A/B/C/D"));
  EXPECT_EQ(state(), (State{{"A", shared(1)}, {"C", shared(1)}, {"D", kHeld}}));
  EXPECT_FALSE(take("A/B/C")) << "a holder below";
  EXPECT_FALSE(take("A"));
  release("A/B/C/D");
  EXPECT_EQ(state(), (State{{"A", kFree}, {"C", kFree}, {"D", kFree}}));
}

TEST_F(ResourceLockManagerTest, undoes_a_take_that_fails_high_above) {
  registerTags({"A", "A/B", "A/B/C", "A/B/C/D"});
  ASSERT_TRUE(take("A"));
  EXPECT_FALSE(take("A/B/C/D"));
  EXPECT_EQ(state(), (State{{"A", kHeld}, {"B", kFree}, {"C", kFree}, {"D", kFree}}));
}

TEST_F(ResourceLockManagerTest, leaves_the_counts_of_others_when_it_undoes_a_take) {
  registerTags({"A", "A/B", "B/X", "A/B/Y"});
  ASSERT_TRUE(take("B/X"));
  ASSERT_TRUE(take("A"));
  EXPECT_FALSE(take("A/B/Y"));
  EXPECT_EQ(state(), (State{{"A", kHeld}, {"B", shared(1)}, {"X", kHeld}, {"Y", kFree}}));
}

TEST_F(ResourceLockManagerTest, never_gets_a_device_that_hangs_below_itself) {
  registerTags({"X"});
  EXPECT_FALSE(take("X/X"));
  EXPECT_EQ(state(), (State{{"X", kFree}}));
}

TEST_F(ResourceLockManagerTest, takes_the_empty_name_behind_a_last_separator) {
  registerTags({"P", "P/"});
  EXPECT_TRUE(take("P/"));
  EXPECT_EQ(state(), (State{{"", kHeld}, {"P", shared(1)}}));
  release("P/");
  EXPECT_EQ(state(), (State{{"", kFree}, {"P", kFree}}));
}

TEST_F(ResourceLockManagerTest, refuses_a_device_that_nobody_registered) {
  registerTags({"P"});
  expectUnknown([&] { take("P/X"); }, "getResourceLock");
  expectUnknown([&] { release("P/X"); }, "releaseResourceLock");
  EXPECT_EQ(state(), (State{{"P", kFree}}));
  EXPECT_TRUE(take("P")) << "the lock inside was given back";
}

TEST_F(ResourceLockManagerTest, takes_shares_of_others_down_when_a_tag_is_released_twice) {
  registerTags({"P", "P/X", "P/Y"});
  ASSERT_TRUE(take("P/X"));
  ASSERT_TRUE(take("P/Y"));
  release("P/X");
  release("P/X");
  EXPECT_EQ(state(), (State{{"P", kFree}, {"X", kFree}, {"Y", kHeld}}));
  release("P/X");
  EXPECT_EQ(state(), (State{{"P", kFree}, {"X", kFree}, {"Y", kHeld}})) << "never below 0";
  EXPECT_TRUE(take("P")) << "although Y is held";
}

TEST_F(ResourceLockManagerTest, frees_everything_at_a_reset_and_bears_late_releases) {
  registerTags({"P", "P/X", "P/Y"});
  ASSERT_TRUE(take("P/X"));
  ASSERT_TRUE(take("P/Y"));
  m_manager->resetResourceLockMap(-1);
  EXPECT_EQ(state(), (State{{"P", kFree}, {"X", kFree}, {"Y", kFree}}));
  release("P/X");
  EXPECT_EQ(state(), (State{{"P", kFree}, {"X", kFree}, {"Y", kFree}}));
  EXPECT_TRUE(take("P/X"));
  EXPECT_TRUE(take("P/Y"));
}

TEST_F(ResourceLockManagerTest, forgets_everything_when_it_is_cleared) {
  registerTags({"P", "P/X"});
  m_manager->clearResourceLockMap();
  EXPECT_EQ(state(), State{});
}

TEST_F(ResourceLockManagerTest, keeps_the_flag_of_the_whole_machine_apart) {
  registerTags({"P"});
  EXPECT_FALSE(m_manager->getSystemLockFlag());
  m_manager->setSystemLockFlag(true);
  EXPECT_TRUE(m_manager->getSystemLockFlag());
  EXPECT_TRUE(take("P")) << "no resource reads the flag";
  m_manager->resetResourceLockMap(-1);
  EXPECT_TRUE(m_manager->getSystemLockFlag());
  m_manager->setSystemLockFlag(false);
  EXPECT_FALSE(m_manager->getSystemLockFlag());
}

TEST_F(ResourceLockManagerTest, gives_a_device_to_one_thread_at_a_time) {
  registerTags({"P", "P/X", "P/Y"});
  std::atomic<int> insideX{0};
  std::atomic<int> insideP{0};
  std::atomic<bool> collided{false};
  const auto work = [&](const char* tag, std::atomic<int>& inside, std::atomic<int>& excluded) {
    for (int round = 0; round < 400; ++round) {
      if (take(tag)) {
        if (++inside != 1 || excluded != 0) {
          collided = true;
        }
        --inside;
        release(tag);
      }
    }
  };
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 2; ++thread) {
    threads.emplace_back([&] { work("P/X", insideX, insideP); });
    threads.emplace_back([&] { work("P", insideP, insideX); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_FALSE(collided);
  EXPECT_EQ(state(), (State{{"P", kFree}, {"X", kFree}, {"Y", kFree}}));
}

TEST_F(ResourceLockManagerTest, traces_how_a_take_ended) {
  const TestSupport::TemporaryDirectory directory;
  DiagTracer::getInstance()->openTraceFile(directory.path().c_str(), 3);
  registerTags({"P"});
  take("P");
  take("P");
  const TestSupport::TraceFile trace(directory.path());
  EXPECT_EQ(trace.count("\tSTRING: SUCCESS"), 1U);
  EXPECT_EQ(trace.count("\tSTRING: FAILED"), 1U);
  EXPECT_EQ(trace.count("@enter "), trace.count("@exit "));
}

TEST_F(ResourceLockManagerTest, is_empty_after_it_was_deleted) {
  registerTags({"P"});
  m_manager->setSystemLockFlag(true);
  delete m_manager;
  m_manager = ResourceLockManager::getInstance();
  EXPECT_EQ(state(), State{});
  EXPECT_FALSE(m_manager->getSystemLockFlag());
}

// ---- Broken invariants end the process ----------------------------------------------------------

class ResourceLockManagerDeathTest : public ResourceLockManagerTest {
 protected:
  ResourceLockManagerDeathTest() { registerTags({"A", "A/P", "A/P/X"}); }
};

TEST_F(ResourceLockManagerDeathTest, ends_the_process_over_a_negative_count_at_a_take) {
  shares()["P"] = -1;
  EXPECT_DEATH(take("A/P/X"), "itrResShareMap->second >= 0");
}

TEST_F(ResourceLockManagerDeathTest, ends_the_process_over_a_held_device_that_is_shared) {
  ASSERT_TRUE(take("A/P"));
  shares()["P"] = 1;
  EXPECT_DEATH(release("A/P"), "itrResShareMap->second == 0");
}

TEST_F(ResourceLockManagerDeathTest, ends_the_process_over_a_held_resource_with_users_below) {
  ASSERT_TRUE(take("A/P/X"));
  locks()["P"] = true;
  EXPECT_DEATH(release("A/P/X"), "itrResLockMap->second == false");
}

TEST(InvariantDeathTest, ends_the_process_with_what_was_expected_when_it_does_not_hold) {
  assertInvariant(true, "holds");
  EXPECT_DEATH(assertInvariant(false, "(*itr)->second > 0", "Sample.cpp", 42),
               "Sample.cpp:42: .*second > 0");
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
