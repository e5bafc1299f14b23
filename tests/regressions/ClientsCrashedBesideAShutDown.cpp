// What a shut-down does with calls of other threads: it waits for those that are inside, turns new
// ones away, and answers the question about the threads' health throughout.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "tests/controller/pipeline/PipelineFixture.h"
#include "tests/controller/pipeline/PipelineSteps.h"
#include "tests/support/Barrier.h"
#include "tests/support/CodeNames.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/ThreadState.h"

TARVEX_PRIVATE_MEMBER(ProgressLockTag, DiagCtrl::DiagnosticController::mmtxDiagProgressLock);

namespace TarvexDiags::Lifecycle {
namespace {

using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagnosticController;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using TestSupport::Actor;
using TestSupport::Barrier;
using TestSupport::Companion;
using TestSupport::eventually;
using TestSupport::neverWithin;
using TestSupport::PipelineSteps;
using TestSupport::privateMember;
using namespace std::chrono_literals;
using enum DiagnosticController::errorCode;
typedef DiagnosticController::errorCode Code;

/// A call that answers SUCCESS in IDLE, and frees what it is handed.
struct ClientCall {
  std::string name;
  std::function<Code(DiagnosticController&)> run;
};

void PrintTo(const ClientCall& call, std::ostream* stream) {
  *stream << call.name;
}

template <class Output>
ClientCall handingOut(const std::string& name, Code (DiagnosticController::*call)(Output*&)) {
  return {name, [call](DiagnosticController& c) {
            Output* output = nullptr;
            const Code code = (c.*call)(output);
            delete output;
            return code;
          }};
}

template <class Messages>
ClientCall fetching(const std::string& name, Code (DiagnosticController::*call)(long, Messages*&)) {
  return {name, [call](DiagnosticController& c) {
            Messages* messages = nullptr;
            const Code code = (c.*call)(1, messages);
            const std::unique_ptr<Messages> owned(messages);
            if (messages != nullptr) {
              for (auto* message : *messages) {
                delete message;
              }
            }
            return code;
          }};
}

std::vector<ClientCall> countedCalls() {
  typedef DiagnosticController C;
  return {
      fetching("getDiagnosticEvents", &C::getDiagnosticEvents),
      fetching("getDiagnosticResults", &C::getDiagnosticResults),
      fetching("getDiagnosticCtrlEvents", &C::getDiagnosticCtrlEvents),
      handingOut("getRequestIdList", &C::getRequestIdList),
      handingOut("getDisablePackageList", &C::getDisablePackageList),
      {"getNumberOfRegistrations",
       [](C& c) {
         unsigned int counts[3] = {};
         return c.getNumberOfRegistrations(counts[0], counts[1], counts[2]);
       }},
      {"getRunMode",
       [](C& c) {
         auto mode = DiagCtrl::GlobalSettings::SERIAL;
         return c.getRunMode(mode);
       }},
      {"setHaltOnError", [](C& c) { return c.setHaltOnError(true); }},
      {"getDevice",
       [](C& c) {
         DiagCtrl::DiagDevice* device = nullptr;
         return c.getDevice(1, 1, device);
       }},
      {"getTest",
       [](C& c) {
         DiagCtrl::PackageTestInfo* test = nullptr;
         return c.getTest(1, 1, test);
       }},
      {"getDeviceStatus",
       [](C& c) {
         unsigned int status = 0;
         return c.getDeviceStatus(1, 1, status);
       }},
      {"getPackageToken",
       [](C& c) {
         char key[] = "Mnemonic";
         char* text = nullptr;
         const Code code = c.getPackageToken(1, key, text);
         delete[] text;
         return code;
       }},
      {"getRequestStatus",
       [](C& c) {
         auto status = DiagCtrl::TestRequest::WAIT;
         int passes[2] = {};
         bool stress = false;
         return c.getRequestStatus(1, status, passes[0], passes[1], stress);
       }},
      {"clearRequestIdList", [](C& c) { return c.clearRequestIdList(); }},
  };
}

class CallsInsideTest : public TestSupport::PipelineTest {
 protected:
  CallsInsideTest() { steps.setWaits(2ms); }

  Code progressCall(unsigned long id) {
    unsigned int progress = 0;
    return harness->getDiagnosticProgress(id, progress);
  }
  Code statusCall(unsigned long id) {
    auto status = Status::UNKNOWN;
    return harness->getDiagnosticStatus(id, status);
  }
  Code healthCall() {
    DiagControllerStatus* status = nullptr;
    const Code code = harness->getDiagControllerStatus(status);
    delete status;
    return code;
  }

  /// The tracer takes its lock at the first line of a thread, which is not what is looked at.
  void beKnownToTracer() { static_cast<void>(harness->getEventMgrPtr()); }

