// A request that had to wait for the whole machine was told to be refused 785 times a second.

#include <algorithm>
#include <chrono>

#include "tests/regressions/SharedTag.h"

namespace TarvexDiags::TestSupport {

namespace {

TEST_F(SharedTagTest, clients_hear_seldom_of_a_refusal_that_is_looked_at_often) {
  alpha.holdRunsOn("a1");
  parallel();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const auto begin = std::chrono::steady_clock::now();
  const unsigned long big = harness.queue("WHOLE", 1, {1});
  ASSERT_TRUE(harness.awaitCtrlEvent("UNABLE_TO_PROCESS_TEST_REQUEST E 2")) << "the first at once";
  for (int i = 0; i < 60; ++i) {
    ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 2, {1})));
  }
  const auto told = harness.ctrlEventsOf(big).size();
  const auto seconds =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
  // Two entries from the second time on, and once in two seconds.
  EXPECT_LE(told, 1U + 2U * static_cast<std::size_t>(seconds.count() / 2 + 1));
  EXPECT_EQ(request(big).getTestRequestStatus(-1), Request::WAIT);
  EXPECT_EQ(managers().getTestReqWaitQueueSize(), 0) << "it keeps its place";
  EXPECT_EQ(harness->abortTest(big), Controller::SUCCESS);
  EXPECT_TRUE(eventually([&] {
    const Lines events = harness.ctrlEventsOf(big);
    return std::count(events.begin(), events.end(), "TEST_REQUEST_ABORTED W") > 0;
  })) << "an abort is heard at once";
  alpha.releaseRuns();
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_F(SharedTagTest, a_refusal_that_lasts_is_told_again) {
  alpha.holdRunsOn("a1");
  parallel();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const unsigned long big = harness.queue("WHOLE", 1, {1});
  EXPECT_TRUE(eventually([&] { return harness.ctrlEventsOf(big).size() >= 3; }));
  EXPECT_EQ(request(big).getTestRequestStatus(-1), Request::WAIT);
  alpha.releaseRuns();
  EXPECT_TRUE(harness.awaitEnd(big));
}

}  // namespace

}  // namespace TarvexDiags::TestSupport
