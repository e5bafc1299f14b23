// One after the other was asked for, and two ran: a second verdict on one pass ended the wait for
// the next.

#include <atomic>
#include <chrono>

#include "tests/regressions/LeftOverReport.h"
#include "tests/support/ThreadState.h"

namespace TarvexDiags::TestSupport {

namespace {

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
        steps.atLock(Actor::Dispatcher, 1, [&] { dispatcherStands.pass(); });
      } else if (number == 2) {
        steps.atLock(Actor::Monitor, step, [&] { monitorStands.pass(); });
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

}  // namespace

}  // namespace TarvexDiags::TestSupport
