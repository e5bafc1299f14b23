// Where the threads of the pipeline meet: every order of two of them that has ever hung, lost a
// request, run one twice or entered an object that was gone, forced with the means of
// PipelineSteps.

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/DiagnosticPackageInterface.h"
#include "tests/controller/pipeline/PipelineFixture.h"
#include "tests/support/Reaction.h"

namespace TarvexDiags::TestSupport {

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// A number of rounds, multiplied by TARVEX_PIPELINE_FACTOR for long runs by hand.
int rounds(int normal) {
  const char* const factor = std::getenv("TARVEX_PIPELINE_FACTOR");
  return normal * std::max(1, factor == nullptr ? 1 : std::atoi(factor));
}

class InterleavingTest : public PipelineTest {
 protected:
  unsigned long nextId() const { return m_lastId + 1; }
  unsigned long queueOn(unsigned int device, Settings wanted = settings()) {
    m_lastId = harness.queue("ALPHA", device, {1}, wanted);
    return m_lastId;
  }
  unsigned long queueHalting(int passes) {
    std::vector<int> tests{1};
    Settings wanted = settings(passes);
    EXPECT_EQ(harness->queueTest(harness.indexOf("ALPHA"), 1, tests, wanted, true, m_lastId),
              Controller::SUCCESS);
    return m_lastId;
  }
  /// The entries of a request in the queues while the dispatcher has none in its hands.
  int entriesAtRest(unsigned long id) {
    managers().mmtxTestReqChangeLock.lock(0);
    const int entries = managers().countQueuedEntries(&request(id));
    managers().mmtxTestReqChangeLock.unlock();
    return entries;
  }
  /// A request from queue to end, behind which the phase stays as it is.
  void runOneAndStayActive() {
    forbidTimeOuts();
    EXPECT_TRUE(harness.awaitEnd(queueOn(1)));
    keepActive();
  }
  /// The monitor has given the object of each request back, and only once.
  void expectAllObjectsGone() {
    EXPECT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }));
    EXPECT_EQ(alpha.count(Call::DestroyDiagnostics), alpha.count(Call::GetDiagnostics));
  }
  void expectIdle() {
    allowTimeOuts();
    EXPECT_TRUE(harness.awaitIdle());
    expectAllObjectsGone();
    EXPECT_TRUE(eventually([&] { return isTagFree("a/1"); }));
    EXPECT_TRUE(eventually([&] { return isTagFree("a/2"); }));
    EXPECT_EQ(steps.livingThreads(), 2) << "the dispatcher and the monitor";
    EXPECT_EQ(workersKept(), 0U) << "each was joined and deleted";
  }

 private:
  unsigned long m_lastId = 0;
};

class InterleavingInBothModes : public InterleavingTest, public testing::WithParamInterface<bool> {
 protected:
  void start() { startIn(GetParam()); }
};

std::string modeName(const testing::TestParamInfo<bool>& info) {
  return info.param ? "Parallel" : "Serial";
}
INSTANTIATE_TEST_SUITE_P(Modes, InterleavingInBothModes, testing::Bool(), modeName);

// ---- The idle check ----------------------------------------------------------------------------

TEST_F(InterleavingTest, the_idle_check_does_not_wait_for_the_dispatcher) {
  serial();
  runOneAndStayActive();
  managers().mmtxTestReqChangeLock.lock(0);
  allowTimeOuts();
  const unsigned long waits = steps.waits(Actor::Monitor);
  EXPECT_TRUE(eventually([&] { return steps.waits(Actor::Monitor) > waits + 3; }))
      << "the monitor stands at the lock";
  EXPECT_EQ(harness.phase(), Phases::ACTIVE);
  managers().mmtxTestReqChangeLock.unlock();
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_F(InterleavingTest, a_stop_ends_an_idle_check_that_cannot_get_its_lock) {
  serial();
  runOneAndStayActive();
  managers().mmtxTestReqChangeLock.lock(0);
  allowTimeOuts();
  const unsigned long waits = steps.waits(Actor::Monitor);
  ASSERT_TRUE(eventually([&] { return steps.waits(Actor::Monitor) > waits + 1; }));
  monitor().stop();
  EXPECT_TRUE(eventually([&] { return steps.livingThreads() == 1; }));
  managers().mmtxTestReqChangeLock.unlock();
}

TEST_F(InterleavingTest, an_idle_check_that_is_stopped_tries_no_more) {
  serial();
  runOneAndStayActive();
  managers().mmtxTestReqChangeLock.lock(0);
  const auto triesOf = [this](const auto& action) {
    const unsigned long before = steps.tries(Actor::Monitor);
    action();
    EXPECT_TRUE(comesToRest(Actor::Monitor));
    return static_cast<unsigned int>(steps.tries(Actor::Monitor) - before);
  };
  const auto startRounds = [this] {  // the first is that of the signal, and checks nothing
    steps.setWaits(std::chrono::milliseconds(20));
    wakeMonitor();
  };
  const unsigned int ofSignal = triesOf([this] { wakeMonitor(); });
  const unsigned long waits = steps.waits(Actor::Monitor);
  const unsigned int ofAll = triesOf([&] {
    startRounds();
    EXPECT_TRUE(eventually([&] { return steps.waits(Actor::Monitor) > waits + 2; }));
    forbidTimeOuts();
  });
  const auto checks = static_cast<unsigned int>(steps.waits(Actor::Monitor) - waits - 1);
  const unsigned int ofCheck = (ofAll - ofSignal) / checks;
  ASSERT_GE(ofCheck, 20U) << "the tries of one check";
  std::atomic<unsigned long> triesAtStop{0};
  constexpr unsigned int left = 18;
  steps.atLock(Actor::Monitor, ofSignal + ofCheck - left, [&] {
    triesAtStop = steps.tries(Actor::Monitor);
    monitor().stop();
  });
  startRounds();
  EXPECT_TRUE(eventually([&] { return steps.livingThreads() == 1; }));
  EXPECT_GT(triesAtStop, 0U);
  EXPECT_LT(steps.tries(Actor::Monitor) - triesAtStop, left / 2) << "the end of the thread alone";
  managers().mmtxTestReqChangeLock.unlock();
}

// The monitor is stopped in front of each of its locks in turn while it turns idle, and a client
// queues there: whatever the client meets, its request runs.
TEST_P(InterleavingInBothModes, a_request_queued_at_any_step_of_the_idle_check_runs) {
  start();
  steps.setWaits(std::chrono::milliseconds(2));
  for (unsigned int number = 1; number <= 40; ++number) {
    ASSERT_TRUE(harness.awaitEnd(queueOn(1)));
    ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }));
    std::unique_ptr<Interjection> client;
    steps.atLock(Actor::Monitor, number,
                 [&] { client = std::make_unique<Interjection>([&] { queueOn(2); }); });
    ASSERT_TRUE(eventually([&] { return steps.isReached(); }));
    steps.disarm();
    ASSERT_TRUE(eventually([&] { return client->ended(); }));
    client.reset();
    ASSERT_TRUE(eventually([&] { return harness.requestIds().empty(); })) << "step " << number;
  }
  expectIdle();
}

