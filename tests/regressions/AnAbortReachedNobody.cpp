// An abort was answered with success and the package never told; a shut-down then stood at the
// pass thread.

#include <chrono>

#include "tests/regressions/LeftOverReport.h"
#include "tests/support/ThreadState.h"

namespace TarvexDiags::TestSupport {

namespace {

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
  EXPECT_TRUE(eventually([&] { return client.ended(); })) << "stands at a pass thread for ever";
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

}  // namespace

}  // namespace TarvexDiags::TestSupport
