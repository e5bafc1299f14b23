// What the monitor brings back from running requests, its verdicts on their passes, and the way
// back to IDLE.

#include <atomic>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "DiagCtrl/CallBackObject.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "tests/controller/pipeline/PipelineFixture.h"
#include "tests/support/TraceFile.h"

namespace TarvexDiags::TestSupport {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class MonitorTest : public PipelineTest {
 protected:
  int passCountOf(unsigned long id) { return request(id).getDiagnosticSettings()->getPassCount(); }
};

class MonitorInBothModes : public MonitorTest, public testing::WithParamInterface<bool> {
 protected:
  void start() { startIn(GetParam()); }
};

std::string modeName(const testing::TestParamInfo<bool>& info) {
  return info.param ? "Parallel" : "Serial";
}
INSTANTIATE_TEST_SUITE_P(Modes, MonitorInBothModes, testing::Bool(), modeName);

// ---- Passes ------------------------------------------------------------------------------------

TEST_P(MonitorInBothModes, a_request_of_three_passes_runs_three_times_on_signals_alone) {
  start();
  forbidTimeOuts();
  const unsigned long before = alpha.count(Call::GetDiagnostics);
  const unsigned long id = harness.queue("ALPHA", 1, {1}, settings(3));
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_EQ(alpha.count(Call::RunEnter), 3U);
  EXPECT_THAT(harness.results(), ElementsAre("PASSED 1", "PASSED 1", "PASSED 1"));
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("DROP_REQUEST_ON_COMPLETION I 1"));
  EXPECT_EQ(passCountOf(id), 3);
  EXPECT_EQ(alpha.count(Call::GetDiagnostics), before + 1) << "one object for all passes";
  allowTimeOuts();
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_P(MonitorInBothModes, a_first_pass_count_that_equals_the_requested_one_is_the_last_pass) {
  start();
  Settings wanted = settings(5);
  wanted.setPassCount(5);
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1}, wanted)));
  EXPECT_EQ(alpha.count(Call::RunEnter), 1U);
}

TEST_F(MonitorTest, passes_are_counted_from_the_first_number) {
  serial();
  Settings wanted = settings(5);
  wanted.setPassCount(3);
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1}, wanted)));
  EXPECT_EQ(alpha.count(Call::RunEnter), 3U);
}

TEST_F(MonitorTest, a_pass_count_above_the_requested_one_or_a_negative_wish_is_one_pass) {
  serial();
  Settings above = settings(2);
  above.setPassCount(7);
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1}, above)));
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1}, settings(-3))));
  EXPECT_EQ(alpha.count(Call::RunEnter), 2U);
}

TEST_F(MonitorTest, a_run_time_that_is_used_up_ends_the_request_as_if_it_were_complete) {
  alpha.holdRuns();
  serial();
  Settings wanted = settings(1000);
  wanted.setRunTime(60);
  const unsigned long id = harness.queue("ALPHA", 1, {1}, wanted);
  ASSERT_TRUE(alpha.awaitRunning(1));
  request(id).setTestRequestStartTime(static_cast<unsigned long>(time(nullptr)) - 60);
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_EQ(alpha.count(Call::RunEnter), 1U);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("DROP_REQUEST_ON_COMPLETION I 1"));
  EXPECT_EQ(harness.statusOf(id), Request::COMPLETED);
}

TEST_F(MonitorTest, the_run_time_counts_the_wait_in_the_queue) {
  alpha.holdRunsOn("a1");
  serial();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  Settings wanted = settings(1000);
  wanted.setRunTime(1);
  const unsigned long id = harness.queue("ALPHA", 2, {1}, wanted);
  const unsigned long queued = request(id).getTestRequestStartTime();
  ASSERT_TRUE(eventually([&] { return static_cast<unsigned long>(time(nullptr)) > queued; }));
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_EQ(alpha.count(Call::RunEnter), 2U) << "one pass each";
  EXPECT_EQ(request(id).getTestRequestStartTime(), queued);
}