TEST_P(InterleavingInBothModes, no_request_is_stranded_that_is_queued_just_after_the_last_one) {
  start();
  steps.setWaits(std::chrono::milliseconds(1));
  std::mt19937 random(7);
  const int number = rounds(300);
  for (int round = 0; round < number; ++round) {
    const unsigned long id = queueOn(1 + static_cast<unsigned int>(round) % 2);
    ASSERT_TRUE(harness.awaitEnd(id)) << "round " << round;
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
  }
  EXPECT_EQ(alpha.count(Call::RunEnter), static_cast<unsigned long>(number));
  expectIdle();
}

// With the real waits of two seconds, which end on the same whole second on both threads.
TEST_F(InterleavingTest, ten_serial_requests_each_queued_at_the_end_of_the_one_before) {
  steps.restoreWaits();
  const Reaction reaction(0);
  serial();
  const auto begin = std::chrono::steady_clock::now();
  for (int round = 0; round < 10; ++round) {
    ASSERT_TRUE(harness.awaitEnd(queueOn(1)));
  }
  // One wait to its end each would be ten seconds at least.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, reaction.allowed(std::chrono::seconds(5)));
  const unsigned long waits = steps.waits(Actor::Monitor);
  EXPECT_TRUE(harness.awaitIdle());
  EXPECT_LE(steps.waits(Actor::Monitor), waits + 3) << "the first time-out is enough";
}

TEST_F(InterleavingTest, serial_requests_queued_as_the_waits_of_both_threads_end) {
  steps.restoreWaits();
  alpha.everyPass({.duration = std::chrono::milliseconds(30)});
  serial();
  for (int round = 0; round < 2; ++round) {
    // The waits end on a whole second: be there when they do.
    ASSERT_TRUE(eventually([] {
      timespec now{};
      clock_gettime(CLOCK_REALTIME, &now);
      return now.tv_nsec > 985'000'000;
    }));
    queueOn(1);
    ASSERT_TRUE(harness.awaitEnd(queueOn(2)));
  }
}

// ---- Verdicts ----------------------------------------------------------------------------------

TEST_F(InterleavingTest,
       the_next_serial_request_starts_when_the_pass_thread_of_the_last_one_is_gone) {
  Barrier leaving;
  alpha.on(Call::RunReturn, [&](const CallRecord& run) {
    if (run.requestId == 1) {
      leaving.pass();
    }
  });
  serial();
  forbidTimeOuts();
  queueOn(1);
  const unsigned long second = queueOn(2);
  ASSERT_TRUE(leaving.awaitArrival());
  wakeMonitor();  // the package reports completion already
  EXPECT_TRUE(
      neverWithin(std::chrono::milliseconds(150), [&] { return alpha.count(Call::RunEnter) > 1; }));
  leaving.open();
  EXPECT_TRUE(harness.awaitEnd(second));
  expectIdle();
}

