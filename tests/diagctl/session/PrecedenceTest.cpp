// A thread that comes before others for a while, and what it leaves.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <thread>

#include "diagctl/session/Precedence.h"

namespace TarvexDiags::FrontEnd {
namespace {

constexpr int kNiceness = -10;
constexpr unsigned long kShortSlice = 100'000;

Scheduling present() {
  Scheduling scheduling;
  EXPECT_EQ(syscall(SYS_sched_getattr, 0, &scheduling, sizeof scheduling, 0), 0);
  return scheduling;
}

void expectSame(const Scheduling& one, const Scheduling& other) {
  EXPECT_EQ(one.policy, other.policy);
  EXPECT_EQ(one.niceness, other.niceness);
  EXPECT_EQ(one.slice, other.slice);
}

/// How a thread and a program that the calling thread starts are scheduled.
Scheduling ofStartedThread() {
  Scheduling scheduling;
  std::thread([&] { scheduling = present(); }).join();
  return scheduling;
}
int nicenessOfStartedProcess() {
  const pid_t child = fork();
  if (child == 0) {
    _exit(getpriority(PRIO_PROCESS, 0) + 20);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WEXITSTATUS(status) - 20;
}

/// On a thread of its own, so that no other test inherits anything.
void onThread(const std::function<void()>& action) {
  std::thread(action).join();
}
void beNobody() {
  constexpr long kNobody = 65'534;
  if (geteuid() == 0) {
    // Of the calling thread alone, unlike what the library would do.
    ASSERT_EQ(syscall(SYS_setresuid, kNobody, kNobody, kNobody), 0);
  }
}
bool knowsSlices() {
  return present().slice != 0;
}
bool mayLowerNiceness() {
  bool may = false;
  onThread([&] { may = setpriority(PRIO_PROCESS, 0, -1) == 0; });
  return may;
}

TEST(Precedence, holds_for_its_life_and_for_its_thread_alone) {
  onThread([] {
    const Scheduling before = present();
    ASSERT_GE(before.niceness, 0) << "the suite runs at the niceness of ordinary programs";
    {
      const Precedence precedence(kNiceness);
      const bool isLowered = before.niceness == 0 && mayLowerNiceness();
      EXPECT_EQ(present().niceness, isLowered ? kNiceness : before.niceness);
      EXPECT_EQ(present().slice, knowsSlices() ? kShortSlice : 0);
      expectSame(ofStartedThread(), before);
      EXPECT_EQ(nicenessOfStartedProcess(), before.niceness);
    }
    expectSame(present(), before);
    expectSame(ofStartedThread(), before);
  });
}

TEST(Precedence, without_the_right_to_it_leaves_the_niceness) {
  onThread([] {
    beNobody();
    const Scheduling before = present();
    {
      const Precedence precedence(kNiceness);
      EXPECT_EQ(present().niceness, mayLowerNiceness() ? kNiceness : before.niceness);
      EXPECT_EQ(present().slice, knowsSlices() ? kShortSlice : 0);
    }
    expectSame(present(), before);
    expectSame(ofStartedThread(), before);
  });
}

TEST(Precedence, leaves_a_niceness_that_somebody_set) {
  static constexpr int kChosen = 12;
  onThread([] {
    ASSERT_EQ(setpriority(PRIO_PROCESS, 0, kChosen), 0);
    {
      const Precedence precedence(kNiceness);
      EXPECT_EQ(present().niceness, kChosen);
      EXPECT_EQ(ofStartedThread().niceness, kChosen);
      EXPECT_EQ(nicenessOfStartedProcess(), kChosen);
    }
    EXPECT_EQ(present().niceness, kChosen);
  });
}

TEST(Precedence, leaves_a_thread_that_somebody_made_patient) {
  onThread([] {
    const sched_param none{};
    ASSERT_EQ(sched_setscheduler(0, SCHED_BATCH, &none), 0);
    const Scheduling before = present();
    const Precedence precedence(kNiceness);
    expectSame(present(), before);
    EXPECT_EQ(ofStartedThread().policy, static_cast<std::uint32_t>(SCHED_BATCH));
  });
}

// Who may not lower a niceness has none that is low.
TEST(Precedence, leaves_what_comes_first_already) {
  const int chosen = mayLowerNiceness() ? -3 : getpriority(PRIO_PROCESS, 0);
  onThread([chosen] {
    ASSERT_EQ(setpriority(PRIO_PROCESS, 0, chosen), 0);
    const Precedence precedence(kNiceness);
    EXPECT_EQ(present().niceness, chosen);
    EXPECT_EQ(ofStartedThread().niceness, chosen) << "what it starts inherits it";
  });
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