TEST_F(MonitorTest, a_request_sent_back_waits_unmonitored_behind_the_others) {
  parallel();
  alpha.holdRunsOn("a1");
  const unsigned long looping = harness.queue("ALPHA", 1, {1}, settings(2));
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long other = harness.queue("ALPHA", 1, {2});
  Barrier second;
  alpha.on(Call::RunEnter, [&](const CallRecord& run) {
    if (run.requestId == other) {
      second.pass();
    }
  });
  alpha.releaseRuns();
  ASSERT_TRUE(second.awaitArrival());
  ASSERT_TRUE(eventually([&] { return passCountOf(looping) == 2; }));
  EXPECT_TRUE(eventually([&] { return !request(looping).getMonitored(); }));
  EXPECT_EQ(harness.statusOf(looping), Request::WAIT);
  second.open();
  EXPECT_TRUE(harness.awaitEnd(looping));
  EXPECT_EQ(alpha.count(Call::RunEnter), 3U);
}

// ---- Stress ------------------------------------------------------------------------------------

TEST_P(MonitorInBothModes, a_stress_request_is_dropped_when_the_package_says_so) {
  alpha.setReportedPassCount(3);
  start();
  const unsigned long id = harness.queue("ALPHA", 1, {1}, stressSettings(100));
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_EQ(alpha.count(Call::RunEnter), 1U);
  EXPECT_EQ(passCountOf(id), 3);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("DROP_REQUEST_ON_COMPLETION I 1"));
  EXPECT_TRUE(alpha.calls(Call::RunEnter).front().stress);
}

TEST_F(MonitorTest, a_stress_request_is_not_sent_back_below_its_counts) {
  alpha.setReportedPassCount(1);
  serial();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1}, stressSettings(100))));
  EXPECT_EQ(alpha.count(Call::RunEnter), 1U);
}

TEST_F(MonitorTest, the_pass_count_of_a_stress_request_follows_the_package_on_every_poll) {
  alpha.holdRuns();
  alpha.setReportedPassCount(17);
  serial();
  const unsigned long id = harness.queue("ALPHA", 1, {1}, stressSettings(100));
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_TRUE(eventually([&] { return passCountOf(id) == 17; }));
  alpha.setReportedPassCount(18);
  EXPECT_TRUE(eventually([&] { return passCountOf(id) == 18; }));
  Request::TestRequestStatus status = Request::WAIT;
  int current = 0;
  int total = 0;
  bool stress = false;
  EXPECT_EQ(harness->getRequestStatus(static_cast<long>(id), status, current, total, stress),
            Controller::SUCCESS);
  EXPECT_EQ(current, 18);
  EXPECT_EQ(total, 100);
  EXPECT_TRUE(stress);
}

TEST_F(MonitorTest, the_pass_count_of_an_ordinary_request_does_not_follow_the_package) {
  alpha.holdRuns();
  alpha.setReportedPassCount(17);
  serial();
  const unsigned long id = harness.queue("ALPHA", 1, {1}, settings(2));
  ASSERT_TRUE(alpha.awaitRunning(1));
  ASSERT_TRUE(alpha.awaitCalls(Call::GetStatus, 3));
  EXPECT_EQ(passCountOf(id), 1);
}

TEST_F(MonitorTest, results_are_asked_for_after_the_end_only_but_on_every_poll_in_stress_mode) {
  alpha.holdRuns();
  parallel();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  ASSERT_TRUE(alpha.awaitCalls(Call::GetStatus, 5));
  EXPECT_EQ(alpha.count(Call::GetResults), 0U);
  harness.queue("ALPHA", 2, {1}, stressSettings(2));
  ASSERT_TRUE(alpha.awaitRunning(2));
  EXPECT_TRUE(alpha.awaitCalls(Call::GetResults, 5));
}

// ---- Events and results ------------------------------------------------------------------------

TEST_F(MonitorTest, events_arrive_while_the_pass_is_inside) {
  alpha.holdRuns();
  serial();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_EQ(alpha.emit({.code = 5, .parameters = {"left", "hot"}}), 1);
  ASSERT_TRUE(harness.awaitEvents(1));
  EXPECT_THAT(harness.events(), ElementsAre("5 I 1 [left, hot]"));
}

TEST_P(MonitorInBothModes, all_events_of_all_passes_arrive_in_order) {
  alpha.everyPass({.events = {{.code = 1}, {.code = 2}}, .lastEvents = {{.code = 3}, {.code = 4}}});
  start();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1}, settings(2))));
  EXPECT_THAT(harness.events(),
              ElementsAre("1 I 1", "2 I 1", "3 I 1", "4 I 1", "1 I 1", "2 I 1", "3 I 1", "4 I 1"));
}