// The same with the monitor stopped in front of each of its locks in turn while it judges.
TEST_F(InterleavingTest,
       no_step_of_a_verdict_frees_the_next_serial_request_before_the_pass_thread_is_gone) {
  serial();
  forbidTimeOuts();
  for (unsigned int number = 1; number <= 210; number += 3) {
    Barrier leaving;
    Barrier monitorStands;
    const unsigned long first = nextId();
    alpha.on(Call::RunReturn, [&, first](const CallRecord& run) {
      if (run.requestId == first) {
        leaving.pass();
      }
    });
    alpha.holdRunsOn("a1");
    const unsigned long runs = alpha.count(Call::RunEnter);
    queueOn(1);
    const unsigned long second = queueOn(2);
    ASSERT_TRUE(alpha.awaitRunning(1));
    pollTimes(2);  // the monitor has seen it begin, and waits
    alpha.releaseRunsOn("a1");
    ASSERT_TRUE(leaving.awaitArrival());
    steps.atLock(Actor::Monitor, number, [&] { monitorStands.pass(); });
    wakeMonitor();
    EXPECT_TRUE(neverWithin(std::chrono::milliseconds(15),
                            [&] { return alpha.count(Call::RunEnter) > runs + 1; }))
        << "step " << number;
    monitorStands.open();
    leaving.open();
    ASSERT_TRUE(harness.awaitEnd(second)) << "step " << number;
    ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }));
    steps.disarm();
    alpha.on(Call::RunReturn, nullptr);
  }
  expectIdle();
}

TEST_F(InterleavingTest, verdicts_follow_the_end_of_passes_without_any_time_out) {
  serial();
  forbidTimeOuts();
  const unsigned long id = queueOn(1, settings(50));
  EXPECT_TRUE(harness.awaitEnd(id));
  EXPECT_EQ(alpha.count(Call::RunEnter), 50U);
  expectIdle();
}

TEST_F(InterleavingTest, a_late_verdict_on_another_request_does_not_end_the_serial_wait) {
  alpha.holdRuns();
  serial();
  queueOn(1);
  queueOn(2);
  ASSERT_TRUE(alpha.awaitRunning(1));
  managers().concludeTestExec(77, 1);
  EXPECT_TRUE(neverWithin(std::chrono::milliseconds(100), [&] { return alpha.running() > 1; }));
  managers().concludeTestExec(1, 1);
  EXPECT_TRUE(alpha.awaitRunning(2)) << "its own does";
}

// The pass thread halts or is aborted after its package has reported completion.
TEST_P(InterleavingInBothModes,
       a_halt_on_the_pass_threads_last_steps_is_seen_before_the_next_pass) {
  Barrier leaving;
  alpha.on(Call::RunReturn, [&](const CallRecord&) { leaving.pass(); });
  alpha.everyPass(ending(Result::FAILED));
  start();
  const unsigned long id = queueHalting(3);
  ASSERT_TRUE(leaving.awaitArrival());
  // The monitor finds COMPLETED, wants another pass, and joins the pass thread.
  ASSERT_TRUE(alpha.awaitCalls(Call::GetResults));
  leaving.open();
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_EQ(alpha.count(Call::RunEnter), 1U);
  EXPECT_EQ(request(id).getDiagnosticSettings()->getPassCount(), 1) << "not sent back";
  EXPECT_EQ(harness.statusOf(id), Request::COMPLETED);
  EXPECT_THAT(harness.ctrlEventsOf(id),
              ElementsAre("ERROR_RECVD_AND_HALT_ON_ERROR E", "DROP_REQUEST_ON_COMPLETION I"));
  expectIdle();
}

TEST_P(InterleavingInBothModes,
       an_abort_on_the_pass_threads_last_steps_is_seen_before_the_next_pass) {
  Barrier leaving;
  alpha.on(Call::RunReturn, [&](const CallRecord&) { leaving.pass(); });
  start();
  const unsigned long id = queueOn(1, settings(3));
  ASSERT_TRUE(leaving.awaitArrival());
  ASSERT_TRUE(alpha.awaitCalls(Call::GetResults));
  harness->abortTest(id);
  leaving.open();
  expectIdle();
  EXPECT_EQ(alpha.count(Call::RunEnter), 1U);
  EXPECT_EQ(request(id).getDiagnosticSettings()->getPassCount(), 1) << "not sent back";
  EXPECT_THAT(harness.ctrlEventsOf(id),
              ElementsAre("TEST_REQUEST_ABORTED W", "TEST_REQUEST_ABORTED W"));
  EXPECT_EQ(harness.statusOf(id), Request::ABORTED);
}

TEST_P(InterleavingInBothModes, halting_requests_of_three_passes_run_once_each) {
  alpha.everyPass(ending(Result::FAILED));
  alpha.setHabits({.completesEarly = true});
  start();
  forbidTimeOuts();
  const int number = rounds(200);
  for (int round = 0; round < number; ++round) {
    ASSERT_TRUE(harness.awaitEnd(queueHalting(3))) << "round " << round;
  }
  EXPECT_EQ(alpha.count(Call::RunEnter), static_cast<unsigned long>(number));
  EXPECT_THAT(harness.results(), SizeIs(number));
  expectIdle();
}

// ---- Abort at every step
// -------------------------------------------------------------------------

struct StepCase {
  Actor actor;
  bool isParallel;
  int passes;
  unsigned int most;  // steps of the actor to try
};

