// A request was told to be completed, and dropped, while its next pass ran: a package that still
// reports the end of one pass is not believed about the next.

#include <atomic>
#include <chrono>
#include <optional>

#include "tests/regressions/LeftOverReport.h"

namespace TarvexDiags::TestSupport {

namespace {

using testing::SizeIs;

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
        steps.atLock(Actor::Monitor, step, [&] { monitorStands.pass(); });
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
    pollTimes(2);  // the monitor stands at no pass thread that is still inside
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

TEST_F(LeftOverReportTest, a_report_is_not_believed_before_the_claimed_pass_thread_has_entered) {
  parallel();
  forbidTimeOuts();
  const unsigned long id = queueBetweenPasses(2);
  Barrier workerStands;
  steps.atLock(Actor::Worker, 1, [&] { workerStands.pass(); });
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

TEST_F(LeftOverReportTest, a_later_pass_is_over_only_when_its_pass_thread_has_come_out) {
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

}  // namespace

}  // namespace TarvexDiags::TestSupport