TEST_F(MonitorTest, each_registration_gets_its_own_copy_once) {
  alpha.everyPass({.events = {{.code = 1}}});
  serial();
  DiagCtrl::CallBackObject second;
  unsigned long events = 0;
  unsigned long results = 0;
  harness->registerForDiagEvents(&second, events);
  harness->registerForDiagResults(&second, results);
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1}, settings(2))));
  EXPECT_THAT(harness.events(), SizeIs(2));
  EXPECT_THAT(harness.results(), SizeIs(2));
  DiagCtrl::EventVector* gotEvents = nullptr;
  DiagCtrl::ResultVector* gotResults = nullptr;
  harness->getDiagnosticEvents(static_cast<long>(events), gotEvents);
  harness->getDiagnosticResults(static_cast<long>(results), gotResults);
  EXPECT_THAT(*gotEvents, SizeIs(2));
  EXPECT_THAT(*gotResults, SizeIs(2));
  for (auto* event : *gotEvents) {
    delete event;
  }
  for (auto* result : *gotResults) {
    delete result;
  }
  delete gotEvents;
  delete gotResults;
  harness.shutDown();  // the object was registered
}

TEST_F(MonitorTest, null_and_empty_vectors_mean_nothing) {
  alpha.setHabits({.givesEmptyVectors = true});
  Script& beta = harness.addPackage("BETA");
  beta.setHabits({.givesNullEvents = true, .givesNullResults = true});
  beta.everyPass({.events = {{.code = 1}}});
  serial();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1})));
  ASSERT_TRUE(harness.awaitEnd(harness.queue("BETA", 1, {1})));
  EXPECT_THAT(harness.events(), IsEmpty());
  EXPECT_THAT(harness.results(), ElementsAre("PASSED 1"));
}

TEST_F(MonitorTest, a_client_is_woken_for_events_results_and_the_verdict) {
  alpha.holdRuns();
  serial();
  const auto wakesFor = [&](const auto& action) {
    std::atomic<bool> woken{false};
    Companion client([&] {
      harness.callBack().wait();
      woken = true;
    });
    EXPECT_TRUE(client.blocks());
    action();
    const bool came = eventually([&] { return woken.load(); });
    harness.callBack().notify();
    return came;
  };
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_TRUE(wakesFor([&] { alpha.emit({.code = 1}); }));
  EXPECT_TRUE(wakesFor([&] { alpha.releaseRuns(); }));
}

TEST_F(MonitorTest, progress_is_traced_at_every_poll) {
  harness.trace();
  alpha.setProgress(42);
  alpha.holdRuns();
  serial();
  forbidTimeOuts();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  awaitWatched(id);
  pollTimes(2);
  const TraceFile trace(harness.directory().path());
  EXPECT_TRUE(trace.contains("Scripted package:1=42%"));
  EXPECT_EQ(trace.count("Scripted package:1="), alpha.count(Call::GetStatus));
}

// ---- Verdicts on aborted and halted requests
// -----------------------------------------------------

/// An aborted request whose package reports completion while its pass is still unwinding.
class UnwindingTest : public MonitorTest {
 protected:
  void abortOne() {
    alpha.setHabits({.completesOnAbort = true});
    alpha.holdRuns();
    alpha.on(Call::RunEnd, [this](const CallRecord&) { unwinding.pass(); });
    m_id = harness.queue("ALPHA", 1, {1});
    ASSERT_TRUE(alpha.awaitRunning(1));
    awaitWatched(m_id);
    harness->abortTest(m_id);
    ASSERT_TRUE(unwinding.awaitArrival());
  }
  unsigned long id() const { return m_id; }

  Barrier unwinding;

 private:
  unsigned long m_id = 0;
};

class UnwindingInBothModes : public UnwindingTest, public testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(Modes, UnwindingInBothModes, testing::Bool(), modeName);

TEST_P(UnwindingInBothModes, an_aborted_request_is_polled_until_its_pass_thread_has_returned) {
  startIn(GetParam());
  abortOne();
  pollTimes(3);
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty()) << "its pass thread is still inside";
  EXPECT_EQ(alpha.living().diagnostics, 1);
  unwinding.open();
  ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }));
  EXPECT_THAT(harness.ctrlEventsOf(id()),
              ElementsAre("TEST_REQUEST_ABORTED W", "TEST_REQUEST_ABORTED W"));
  EXPECT_EQ(harness.statusOf(id()), Request::ABORTED);
}