std::string stepName(const testing::TestParamInfo<StepCase>& info) {
  const char* const actors[] = {"Dispatcher", "Monitor", "Worker"};
  return std::string(actors[static_cast<std::size_t>(info.param.actor)]) +
         (info.param.isParallel ? "Parallel" : "Serial") + std::to_string(info.param.passes);
}

/// A thread of the pipeline is stopped in front of each of its locks in turn, and a client acts.
class EveryStepTest : public InterleavingTest, public testing::WithParamInterface<StepCase> {
 protected:
  void start() {
    startIn(GetParam().isParallel);
    forbidTimeOuts();
    // The phase stays ACTIVE from now on: only a time-out could end it.
    ASSERT_TRUE(harness.awaitEnd(queueOn(2)));
  }
  /// Runs one request per step; act gets its id while the actor stands still. Until the request has
  /// ended, insist gets its id again and again.
  template <class Act, class Check>
  void atEveryStep(Act act, Check check, std::function<void(unsigned long)> insist = nullptr) {
    const unsigned int stride = rounds(1) > 1 ? 1 : 3;
    for (unsigned int number = 1; number <= GetParam().most; number += stride) {
      const unsigned long id = nextId();
      std::unique_ptr<Interjection> client;
      steps.atLock(GetParam().actor, number,
                   [&, id] { client = std::make_unique<Interjection>([&, id] { act(id); }); });
      ASSERT_EQ(queueOn(1, settings(GetParam().passes)), id);
      const auto isOver = [&] {
        if (insist && steps.isReached()) {
          insist(id);
        }
        return alpha.living().diagnostics == 0;
      };
      ASSERT_TRUE(eventually(isOver)) << "step " << number << " left the request hanging";
      steps.disarm();
      const bool wasReached = client != nullptr;
      client.reset();
      check(id, number);
      ASSERT_TRUE(harness.awaitEnd(queueOn(1))) << "the next one after step " << number;
      ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }));
      if (!wasReached) {
        return;  // the actor took fewer locks than that
      }
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Actors, EveryStepTest,
                         testing::Values(StepCase{Actor::Dispatcher, false, 1, 260},
                                         StepCase{Actor::Dispatcher, true, 1, 260},
                                         StepCase{Actor::Monitor, false, 1, 260},
                                         StepCase{Actor::Monitor, true, 1, 260},
                                         StepCase{Actor::Worker, false, 1, 260},
                                         StepCase{Actor::Worker, true, 1, 260},
                                         StepCase{Actor::Dispatcher, true, 2, 400},
                                         StepCase{Actor::Monitor, true, 2, 400},
                                         StepCase{Actor::Monitor, false, 2, 400}),
                         stepName);

TEST_P(EveryStepTest, an_abort_ends_the_request_for_good) {
  std::atomic<unsigned long> aborted{0};
  std::atomic<unsigned long> told{0};
  alpha.on(Call::Abort, [&](const CallRecord&) { ++told; });
  alpha.on(Call::RunEnter, [&](const CallRecord& run) {
    EXPECT_TRUE(run.requestId != aborted || told > 0) << "run after an abort it never heard of";
  });
  start();
  atEveryStep(
      [&](unsigned long id) {
        told = 0;
        if (harness->abortTest(id) == Controller::SUCCESS) {  // it may not be queued yet
          aborted = id;
        }
      },
      [this](unsigned long id, unsigned int number) {
        const auto status = harness.statusOf(id);
        const Lines events = harness.ctrlEventsOf(id);
        EXPECT_THAT(status, AnyOf(Request::ABORTED, Request::COMPLETED)) << number;
        const bool isDropped =
            std::count(events.begin(), events.end(), "DROP_REQUEST_ON_COMPLETION I") > 0;
        EXPECT_EQ(isDropped, status == Request::COMPLETED) << "step " << number;
        EXPECT_LE(events.size(), 3U) << "step " << number;
        EXPECT_FALSE(events.empty()) << "step " << number;
      });
  expectIdle();
  EXPECT_THAT(harness.requestIds(), IsEmpty());
}

TEST_P(EveryStepTest, status_and_progress_calls_find_the_object_or_say_that_it_is_gone) {
  start();
  atEveryStep(
      [this](unsigned long id) {
        unsigned int progress = 0;
        EXPECT_THAT(harness->getDiagnosticProgress(id, progress),
                    AnyOf(Controller::SUCCESS, Controller::IDIAGNOSTIC_NOT_FOUND,
                          Controller::REQUEST_OBJECT_NOT_FOUND));
        harness->suspendTest(id);
        harness->resumeTest(id);
      },
      [this](unsigned long id, unsigned int number) {
        EXPECT_EQ(harness.statusOf(id), Request::COMPLETED) << "step " << number;
        EXPECT_EQ(request(id).getDiagnosticSettings()->getPassCount(), GetParam().passes);
      },
      // A resume that meets the request between two passes is left alone: the next one stays held.
      [this](unsigned long id) { harness->resumeTest(id); });
  expectIdle();
}

TEST_P(EveryStepTest, abort_all_ends_everything) {
  start();
  atEveryStep([this](unsigned long) { EXPECT_EQ(harness->abortAllTest(), Controller::SUCCESS); },
              [this](unsigned long id, unsigned int number) {
                EXPECT_THAT(harness.statusOf(id), AnyOf(Request::ABORTED, Request::COMPLETED))
                    << "step " << number;
              });
  expectIdle();
}

