// Two tests ran on one device: a pass thread gave back a tag that it had never taken.

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/regressions/SharedTag.h"

namespace TarvexDiags::TestSupport {

namespace {

// The pass thread that had the machine is stopped in front of each of its locks on its way out, and
// the dispatcher does what it can meanwhile.
TEST_F(SharedTagTest, the_tag_of_a_test_that_had_the_machine_is_never_given_to_two) {
  parallel();
  forbidTimeOuts();
  for (unsigned int step = 1; step <= 80; ++step) {
    Barrier workerStands;
    std::atomic<bool> wasReached{false};
    whole.on(Call::RunReturn, [&, step](const CallRecord& run) {
      steps.atLock(Actor::Worker, step, [&, owner = run.thread] {
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
      break;  // the pass thread takes fewer locks than that
    }
  }
  EXPECT_EQ(alpha.mostRunning(), 1);
  EXPECT_TRUE(eventually([&] { return isTagFree("a/1"); }));
}

}  // namespace

}  // namespace TarvexDiags::TestSupport