TEST_F(UnwindingTest,
       a_request_that_waits_for_its_pass_thread_is_polled_twice_in_a_round_and_no_more) {
  serial();
  forbidTimeOuts();
  abortOne();
  pollTimes(6);  // each round would double its entries
  const unsigned long polls = alpha.count(Call::GetStatus);
  const unsigned long waits = steps.waits(Actor::Monitor);
  pollTimes(5);
  const unsigned long newPolls = alpha.count(Call::GetStatus) - polls;
  EXPECT_GE(newPolls, 2 * 4U) << "a round may still be under way";
  EXPECT_LE(newPolls, 2 * (steps.waits(Actor::Monitor) - waits + 1));
  unwinding.open();
  allowTimeOuts();
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_P(MonitorInBothModes,
       an_aborted_request_whose_package_never_completes_is_finished_all_the_same) {
  alpha.setHabits({.neverCompletes = true});
  start();
  forbidTimeOuts();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(harness.awaitStatus(id, Request::REQUEUED));
  harness->abortTest(id);
  wakeMonitor();
  ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }));
  EXPECT_EQ(harness.statusOf(id), Request::ABORTED);
  EXPECT_THAT(harness.ctrlEventsOf(id), ElementsAre("TEST_REQUEST_ABORTED W"));
  alpha.setHabits({});
  EXPECT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1}))) << "nobody waits for the first";
}

TEST_F(MonitorTest, a_halted_request_whose_package_never_completes_is_finished_all_the_same) {
  alpha.setHabits({.neverCompletes = true});
  alpha.everyPass(ending(Result::FAILED));
  serial();
  forbidTimeOuts();
  std::vector<int> tests{1};
  Settings wanted = settings(3);
  unsigned long id = 0;
  ASSERT_EQ(harness->queueTest(1, 1, tests, wanted, true, id), Controller::SUCCESS);
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_EQ(harness.statusOf(id), Request::COMPLETED);
  EXPECT_EQ(alpha.count(Call::RunEnter), 1U);
  EXPECT_THAT(harness.ctrlEventsOf(id),
              ElementsAre("ERROR_RECVD_AND_HALT_ON_ERROR E", "DROP_REQUEST_ON_COMPLETION I"));
}

// The monitor is stopped just after it has fetched the events of a pass that is still inside. The
// pass then ends, so that nothing more is to come but the events that it queues at its end.
TEST_F(MonitorTest, the_last_events_of_a_request_that_never_completes_are_drained_before_its_end) {
  alpha.setHabits({.neverCompletes = true, .ignoresAbort = true});
  alpha.everyPass({.lastEvents = {{.code = 1}, {.code = 2}}});
  alpha.holdRuns();
  serial();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  Barrier behindTheEvents;
  alpha.on(Call::GetEvents, [&](const CallRecord&) {
    steps.atLock(Actor::Monitor, 1, [&] { behindTheEvents.pass(); });
  });
  ASSERT_TRUE(behindTheEvents.awaitArrival());
  alpha.on(Call::GetEvents, nullptr);
  harness->abortTest(id);
  alpha.releaseRuns();
  ASSERT_TRUE(eventually([&] { return request(id).getToBeDroppedFlag(); }));
  behindTheEvents.open();
  ASSERT_TRUE(eventually([&] { return alpha.living().diagnostics == 0; }));
  EXPECT_THAT(harness.events(), ElementsAre("1 I 1", "2 I 1"));
}

// ---- What a package throws at the monitor
// --------------------------------------------------------

/// A package that uses the controller's own lock exception, which each step of a poll bears.
class LockFailureTest : public MonitorTest {
 protected:
  /// One request from queue to end, with a call of its package that throws so many times.
  void runWhileFailing(Call call, int times) {
    harness.trace();
    serial();
    alpha.on(call, [this, times](const CallRecord&) {
      if (++m_thrown <= times) {
        throw DiagCtrl::DiagCtrlMutexException(DiagCtrl::DiagCtrlBaseException::LockNotAcquired,
                                               __LINE__, __FILE__, "ALPHA");
      }
    });
    ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1})));
  }
  std::size_t traced() const {
    return TraceFile(harness.directory().path())
        .count("MonitorThread::getEventsResults - Mutex Exception : ");
  }

 private:
  std::atomic<int> m_thrown{0};
};

TEST_F(LockFailureTest, while_events_are_fetched_costs_the_events_of_that_poll) {
  runWhileFailing(Call::GetEvents, 1000);
  EXPECT_THAT(harness.results(), ElementsAre("PASSED 1"));
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("DROP_REQUEST_ON_COMPLETION I 1"));
  EXPECT_GE(traced(), 1U);
}