/// A new controller for each step, so fewer of them.
class ShutDownAtStepTest : public testing::TestWithParam<StepCase> {};

INSTANTIATE_TEST_SUITE_P(Actors, ShutDownAtStepTest,
                         testing::Values(StepCase{Actor::Dispatcher, false, 2, 200},
                                         StepCase{Actor::Dispatcher, true, 2, 200},
                                         StepCase{Actor::Monitor, false, 2, 200},
                                         StepCase{Actor::Monitor, true, 2, 200},
                                         StepCase{Actor::Worker, false, 2, 120},
                                         StepCase{Actor::Worker, true, 2, 120}),
                         stepName);

TEST_P(ShutDownAtStepTest, a_shut_down_ends_and_leaves_nothing_behind) {
  const unsigned int stride = rounds(1) > 1 ? 1 : 9;
  PipelineSteps steps;
  steps.setWaits(std::chrono::seconds(30));
  ControllerHarness harness;
  Scripted::Script& alpha = harness.addPackage("ALPHA", PackageConfig(1));
  alpha.setDevices(2);
  if (GetParam().isParallel) {
    harness.control().parallel();
  }
  for (unsigned int number = 1; number <= GetParam().most; number += stride) {
    harness.start();
    std::unique_ptr<Interjection> client;
    std::atomic<bool> isDown{false};
    const auto shutDown = [&] {
      harness.shutDown();
      isDown = true;
    };
    steps.atLock(GetParam().actor, number,
                 [&] { client = std::make_unique<Interjection>(shutDown); });
    for (int i = 0; i < 4; ++i) {
      DiagCtrl::VectorTestReqId* ids = nullptr;
      Diag::DiagnosticSettings settings = ControllerHarness::settings(GetParam().passes);
      harness->queueTest(1, settings, ids);  // refused once the controller is down
      delete ids;
    }
    const bool reached = eventually([&] { return steps.isReached(); }, std::chrono::seconds(1));
    steps.disarm();
    if (!reached) {
      shutDown();
    }
    ASSERT_TRUE(eventually([&] { return isDown.load(); })) << "step " << number;
    client.reset();
    EXPECT_EQ(alpha.living(), Scripted::Living{}) << "step " << number;
    EXPECT_EQ(steps.livingThreads(), 0) << "step " << number;
  }
}

// ---- Abort by chance
// -------------------------------------------------------------------------------

TEST_P(InterleavingInBothModes, an_abort_soon_after_queueing_ends_the_request_whenever_it_comes) {
  start();
  forbidTimeOuts();
  ASSERT_TRUE(harness.awaitEnd(queueOn(2)));
  std::mt19937 random(11);
  const int number = rounds(500);
  for (int round = 0; round < number; ++round) {
    const unsigned long id = queueOn(1);
    const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 500);
    while (std::chrono::steady_clock::now() < until) {
    }
    ASSERT_EQ(harness->abortTest(id), Controller::SUCCESS);
    EXPECT_THAT(harness.requestIds(), IsEmpty());
    ASSERT_THAT(harness.statusOf(id), AnyOf(Request::ABORTED, Request::COMPLETED));
  }
  expectIdle();
}

// ---- Queue entries that are left over
// ----------------------------------------------------------------

TEST_P(InterleavingInBothModes, a_second_entry_of_a_running_request_falls_out_silently) {
  alpha.holdRuns();
  start();
  const unsigned long id = queueOn(1);
  ASSERT_TRUE(alpha.awaitRunning(1));
  managers().pushBackTestRequestQueue(DiagCtrl::TestRequestManager::PROCESS, &request(id));
  managers().pushBackTestRequestQueue(DiagCtrl::TestRequestManager::WAIT, &request(id));
  managers().getCondVarTRWaitQueue().signal();
  EXPECT_EQ(harness.statusOf(id), Request::RUNNING) << "a push does not touch a request in flight";
  if (GetParam()) {
    EXPECT_TRUE(eventually([&] { return entriesAtRest(id) == 0; }));
  }
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(id));
  expectIdle();
  EXPECT_EQ(alpha.count(Call::RunEnter), 1U);
  EXPECT_EQ(managers().countQueuedEntries(&request(id)), 0);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("DROP_REQUEST_ON_COMPLETION I 1"));
}

TEST_F(InterleavingTest, a_second_entry_falls_out_silently_until_the_pass_thread_was_reclaimed) {
  alpha.setHabits({.neverCompletes = true});
  parallel();
  const unsigned long id = queueOn(1);
  ASSERT_TRUE(harness.awaitStatus(id, Request::REQUEUED));
  ASSERT_TRUE(eventually([&] { return steps.livingThreads() == 2; }))
      << "its pass thread has ended";
  managers().pushBackTestRequestQueue(DiagCtrl::TestRequestManager::WAIT, &request(id));
  managers().getCondVarTRWaitQueue().signal();
  EXPECT_EQ(harness.statusOf(id), Request::REQUEUED);
  EXPECT_TRUE(request(id).getMonitored());
  EXPECT_TRUE(eventually([&] { return entriesAtRest(id) == 0; }));
  EXPECT_EQ(alpha.count(Call::RunEnter), 1U);
  harness->abortTest(id);
  expectIdle();
}

