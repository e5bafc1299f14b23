// Packages that go on reporting the completion of one pass until the next one begins, or report it
// too early: a verdict belongs to the pass that it was looked for, and an abort reaches whoever is
// inside.

#include <algorithm>
#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "tests/controller/pipeline/PipelineFixture.h"
#include "tests/support/ThreadState.h"

namespace TarvexDiags::TestSupport {

namespace {

using testing::SizeIs;

class LeftOverReportTest : public PipelineTest {
 protected:
  /// Starts a request whose first pass is over and judged, and whose second is not dispatched.
  unsigned long queueBetweenPasses(int passes) {
    alpha.holdRuns();
    const unsigned long id = harness.queue("ALPHA", 1, {1}, settings(passes));
    EXPECT_TRUE(alpha.awaitRunning(1));
    holdDispatcher();
    alpha.releaseRuns();
    EXPECT_TRUE(eventually([&] { return passCount(id) >= 2; }));
    alpha.holdRuns();
    return id;
  }
  void holdDispatcher() { managers().mmtxTestReqChangeLock.lock(0); }
  void releaseDispatcher() { managers().mmtxTestReqChangeLock.unlock(); }
  int passCount(unsigned long id) { return request(id).getDiagnosticSettings()->getPassCount(); }
  bool isListed(unsigned long id) {
    const std::vector<unsigned long> ids = harness.requestIds();
    return std::find(ids.begin(), ids.end(), id) != ids.end();
  }
  bool isEverythingGone() {
    return eventually([this] { return alpha.living().diagnostics == 0; });
  }
};

// The monitor has read COMPLETED between two passes. It is stopped in front of each of its locks
// from there on, the next pass begins meanwhile, and it goes on with what it has read.
class LeftOverReportAtEveryStep : public LeftOverReportTest,
                                  public testing::WithParamInterface<int> {
 protected:
  /// @return false if the poll takes fewer locks than that.
  bool nextPassBeginsAt(unsigned int step) {
    Barrier monitorStands;
    std::atomic<int> drained{0};
    alpha.on(Call::GetResults, [&](const CallRecord&) {
      if (++drained == 2) {
        steps.atLock(Actor::monitor, step, [&] { monitorStands.pass(); });
      }
    });
    const unsigned long id = queueBetweenPasses(GetParam());
    wakeMonitor();
    const bool wasReached = monitorStands.awaitArrival(std::chrono::seconds(1));
    releaseDispatcher();
    // It may have to wait for what the monitor holds, or the request is over.
    eventually([&] { return alpha.running() == 1 || harness.statusOf(id) == Request::COMPLETED; },
               std::chrono::milliseconds(250));
    monitorStands.open();
    pollTimes(2);  // the monitor stands at no worker that is still inside
    checkAndEnd(id);
    steps.disarm();
    alpha.on(Call::GetResults, nullptr);
    return wasReached;
  }
  void checkAndEnd(unsigned long id) {
    const bool isOver = harness.statusOf(id) == Request::COMPLETED;
    EXPECT_EQ(isOver, !isListed(id));
    if (isOver) {
      EXPECT_EQ(alpha.running(), 0) << "told to be completed while a pass runs";
    } else {
      EXPECT_TRUE(alpha.awaitRunning(1));
      const unsigned long before = alpha.count(Call::Abort);
      EXPECT_EQ(harness->abortTest(id), Controller::SUCCESS);
      EXPECT_EQ(alpha.count(Call::Abort), before + 1) << "the package was never told";
    }
    alpha.releaseRuns();
    EXPECT_TRUE(isEverythingGone());
  }
};

INSTANTIATE_TEST_SUITE_P(Passes, LeftOverReportAtEveryStep, testing::Values(2, 3));

TEST_P(LeftOverReportAtEveryStep, a_verdict_on_one_pass_is_never_given_to_the_next) {
  alpha.setHabits({.keepsReportingCompleted = true});
  parallel();
  forbidTimeOuts();
  for (unsigned int step = 1; step <= 120 && nextPassBeginsAt(step) && !HasFailure(); ++step) {
  }
  EXPECT_TRUE(eventually([&] { return isTagFree("a/1"); }));
  EXPECT_EQ(steps.livingThreads(), 2);
  EXPECT_EQ(workersKept(), 0U);
}

TEST_F(LeftOverReportTest, a_report_is_not_believed_before_the_claimed_worker_has_entered) {
  parallel();
  forbidTimeOuts();
  const unsigned long id = queueBetweenPasses(2);
  Barrier workerStands;
  steps.atLock(Actor::worker, 1, [&] { workerStands.pass(); });
  releaseDispatcher();
  ASSERT_TRUE(workerStands.awaitArrival());
  const unsigned long drained = alpha.count(Call::GetResults);
  alpha.forceStatus(Status::COMPLETED);
  pollTimes(3);
  EXPECT_EQ(harness.statusOf(id), Request::WAIT) << "neither run nor completed";
  EXPECT_TRUE(isListed(id));
  EXPECT_EQ(alpha.count(Call::GetResults), drained) << "no results of a pass to come";
  alpha.forceStatus(std::nullopt);
  alpha.releaseRuns();
  workerStands.open();
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_EQ(alpha.count(Call::RunEnter), 2U);
  EXPECT_THAT(harness.results(), SizeIs(2));
  EXPECT_TRUE(isEverythingGone());
}

TEST_F(LeftOverReportTest, a_later_pass_is_over_only_when_its_worker_has_come_out) {
  parallel();
  forbidTimeOuts();
  const unsigned long id = queueBetweenPasses(2);
  releaseDispatcher();
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long drained = alpha.count(Call::GetResults);
  alpha.forceStatus(Status::COMPLETED);
  pollTimes(3);
  EXPECT_EQ(harness.statusOf(id), Request::RUNNING);
  EXPECT_EQ(alpha.count(Call::GetResults), drained);
  alpha.forceStatus(std::nullopt);
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_EQ(alpha.count(Call::RunEnter), 2U);
}

TEST_F(LeftOverReportTest, a_late_verdict_on_one_pass_does_not_end_the_serial_wait_for_the_next) {
  alpha.setHabits({.keepsReportingCompleted = true});
  serial();
  alpha.holdRunsOn("a1");
  const unsigned long id = harness.queue("ALPHA", 1, {1}, settings(3));
  ASSERT_TRUE(alpha.awaitRunning(1));
  harness.queue("ALPHA", 2, {1});
  const unsigned long pass = request(id).claimedPass();
  managers().concludeTestExec(id, pass - 1);
  EXPECT_TRUE(neverWithin(std::chrono::milliseconds(100), [&] { return alpha.mostRunning() > 1; }));
  managers().concludeTestExec(id, pass);
  EXPECT_TRUE(eventually([&] { return alpha.mostRunning() > 1; })) << "the verdict on it does";
}

/// The dispatcher is stopped behind the first verdict, and the monitor in front of each of its
/// locks in the second one, which is on the same pass. The dispatcher goes on first: it starts the
/// next pass and waits for the verdict on that.
class SerialLeftOverReportTest : public LeftOverReportTest {
 protected:
  /// @return false if the second poll takes fewer locks than that.
  bool secondVerdictEndsAt(unsigned int step) {
    Barrier dispatcherStands;
    Barrier monitorStands;
    std::atomic<int> drained{0};
    alpha.on(Call::GetResults, [&](const CallRecord&) {
      if (const int number = ++drained; number == 1) {
        steps.atLock(Actor::dispatcher, 1, [&] { dispatcherStands.pass(); });
      } else if (number == 2) {
        steps.atLock(Actor::monitor, step, [&] { monitorStands.pass(); });
      }
    });
    alpha.holdRuns();
    const unsigned long looping = harness.queue("ALPHA", 1, {1}, settings(3));
    EXPECT_TRUE(alpha.awaitRunning(1));
    alpha.releaseRuns();
    EXPECT_TRUE(dispatcherStands.awaitArrival());
    alpha.holdRuns();
    EXPECT_TRUE(eventually([&] { return passCount(looping) >= 2; }));
    wakeMonitor();
    const bool wasReached = monitorStands.awaitArrival(std::chrono::seconds(1));
    unsigned long other = 0;
    const Companion client([&] { other = harness.queue("ALPHA", 2, {1}); });
    client.blocks();  // or has queued it: the monitor may hold the queue's lock
    dispatcherStands.open();
    eventually([&] { return alpha.running() == 1; }, std::chrono::milliseconds(100));
    monitorStands.open();
    EXPECT_TRUE(client.ends());
    EXPECT_TRUE(neverWithin(std::chrono::milliseconds(10), [&] { return alpha.running() > 1; }))
        << "another request beside the pass, step " << step;
    alpha.on(Call::GetResults, nullptr);
    alpha.releaseRuns();
    EXPECT_TRUE(harness.awaitEnd(looping) && harness.awaitEnd(other)) << "step " << step;
    steps.disarm();
    return wasReached;
  }
};

TEST_F(SerialLeftOverReportTest, a_second_verdict_on_one_pass_lets_nobody_run_beside_the_next) {
  alpha.setHabits({.keepsReportingCompleted = true});
  serial();
  forbidTimeOuts();
  for (unsigned int step = 1; step <= 120 && secondVerdictEndsAt(step) && !HasFailure(); ++step) {
  }
  EXPECT_EQ(alpha.mostRunning(), 1);
  EXPECT_TRUE(isEverythingGone());
}

// ---- Whoever is inside hears of an abort -------------------------------------------------------

TEST_F(LeftOverReportTest, an_abort_reaches_a_pass_whose_completion_was_reported_too_early) {
  alpha.setHabits({.completesEarly = true});
  alpha.holdRuns();
  parallel();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(harness.awaitStatus(id, Request::COMPLETED));
  ASSERT_EQ(alpha.running(), 1);
  EXPECT_EQ(harness->abortTest(id), Controller::SUCCESS);
  EXPECT_EQ(alpha.count(Call::Abort), 1U);
  EXPECT_TRUE(alpha.awaitRunning(0));
  EXPECT_TRUE(isEverythingGone());
  EXPECT_EQ(harness.statusOf(id), Request::COMPLETED);
}

TEST_F(LeftOverReportTest, a_shut_down_reaches_a_pass_whose_request_has_left_the_list) {
  alpha.setHabits({.completesEarly = true});
  alpha.holdRuns();
  parallel();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(eventually([&] { return !isListed(id); }));
  ASSERT_EQ(alpha.running(), 1);
  Companion client([this] { harness->shutDown(); });
  EXPECT_TRUE(eventually([&] { return client.ended(); })) << "stands at a worker for ever";
  EXPECT_EQ(alpha.count(Call::Abort), 1U);
  alpha.releaseRuns();
}

TEST_F(LeftOverReportTest, a_shut_down_tells_a_running_pass_once) {
  alpha.holdRuns();
  parallel();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  harness->shutDown();
  EXPECT_EQ(alpha.count(Call::Abort), 1U);
}

// ---- What a package throws at a poll -----------------------------------------------------------

class ThrowingPollTest : public LeftOverReportTest,
                         public testing::WithParamInterface<Scripted::Call> {
 protected:
  void throwAtPolls(int times) {
    alpha.on(GetParam(), [this, times](const CallRecord&) {
      if (m_thrown++ < times) {
        throw DiagCtrl::DiagCtrlObjectNotFound(DiagCtrl::DiagCtrlBaseException::ObjectNotFound, 1,
                                               "alpha.cpp", "Alpha::poll()");
      }
    });
  }

 private:
  std::atomic<int> m_thrown{0};
};

std::string callName(const testing::TestParamInfo<Scripted::Call>& info) {
  return Scripted::nameOf(info.param);
}
INSTANTIATE_TEST_SUITE_P(Calls, ThrowingPollTest,
                         testing::Values(Scripted::Call::GetEvents, Scripted::Call::GetStatus,
                                         Scripted::Call::GetResults),
                         callName);

TEST_P(ThrowingPollTest, a_package_that_throws_once_at_a_poll_holds_nobody_up) {
  throwAtPolls(1);
  serial();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  EXPECT_TRUE(harness.awaitEnd(id));
  EXPECT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 2, {1}))) << "the dispatcher is free";
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_P(ThrowingPollTest, an_abort_ends_a_request_whose_package_throws_at_every_poll) {
  throwAtPolls(1'000'000);
  serial();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitCalls(Call::RunEnter));
  harness->abortTest(id);
  EXPECT_TRUE(isEverythingGone());
  EXPECT_TRUE(harness.awaitIdle());
}

}  // namespace

}  // namespace TarvexDiags::TestSupport