TEST_F(LockFailureTest, while_the_status_is_read_leaves_the_request_to_the_next_poll) {
  runWhileFailing(Call::GetStatus, 3);
  EXPECT_THAT(harness.results(), ElementsAre("PASSED 1"));
  EXPECT_EQ(traced(), 3U);
}

TEST_F(LockFailureTest, while_results_are_fetched_costs_the_results_without_a_trace) {
  runWhileFailing(Call::GetResults, 1);
  EXPECT_THAT(harness.results(), IsEmpty());
  EXPECT_EQ(harness.statusOf(1), Request::COMPLETED);
  EXPECT_EQ(traced(), 0U);
}

TEST_F(MonitorTest, a_request_released_by_an_abort_between_two_passes_falls_out_without_a_verdict) {
  alpha.holdRunsOn("a1");
  parallel();
  const unsigned long looping = harness.queue("ALPHA", 1, {1}, settings(2));
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long other = harness.queue("ALPHA", 1, {2});
  Barrier second;
  alpha.on(Call::RunEnter, [&](const CallRecord& run) {
    if (run.requestId == other) {
      second.pass();
    }
  });
  alpha.releaseRuns();
  ASSERT_TRUE(second.awaitArrival());
  ASSERT_TRUE(eventually([&] { return !request(looping).getMonitored(); }));
  // A poll that sees the mark of the abort before the release would still give a verdict. The
  // monitor may have to wake the dispatcher yet, and the dispatcher the monitor.
  forbidTimeOuts();
  for (const Actor actor : {Actor::Monitor, Actor::Dispatcher, Actor::Monitor}) {
    ASSERT_TRUE(comesToRest(actor));
  }
  harness->abortTest(looping);
  allowTimeOuts();
  EXPECT_THAT(harness.ctrlEventsOf(looping), testing::Contains("TEST_REQUEST_ABORTED I"));
  EXPECT_EQ(alpha.living().diagnostics, 1);
  second.open();
  ASSERT_TRUE(harness.awaitEnd(other));
  ASSERT_TRUE(harness.awaitIdle());
  EXPECT_THAT(harness.ctrlEventsOf(looping),
              testing::UnorderedElementsAre("TEST_REQUEST_ABORTED I", "TEST_REQUEST_ABORTED W"))
      << "the client's and the dispatcher's";
}

// ---- The way back to IDLE
// --------------------------------------------------------------------------

TEST_F(MonitorTest, idle_comes_with_a_time_out_and_not_with_a_signal) {
  serial();
  forbidTimeOuts();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1})));
  pollTimes(20);
  EXPECT_EQ(harness.phase(), Phases::ACTIVE);
  allowTimeOuts();
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_F(MonitorTest, the_monitor_waits_for_two_seconds_and_stamps_itself) {
  serial();
  const unsigned long before = steps.waits(Actor::Monitor);
  EXPECT_TRUE(eventually([&] {
    const long length = steps.latestWait(Actor::Monitor);
    return steps.waits(Actor::Monitor) > before + 3 && length >= 1 && length <= 2;
  }));
  const auto now = static_cast<unsigned long>(time(nullptr));
  EXPECT_TRUE(eventually([&] { return monitor().getLastUpdatedTime() > now; }));
}

TEST_F(MonitorTest, a_request_on_the_wait_queue_keeps_the_controller_active) {
  serial();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1})));
  Barrier atDispatcher;
  steps.atLock(Actor::Dispatcher, 1, [&] { atDispatcher.pass(); });
  ASSERT_TRUE(atDispatcher.awaitArrival());
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  const unsigned long before = steps.waits(Actor::Monitor);
  ASSERT_TRUE(eventually([&] { return steps.waits(Actor::Monitor) > before + 3; }));
  EXPECT_EQ(harness.phase(), Phases::ACTIVE);
  atDispatcher.open();
  EXPECT_TRUE(harness.awaitEnd(id));
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_F(MonitorTest, a_request_under_way_keeps_the_controller_active) {
  alpha.holdRuns();
  serial();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long before = steps.waits(Actor::Monitor);
  ASSERT_TRUE(eventually([&] { return steps.waits(Actor::Monitor) > before + 3; }));
  EXPECT_EQ(harness.phase(), Phases::ACTIVE);
}