TEST_P(InterleavingInBothModes, an_entry_of_a_finished_request_falls_out_silently) {
  start();
  const unsigned long id = queueOn(1);
  ASSERT_TRUE(harness.awaitEnd(id));
  ASSERT_TRUE(harness.awaitIdle());
  request(id).setMonitored(false);
  managers().pushBackTestRequestQueue(DiagCtrl::TestRequestManager::WAIT, &request(id));
  managers().getCondVarTRWaitQueue().signal();
  EXPECT_TRUE(eventually([&] { return managers().countQueuedEntries(&request(id)) == 0; }));
  ASSERT_TRUE(harness.awaitEnd(queueOn(1)));
  EXPECT_EQ(alpha.count(Call::RunEnter), 2U);
  EXPECT_THAT(harness.ctrlEventsOf(id), ElementsAre("DROP_REQUEST_ON_COMPLETION I"));
}

TEST_P(InterleavingInBothModes,
       each_entry_of_an_aborted_request_that_is_not_monitored_is_reported) {
  alpha.holdRunsOn("a1");
  start();
  queueOn(1);
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long id = queueOn(1);
  managers().pushBackTestRequestQueue(DiagCtrl::TestRequestManager::PROCESS, &request(id));
  harness->abortTest(id);
  alpha.releaseRuns();
  expectIdle();
  EXPECT_THAT(harness.ctrlEventsOf(id),
              testing::UnorderedElementsAre("TEST_REQUEST_ABORTED I", "TEST_REQUEST_ABORTED W",
                                            "TEST_REQUEST_ABORTED W"));
}

// The dispatcher is stopped in front of each of its locks in turn while it refuses a request.
TEST_F(InterleavingTest, an_abort_at_any_step_of_a_refusal_is_reported_by_client_and_dispatcher) {
  alpha.holdRunsOn("a1");
  parallel();
  steps.setWaits(std::chrono::milliseconds(2));
  queueOn(1);
  ASSERT_TRUE(alpha.awaitRunning(1));
  for (unsigned int number = 1; number <= 50; ++number) {
    const unsigned long id = queueOn(1);
    const unsigned long waits = steps.waits(Actor::Dispatcher);
    ASSERT_TRUE(eventually([&] { return steps.waits(Actor::Dispatcher) > waits + 3; }));
    std::unique_ptr<Interjection> client;
    steps.atLock(Actor::Dispatcher, number,
                 [&] { client = std::make_unique<Interjection>([&] { harness->abortTest(id); }); });
    ASSERT_TRUE(eventually([&] { return steps.isReached(); }));
    steps.disarm();
    client.reset();
    EXPECT_TRUE(eventually([&] { return harness.ctrlEventsOf(id).size() >= 2; }));
    EXPECT_THAT(harness.ctrlEventsOf(id),
                testing::UnorderedElementsAre("TEST_REQUEST_ABORTED I", "TEST_REQUEST_ABORTED W"))
        << "step " << number;
    EXPECT_TRUE(eventually([&] { return request(id).getToBeDroppedFlag(); })) << "step " << number;
  }
  alpha.releaseRuns();
  expectIdle();
  EXPECT_EQ(alpha.count(Call::RunEnter), 1U);
}

// The monitor is stopped while a request runs, and finds its library gone afterwards.
TEST_P(InterleavingInBothModes, an_entry_without_its_library_is_dropped_and_nobody_waits_for_it) {
  start();
  forbidTimeOuts();
  ASSERT_TRUE(harness.awaitEnd(queueOn(2)));
  // On its way the monitor would stand with locks in its hands that a client wants.
  ASSERT_TRUE(comesToRest(Actor::Monitor));
  harness.forget();
  Barrier monitorStands;
  steps.atLock(Actor::Monitor, 1, [&] { monitorStands.pass(); });
  wakeMonitor();
  ASSERT_TRUE(monitorStands.awaitArrival());
  const unsigned long id = queueOn(1);
  ASSERT_TRUE(alpha.awaitCalls(Call::RunReturn, 2));
  ASSERT_TRUE(eventually([&] { return managers().getTestReqExecQueueSize() == 1; }));
  ASSERT_TRUE(eventually([&] { return isTagFree("a/1"); }));
  request(id).releaseIDiagnostic(packageInterface(), -1);
  monitorStands.open();
  const unsigned long next = queueOn(1);
  ASSERT_TRUE(harness.awaitEnd(next));
  EXPECT_THAT(harness.ctrlEventsOf(id), IsEmpty());
  expectIdle();
}

TEST_F(InterleavingTest, nobody_waits_for_a_polled_request_that_has_lost_its_library) {
  alpha.setHabits({.neverCompletes = true});
  serial();
  forbidTimeOuts();
  const unsigned long id = queueOn(1);
  ASSERT_TRUE(harness.awaitStatus(id, Request::REQUEUED));
  ASSERT_TRUE(eventually([&] { return steps.livingThreads() == 2; }))
      << "its pass thread has ended";
  awaitWatched(id);
  alpha.setHabits({});
  const unsigned long next = queueOn(2);
  request(id).releaseIDiagnostic(packageInterface(), -1);
  wakeMonitor();
  EXPECT_TRUE(harness.awaitEnd(next));
  EXPECT_THAT(harness.ctrlEventsOf(id), IsEmpty());
}

