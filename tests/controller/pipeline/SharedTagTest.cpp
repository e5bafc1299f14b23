// A test that has the whole machine, on a device whose tag others want as well.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "tests/controller/pipeline/PipelineFixture.h"

namespace TarvexDiags::TestSupport {

namespace {

class SharedTagTest : public PipelineTest {
 protected:
  SharedTagTest() : whole(harness.addPackage("WHOLE", PackageConfig(1).systemLock())) {
    whole.setDevices({{.tag = "a/1", .name = "w1"}});
  }
  Script& whole;
};

// The worker that had the machine is stopped in front of each of its locks on its way out, and the
// dispatcher does what it can meanwhile.
TEST_F(SharedTagTest, the_tag_of_a_test_that_had_the_machine_is_never_given_to_two) {
  parallel();
  forbidTimeOuts();
  for (unsigned int step = 1; step <= 80; ++step) {
    Barrier workerStands;
    std::atomic<bool> wasReached{false};
    whole.on(Call::RunReturn, [&, step](const CallRecord& run) {
      steps.atLock(Actor::worker, step, [&, owner = run.thread] {
        if (std::this_thread::get_id() == owner) {
          wasReached = true;
          workerStands.pass();
        }
      });
    });
    alpha.holdRuns();
    const unsigned long big = harness.queue("WHOLE", 1, {1});
    ASSERT_TRUE(whole.awaitCalls(Call::RunReturn, step));
    const bool mayStand = workerStands.awaitArrival(std::chrono::milliseconds(50));
    const unsigned long first = harness.queue("ALPHA", 1, {1});
    const unsigned long second = harness.queue("ALPHA", 1, {1});
    if (mayStand) {
      eventually([&] { return alpha.running() == 1; }, std::chrono::milliseconds(10));
    }
    workerStands.open();
    ASSERT_TRUE(eventually([&] { return alpha.running() >= 1; })) << "step " << step;
    EXPECT_TRUE(neverWithin(std::chrono::milliseconds(10), [&] { return alpha.running() > 1; }))
        << "two tests on one device, step " << step;
    steps.disarm();
    alpha.releaseRuns();
    for (const unsigned long id : {big, first, second}) {
      ASSERT_TRUE(harness.awaitEnd(id)) << "step " << step;
    }
    if (!wasReached) {
      break;  // the worker takes fewer locks than that
    }
  }
  EXPECT_EQ(alpha.mostRunning(), 1);
  EXPECT_TRUE(eventually([&] { return isTagFree("a/1"); }));
}

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
