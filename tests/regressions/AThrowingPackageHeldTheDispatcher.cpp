// What a package throws at a poll costs that step alone: neither its request nor the others behind
// it.

#include <atomic>
#include <string>

#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "tests/regressions/LeftOverReport.h"

namespace TarvexDiags::TestSupport {

namespace {

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