// ---- The object and its users
// ------------------------------------------------------------------------

TEST_F(InterleavingTest, an_abort_while_the_monitor_is_inside_leaves_the_object_to_the_monitor) {
  alpha.holdRunsOn("a1");
  parallel();
  const unsigned long looping = queueOn(1, settings(2));
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long other = queueOn(1);
  Barrier otherRuns;
  Barrier inside;
  alpha.on(Call::RunEnter, [&](const CallRecord& run) {
    if (run.requestId == other) {
      otherRuns.pass();
    }
  });
  alpha.releaseRuns();
  ASSERT_TRUE(otherRuns.awaitArrival());
  ASSERT_TRUE(eventually([&] { return !request(looping).getMonitored(); }));
  std::atomic<std::thread::id> monitorThread{};
  alpha.on(Call::GetStatus, [&](const CallRecord& poll) {
    if (poll.requestId == looping) {
      monitorThread = poll.thread;
      inside.pass();
    }
  });
  ASSERT_TRUE(inside.awaitArrival());
  EXPECT_EQ(harness->abortTest(looping), Controller::SUCCESS) << "it does not wait for the monitor";
  EXPECT_EQ(alpha.living().diagnostics, 2);
  EXPECT_EQ(request(looping).getIDiagnosticsPtr(), nullptr);
  inside.open();
  EXPECT_TRUE(eventually([&] { return alpha.living().diagnostics == 1; }));
  EXPECT_EQ(alpha.calls(Call::DestroyDiagnostics).back().thread, monitorThread.load());
  otherRuns.open();
  expectIdle();
}

// Messages of a package may have its own code: they are copied and gone before the library is.
TEST_F(InterleavingTest, a_library_stays_until_the_messages_that_it_handed_over_were_copied) {
  alpha.setHabits({.losesEvents = true});
  alpha.everyPass({.lastEvents = {{.code = 5}}});
  parallel();
  forbidTimeOuts();  // behind one the monitor may stand in its idle check, and nothing is started
  ASSERT_TRUE(harness.awaitEnd(queueOn(2)));
  for (const Call handOver : {Call::GetEvents, Call::GetResults}) {
    ASSERT_TRUE(comesToRest(Actor::Monitor));
    Barrier monitorStands;
    steps.atLock(Actor::Monitor, 1, [&] { monitorStands.pass(); });
    wakeMonitor();
    ASSERT_TRUE(monitorStands.awaitArrival());
    const unsigned long passes = alpha.count(Call::RunReturn);
    const unsigned long id = queueOn(1);
    ASSERT_TRUE(alpha.awaitCalls(Call::RunReturn, passes + 1));
    ASSERT_TRUE(eventually([&] { return managers().getTestReqExecQueueSize() == 1; }));
    ASSERT_TRUE(eventually([&] { return request(id).getToBeDroppedFlag(); }));
    harness.forget();
    alpha.on(handOver,
             [&](const CallRecord&) { request(id).releaseIDiagnostic(packageInterface(), -1); });
    Lines delivered;
    alpha.on(Call::DestroyDiagnostics, [&](const CallRecord&) {
      delivered = handOver == Call::GetEvents ? harness.events() : harness.results();
    });
    monitorStands.open();
    ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }));
    EXPECT_THAT(delivered, SizeIs(1));
    alpha.on(handOver, nullptr).on(Call::DestroyDiagnostics, nullptr);
  }
}

TEST_F(InterleavingTest, a_verdict_while_a_client_is_inside_leaves_the_object_to_the_client) {
  alpha.holdRuns();
  parallel();
  const unsigned long id = queueOn(1);
  ASSERT_TRUE(alpha.awaitRunning(1));
  Barrier inside;
  std::atomic<std::thread::id> clientThread{};
  alpha.on(Call::GetStatus, [&](const CallRecord& call) {
    if (call.thread == clientThread.load()) {
      inside.pass();
    }
  });
  const Companion client([&] {
    clientThread = std::this_thread::get_id();
    unsigned int progress = 0;
    EXPECT_EQ(harness->getDiagnosticProgress(id, progress), Controller::SUCCESS);
  });
  ASSERT_TRUE(inside.awaitArrival());
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(id)) << "the verdict does not wait for the client";
  ASSERT_TRUE(eventually([&] { return request(id).ifIDiagnosticsDeleted(); }));
  EXPECT_EQ(alpha.living().diagnostics, 1);
  inside.open();
  EXPECT_TRUE(client.ends());
  EXPECT_EQ(alpha.living().diagnostics, 0);
  EXPECT_EQ(alpha.calls(Call::DestroyDiagnostics).back().thread, clientThread.load());
}