/// A whole package of which the second device cannot be queued.
class HalfFailedTest : public MonitorTest {
 protected:
  void queueHalf() {
    const unsigned long before = alpha.count(Call::GetDiagnostics);
    alpha.on(Call::GetDiagnostics, [this, before](const CallRecord&) {
      if (alpha.count(Call::GetDiagnostics) == before + 2) {
        alpha.setHabits({.givesNoDiagnostics = true});
      }
    });
    DiagCtrl::VectorTestReqId* ids = nullptr;
    Settings wanted = settings();
    EXPECT_EQ(harness->queueTest(harness.indexOf("ALPHA"), wanted, ids),
              Controller::UNABLE_TO_ADD_TEST_REQUEST);
    delete ids;
    alpha.setHabits({});
  }
};

TEST_F(HalfFailedTest, requests_that_a_failed_call_left_behind_are_not_polled_before_the_next_one) {
  serial();
  queueHalf();
  ASSERT_TRUE(alpha.awaitCalls(Call::RunReturn));
  EXPECT_EQ(harness.phase(), Phases::IDLE);
  EXPECT_TRUE(eventually([&] { return isTagFree("a/1"); }));
  ASSERT_TRUE(eventually([&] { return managers().getTestReqExecQueueSize() == 1; }));
  const unsigned long waits = steps.waits(Actor::Monitor);
  EXPECT_TRUE(
      neverWithin(std::chrono::milliseconds(100), [&] { return !harness.results().empty(); }));
  EXPECT_LE(steps.waits(Actor::Monitor), waits + 1) << "it looks again and again without waiting";
  EXPECT_THAT(harness.requestIds(), ElementsAre(1));
  const unsigned long next = harness.queue("ALPHA", 2, {1});
  EXPECT_TRUE(harness.awaitEnd(1));
  EXPECT_TRUE(harness.awaitEnd(next));
  EXPECT_THAT(harness.results(), SizeIs(2));
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_F(HalfFailedTest, a_shut_down_ends_requests_that_a_failed_call_left_behind) {
  serial();
  queueHalf();
  ASSERT_TRUE(alpha.awaitCalls(Call::RunReturn));
  EXPECT_EQ(harness.shutDown(), Controller::SUCCESS);
  EXPECT_EQ(alpha.living().diagnostics, 0);
  EXPECT_EQ(steps.livingThreads(), 0);
}

TEST_F(HalfFailedTest, a_shut_down_ends_a_dispatcher_that_waits_for_a_verdict_nobody_will_give) {
  alpha.holdRuns();
  serial();
  forbidTimeOuts();
  queueHalf();
  queueHalf();
  ASSERT_TRUE(alpha.awaitRunning(1));
  Companion client([this] { harness.shutDown(); });
  EXPECT_TRUE(client.blocks()) << "a shut-down waits for running tests";
  alpha.releaseRuns();
  EXPECT_TRUE(client.ends());
  EXPECT_EQ(alpha.living().diagnostics, 0);
}

// ---- The end
// ---------------------------------------------------------------------------------------

TEST_P(MonitorInBothModes, a_shut_down_with_requests_everywhere_leaves_nothing_behind) {
  alpha.holdRunsOn("a1");
  start();
  forbidTimeOuts();
  for (int i = 0; i < 5; ++i) {
    harness.queue("ALPHA", 1, {1});
    harness.queue("ALPHA", 2, {1}, settings(2));
  }
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_EQ(harness.shutDown(), Controller::SUCCESS);
  EXPECT_EQ(alpha.living(), Scripted::Living{});
  EXPECT_EQ(steps.livingThreads(), 0);
}

TEST_F(MonitorTest, a_stopped_monitor_does_not_poll_again) {
  alpha.holdRuns();
  serial();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  monitor().stop();
  ASSERT_TRUE(eventually([&] { return steps.livingThreads() == 2; }));
  const unsigned long polls = alpha.count(Call::GetStatus);
  alpha.releaseRuns();
  ASSERT_TRUE(alpha.awaitCalls(Call::RunReturn));
  EXPECT_TRUE(eventually([&] { return managers().getTestExecCompleted(); }));
  EXPECT_EQ(alpha.count(Call::GetStatus), polls);
  EXPECT_EQ(alpha.living().diagnostics, 1) << "not released by the monitor";
}

TEST_F(MonitorTest, ids_are_numbered_from_one_again_after_a_shut_down) {
  serial();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1})));
  harness.shutDown();
  harness.start();
  EXPECT_EQ(harness.queue("ALPHA", 1, {1}), 1U);
}

}  // namespace

}  // namespace TarvexDiags::TestSupport