  /// Runs a call on a client's thread, stopped in front of its number-th lock, and meanwhile an
  /// action. @return whether the call takes so many locks.
  bool stopped(unsigned int number, const std::function<void()>& call,
               const std::function<void()>& meanwhile) {
    Barrier barrier;
    steps.atLock(Actor::Client, number, [&] { barrier.pass(); });
    const Companion caller([&] {
      beKnownToTracer();
      PipelineSteps::actAsClient();
      call();
    });
    EXPECT_TRUE(eventually([&] { return steps.isReached() || caller.ended(); }));
    const bool wasReached = steps.isReached();
    if (wasReached) {
      meanwhile();
    } else {
      steps.disarm();
    }
    barrier.open();
    EXPECT_TRUE(caller.ends());
    return wasReached;
  }

  /// Whether the shut-down on that thread has stopped the pipeline and waits.
  bool waitsForCalls(const Companion& shutDown) {
    return eventually([&] { return steps.livingThreads() == 0 || shutDown.ended(); }) &&
           shutDown.blocks() && staysInside(shutDown);
  }
  /// The end of a shut-down that has begun, or a whole one.
  void endLife(const Companion* shutDown) {
    if (shutDown != nullptr) {
      EXPECT_TRUE(shutDown->ends());
    } else {
      EXPECT_EQ(harness.shutDown(), SUCCESS);
    }
  }
  static bool staysInside(const Companion& shutDown) {
    return neverWithin(20ms, [&] { return shutDown.ended(); });
  }
};

// ---- Calls that are inside
// --------------------------------------------------------------------------

class EveryCallTest : public CallsInsideTest, public ::testing::WithParamInterface<ClientCall> {};

TEST_P(EveryCallTest, is_waited_for_at_each_of_its_locks) {
  bool isReached = true;
  for (unsigned int number = 1; isReached; ++number) {
    SCOPED_TRACE("in front of lock " + std::to_string(number));
    parallel();
    harness.queue("ALPHA", 1, {1});
    ASSERT_TRUE(harness.awaitIdle());
    Code code = OUT_OF_RANGE;
    std::unique_ptr<Companion> shutDown;
    isReached = stopped(
        number, [&] { code = GetParam().run(harness.controller()); },
        [&] {
          shutDown = std::make_unique<Companion>([&] { harness.shutDown(); });
          EXPECT_TRUE(waitsForCalls(*shutDown));
        });
    EXPECT_EQ(code, SUCCESS) << "it was inside before";
    endLife(shutDown.get());
    EXPECT_EQ(harness.phase(), DiagControllerStatus::UNINITIALISED);
  }
}

INSTANTIATE_TEST_SUITE_P(Counted, EveryCallTest, ::testing::ValuesIn(countedCalls()),
                         [](const auto& call) { return call.param.name; });

TEST_F(CallsInsideTest, a_shut_down_waits_for_a_package_inside_its_status_call) {
  parallel();
  alpha.holdRuns();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  Barrier inPackage;
  Code code = OUT_OF_RANGE;
  std::thread::id asking;
  alpha.on(Call::GetStatus, [&](const CallRecord& call) {
    if (call.thread == asking) {
      inPackage.pass();
    }
  });
  const Companion client([&] {
    asking = std::this_thread::get_id();
    code = statusCall(id);
  });
  ASSERT_TRUE(inPackage.awaitArrival());
  const Companion shutDown([&] { harness.shutDown(); });
  EXPECT_TRUE(waitsForCalls(shutDown));
  EXPECT_EQ(alpha.living().diagnostics, 1) << "it is inside";
  EXPECT_EQ(healthCall(), SUCCESS);
  inPackage.open();
  ASSERT_TRUE(client.ends() && shutDown.ends());
  EXPECT_EQ(code, SUCCESS);
  EXPECT_EQ(alpha.living(), Scripted::Living());
}

TEST_F(CallsInsideTest, a_reset_waits_as_a_shut_down_does) {
  parallel();
  Barrier inPackage;
  alpha.on(Call::DeviceStatus, [&](const CallRecord&) { inPackage.pass(); });
  Code code = OUT_OF_RANGE;
  const Companion client([&] {
    unsigned int status = 0;
    code = harness->getDeviceStatus(1, 1, status);
  });
  ASSERT_TRUE(inPackage.awaitArrival());
  const Companion reset([&] { EXPECT_EQ(harness->resetDiagController(), SUCCESS); });
  EXPECT_TRUE(waitsForCalls(reset));
  inPackage.open();
  ASSERT_TRUE(client.ends() && reset.ends());
  EXPECT_EQ(code, SUCCESS);
  EXPECT_EQ(harness.phase(), DiagControllerStatus::INITIALIZE);
}

TEST_F(CallsInsideTest, a_second_shut_down_waits_for_the_first) {
  parallel();
  Barrier inPackage;
  alpha.on(Call::DeviceStatus, [&](const CallRecord&) { inPackage.pass(); });
  const Companion client([&] {
    unsigned int status = 0;
    harness->getDeviceStatus(1, 1, status);
  });
  ASSERT_TRUE(inPackage.awaitArrival());
  const Companion first([&] { EXPECT_EQ(harness->shutDown(), SUCCESS); });
  EXPECT_TRUE(waitsForCalls(first));
  const Companion second([&] { EXPECT_EQ(harness->shutDown(), SUCCESS); });
  EXPECT_TRUE(second.blocks());
  inPackage.open();
  EXPECT_TRUE(client.ends() && first.ends() && second.ends());
  EXPECT_EQ(harness.phase(), DiagControllerStatus::UNINITIALISED);
}

// The shut-down's own abort raises the events that wake the client. The monitor stands inside the
// package meanwhile, and the shut-down waits for it: so it cannot be over before the client is
// inside.
TEST_F(CallsInsideTest, a_client_that_fetches_when_the_shut_down_wakes_it_is_waited_for) {
  parallel();
  alpha.holdRuns();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  Barrier inPackage;
  alpha.on(Call::GetStatus, [&](const CallRecord&) { inPackage.pass(); });
  ASSERT_TRUE(inPackage.awaitArrival());
  harness.forget();
  Barrier barrier;
  Code code = OUT_OF_RANGE;
  const Companion client([&] {
    PipelineSteps::actAsClient();
    harness.callBack().wait();
    steps.atLock(Actor::Client, 2, [&] { barrier.pass(); });  // that of the queues
    DiagCtrl::CtrlEventVector* events = nullptr;
    code = harness->getDiagnosticCtrlEvents(1, events);
    ASSERT_THAT(events, ::testing::NotNull());
    for (DiagCtrl::DiagCtrlEvent* event : *events) {
      delete event;
    }
    delete events;
  });
  EXPECT_TRUE(client.blocks());
  const Companion shutDown([&] { harness.shutDown(); });
  EXPECT_TRUE(barrier.awaitArrival());
  inPackage.open();
  EXPECT_TRUE(waitsForCalls(shutDown));
  barrier.open();
  ASSERT_TRUE(client.ends() && shutDown.ends());
  EXPECT_EQ(code, SUCCESS);
}

// The sum at the end of an estimate is a call of its own, made inside another.
TEST_F(CallsInsideTest, a_call_inside_a_counted_one_is_not_turned_away) {
  alpha.everyPass({.results = {{.estimatedTime = 12}}});
  bool isReached = true;
  for (unsigned int number = 1; isReached; ++number) {
    SCOPED_TRACE("in front of lock " + std::to_string(number));
    parallel();
    harness.queue("ALPHA", 1, {1});
    ASSERT_TRUE(harness.awaitIdle());
    std::vector<int> times;
    int total = 0;
    std::unique_ptr<Companion> shutDown;
    isReached = stopped(
        number, [&] { EXPECT_TRUE(harness->getEstimatedTime({1}, times, total)); },
        [&] {
          shutDown = std::make_unique<Companion>([&] { harness.shutDown(); });
          EXPECT_TRUE(waitsForCalls(*shutDown));
        });
    EXPECT_EQ(total, 12);
    endLife(shutDown.get());
  }
}

// ---- Calls that wait for the lock of status and progress
// --------------------------------------------------

class WaitingCallTest : public CallsInsideTest {
 protected:
  /// Queues a request that stays in the package.
  unsigned long queueHeld() {
    alpha.holdRuns();
    const unsigned long id = harness.queue("ALPHA", 1, {1});
    EXPECT_TRUE(alpha.awaitRunning(1));
    return id;
  }