TEST_P(InterleavingInBothModes, a_client_may_ask_for_progress_at_full_speed_while_requests_end) {
  start();
  std::atomic<bool> isOver{false};
  std::atomic<unsigned long> newest{0};
  std::thread client([&] {
    while (!isOver) {
      unsigned int progress = 0;
      for (const unsigned long id : {newest.load(), newest.load() + 1}) {
        harness->getDiagnosticProgress(id, progress);
        harness->suspendTest(id);
        harness->resumeTest(id);
      }
    }
  });
  const int number = rounds(200);
  for (int round = 0; round < number; ++round) {
    newest = queueOn(1 + static_cast<unsigned int>(round) % 2);
    ASSERT_TRUE(harness.awaitEnd(newest));
  }
  isOver = true;
  client.join();
  EXPECT_EQ(alpha.count(Call::RunEnter), static_cast<unsigned long>(number));
  harness.forget();
  expectIdle();
}

// ---- Pass threads
// -------------------------------------------------------------------------------------------

TEST_P(InterleavingInBothModes, nobody_reclaims_a_pass_thread_before_it_was_started) {
  start();
  std::unique_ptr<Companion> reclaimer;
  bool waits = false;
  steps.beforeWorkerIsCreated([&] {
    reclaimer = std::make_unique<Companion>([&] { dispatcher().removeExecThreadObject(1); });
    waits = reclaimer->blocks();
  });
  const unsigned long id = queueOn(1);
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_TRUE(waits) << "the map is free while the pass thread is made";
  EXPECT_TRUE(reclaimer->ends());
  steps.beforeWorkerIsCreated(nullptr);
  expectIdle();
}

TEST_F(InterleavingTest, a_stopped_dispatcher_starts_nothing_any_more) {
  alpha.holdRuns();
  serial();
  queueOn(1);
  queueOn(2);
  ASSERT_TRUE(alpha.awaitRunning(1));
  dispatcher().stop();
  EXPECT_TRUE(eventually([&] { return steps.livingThreads() == 2; }))
      << "the wait for the verdict ends: the monitor and the pass thread are left";
  EXPECT_EQ(alpha.count(Call::RunEnter), 1U);
}

// ---- Careful and careless packages
// -------------------------------------------------------------------

TEST_P(InterleavingInBothModes,
       three_passes_of_a_careful_package_are_three_runs_and_three_results) {
  alpha.everyPass({.events = {{.code = 1}}, .lastEvents = {{.code = 2}}});
  start();
  steps.setWaits(std::chrono::milliseconds(1));
  const int number = rounds(60);
  for (int round = 0; round < number; ++round) {
    queueOn(1, settings(3));
    ASSERT_TRUE(harness.awaitEnd(queueOn(2, settings(3))));
  }
  expectIdle();
  EXPECT_EQ(alpha.count(Call::RunEnter), static_cast<unsigned long>(6 * number));
  EXPECT_THAT(harness.results(), SizeIs(6 * number));
  EXPECT_THAT(harness.events(), SizeIs(12 * number));
}

TEST_P(InterleavingInBothModes, a_package_that_keeps_reporting_completion_harms_nobody_else) {
  alpha.setHabits({.keepsReportingCompleted = true, .completesEarly = true, .losesEvents = true});
  Script& beta = harness.addPackage("BETA");
  start();
  steps.setWaits(std::chrono::milliseconds(1));
  const int number = rounds(40);
  for (int round = 0; round < number; ++round) {
    queueOn(1, settings(3));
    queueOn(2, settings(3));
    ASSERT_TRUE(harness.awaitEnd(harness.queue("BETA", 1, {1}, settings(2))));
  }
  expectIdle();
  EXPECT_THAT(harness.requestIds(), IsEmpty());
  EXPECT_EQ(beta.count(Call::RunEnter), static_cast<unsigned long>(2 * number));
}

TEST_P(InterleavingInBothModes,
       a_library_that_cannot_be_loaded_costs_the_request_and_nothing_else) {
  start();
  std::vector<int> tests{1};
  Settings wanted = settings();
  unsigned long id = 0;
  steps.refuseLoads(1);
  EXPECT_EQ(harness->queueTest(1, 1, tests, wanted, id), Controller::LOAD_LIBRARY_FAILED);
  EXPECT_EQ(id, 0U);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("LOAD_LIBRARY_FAILED E 0"));
  EXPECT_TRUE(harness.awaitEnd(queueOn(1)));
  expectIdle();
}

// ---- Everybody at once
// -----------------------------------------------------------------------------------

TEST_P(InterleavingInBothModes, two_clients_may_abort_everything_again_and_again) {
  start();
  const int number = rounds(1000);
  std::atomic<int> refused{0};
  ASSERT_TRUE(harness.awaitEnd(queueOn(1)));
  forbidTimeOuts();
  const auto abortAgainAndAgain = [&] {
    for (int round = 0; round < number; ++round) {
      refused += harness->abortAllTest() == Controller::ABORT_ALL_ALREADY_IN_PROCESS ? 1 : 0;
    }
  };
  {
    alpha.holdRuns();
    queueOn(1);
    const Companion first(abortAgainAndAgain);
    const Companion second(abortAgainAndAgain);
  }
  EXPECT_EQ(refused, 0);
  EXPECT_EQ(harness.shutDown(), Controller::SUCCESS);
  EXPECT_EQ(alpha.living(), Scripted::Living{});
}

}  // namespace

}  // namespace TarvexDiags::TestSupport