  DiagCtrl::DiagCtrlLock& progressLock() {
    return privateMember<ProgressLockTag>(harness.controller());
  }
};

TEST_F(WaitingCallTest, a_call_from_the_former_life_is_turned_away) {
  parallel();
  const unsigned long id = queueHeld();
  progressLock().lock(0);
  std::vector<Code> codes(2, OUT_OF_RANGE);
  Companion progress([&] { codes[0] = progressCall(id); });
  Companion status([&] { codes[1] = statusCall(id); });
  EXPECT_TRUE(progress.blocks() && status.blocks());
  EXPECT_EQ(harness.shutDown(), SUCCESS) << "nobody waits for them";
  harness.start();
  ASSERT_EQ(queueHeld(), id) << "the number stands for another request now";
  progressLock().unlock();
  ASSERT_TRUE(progress.ends() && status.ends());
  EXPECT_THAT(codes, Each(INCORRECT_PHASE));
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("INCORRECT_PHASE E 0", "INCORRECT_PHASE E 0"));
  EXPECT_EQ(statusCall(id), SUCCESS) << "the lock is free";
}

TEST_F(WaitingCallTest, a_call_that_finds_no_controller_is_turned_away) {
  parallel();
  const unsigned long id = queueHeld();
  progressLock().lock(0);
  Code code = OUT_OF_RANGE;
  Companion status([&] { code = statusCall(id); });
  EXPECT_TRUE(status.blocks());
  EXPECT_EQ(harness.shutDown(), SUCCESS);
  progressLock().unlock();
  ASSERT_TRUE(status.ends());
  EXPECT_EQ(code, INCORRECT_PHASE);
}

TEST_F(WaitingCallTest, a_call_that_meets_a_waiting_shut_down_gives_its_lock_back) {
  parallel();
  const unsigned long id = queueHeld();
  Barrier inPackage;
  alpha.on(Call::DeviceStatus, [&](const CallRecord&) { inPackage.pass(); });
  const Companion inside([&] {
    unsigned int status = 0;
    harness->getDeviceStatus(1, 1, status);
  });
  ASSERT_TRUE(inPackage.awaitArrival());
  progressLock().lock(0);
  Code code = OUT_OF_RANGE;
  Companion progress([&] { code = progressCall(id); });
  EXPECT_TRUE(progress.blocks());
  const Companion shutDown([&] { harness.shutDown(); });
  EXPECT_TRUE(waitsForCalls(shutDown));
  progressLock().unlock();
  EXPECT_TRUE(progress.ends());
  EXPECT_EQ(code, INCORRECT_PHASE);
  EXPECT_TRUE(progressLock().tryLock());
  progressLock().unlock();
  EXPECT_FALSE(shutDown.ended());
  inPackage.open();
}

TEST_F(WaitingCallTest, a_request_that_was_cleared_meanwhile_is_not_found) {
  parallel();
  const unsigned long id = queueHeld();
  progressLock().lock(0);
  Code code = OUT_OF_RANGE;
  Companion status([&] { code = statusCall(id); });
  EXPECT_TRUE(status.blocks());
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitIdle());
  ASSERT_EQ(harness->clearRequestIdList(), SUCCESS);
  queueHeld();
  progressLock().unlock();
  ASSERT_TRUE(status.ends());
  EXPECT_EQ(code, REQUEST_OBJECT_NOT_FOUND);
  EXPECT_THAT(harness.ctrlEvents(), Contains("REQUEST_OBJECT_NOT_FOUND E 0"));
}

TEST_F(WaitingCallTest, a_status_call_that_finds_the_controller_idle_keeps_no_lock) {
  parallel();
  const unsigned long id = queueHeld();
  progressLock().lock(0);
  Code code = OUT_OF_RANGE;
  Companion status([&] { code = statusCall(id); });
  EXPECT_TRUE(status.blocks());
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitIdle());
  progressLock().unlock();
  ASSERT_TRUE(status.ends());
  EXPECT_EQ(code, INCORRECT_PHASE);
  EXPECT_TRUE(progressLock().tryLock());
  progressLock().unlock();
}

// ---- Health
// -----------------------------------------------------------------------------------------

TEST_F(CallsInsideTest, health_is_told_while_a_shut_down_joins_a_thread) {
  parallel();
  alpha.setHabits({.ignoresAbort = true}).holdRuns();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const Companion shutDown([&] { harness.shutDown(); });
  ASSERT_TRUE(alpha.awaitCalls(Call::Abort));
  // The pass thread stays: the owner of the pass threads joins it when it is destroyed itself.
  EXPECT_TRUE(eventually([&] { return steps.livingThreads() == 1; }));
  for (int asked = 0; asked < 100; ++asked) {
    ASSERT_EQ(healthCall(), SUCCESS);
  }
  EXPECT_FALSE(shutDown.ended());
  alpha.releaseRuns();
  EXPECT_TRUE(shutDown.ends());
}

TEST_F(CallsInsideTest, a_thread_is_not_deleted_while_its_health_is_asked) {
  bool isReached = true;
  int held = 0;
  forbidTimeOuts();
  for (unsigned int number = 1; isReached; ++number) {
    SCOPED_TRACE("in front of lock " + std::to_string(number));
    parallel();
    // A lock that another thread holds is tried more than once, and counts as more than one.
    EXPECT_TRUE(comesToRest(Actor::Monitor));
    EXPECT_TRUE(comesToRest(Actor::Dispatcher));
    std::unique_ptr<Companion> shutDown;
    isReached = stopped(
        number, [&] { EXPECT_EQ(healthCall(), SUCCESS); },
        [&] {
          shutDown = std::make_unique<Companion>([&] { harness.shutDown(); });
          held += neverWithin(100ms, [&] { return shutDown->ended(); }) ? 1 : 0;
        });
    endLife(shutDown.get());
  }
  EXPECT_GE(held, 2) << "at the stamps of both threads";
}

}  // namespace
}  // namespace TarvexDiags::Lifecycle
