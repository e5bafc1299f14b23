// Stop and restart under one hold of the big lock.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "tests/support/ControllerTest.h"
#include "tests/support/CtrlEventTap.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/ThreadCreation.h"
#include "tests/support/ThreadState.h"

TARVEX_PRIVATE_MEMBER(ResetRequestTag, DiagCtrl::DiagnosticController::mbResetRequest);

namespace TarvexDiags::Lifecycle {
namespace {

using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagnosticController;
using DiagCtrl::GlobalSettings;
using Scripted::Call;
using Scripted::CallRecord;
using Scripted::Living;
using Scripted::Script;
using ::testing::IsEmpty;
using TestSupport::Companion;
using TestSupport::ControllerHarness;
using TestSupport::ControllerTest;
using TestSupport::CtrlEventTap;
using TestSupport::PackageConfig;
using TestSupport::ThreadCreation;
using enum DiagnosticController::errorCode;
using Phase = DiagControllerStatus;

class ResetTest : public ControllerTest {
 protected:
  /// Writes the control file of the running controller anew.
  void rewriteControlFile() { harness.control().writeTo(harness.directory()); }
  bool isMarkedAsResetting() { return TestSupport::privateMember<ResetRequestTag>(controller()); }
};

TEST_F(ResetTest, an_uninitialised_controller_cannot_be_reset_and_can_be_started_after_that) {
  harness.trace();
  harness.initialize();
  harness.shutDown();
  const CtrlEventTap tap;
  EXPECT_EQ(controller().resetDiagController(), INCORRECT_PHASE);
  EXPECT_THAT(tap.take(), IsEmpty());
  EXPECT_FALSE(isMarkedAsResetting());
  EXPECT_TRUE(trace().contains("INCORRECT_PHASE: : 0"));
  harness.initialize();
  EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
}

TEST_F(ResetTest, a_reset_ends_where_an_initialize_does_with_the_file_read_afresh) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  harness.queue("ALPHA", 1, {1});
  harness.control().parallel();
  rewriteControlFile();
  EXPECT_EQ(controller().resetDiagController(), SUCCESS);
  EXPECT_FALSE(isMarkedAsResetting());
  EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
  EXPECT_EQ(alpha.living(), Living{});
  auto mode = GlobalSettings::SERIAL;
  EXPECT_EQ(controller().getRunMode(mode), SUCCESS);
  EXPECT_EQ(mode, GlobalSettings::PARALLEL);
  unsigned int events = 9;
  unsigned int results = 9;
  unsigned int ctrlEvents = 9;
  EXPECT_EQ(controller().getNumberOfRegistrations(events, results, ctrlEvents), SUCCESS);
  EXPECT_EQ(events + results + ctrlEvents, 0U);
  harness.registerForAll();
  harness.enumerate();
  EXPECT_EQ(harness.queue("ALPHA", 1, {1}), 1U);
}

TEST_F(ResetTest, a_running_test_is_aborted_by_a_reset) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  alpha.holdRuns();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_EQ(controller().resetDiagController(), SUCCESS);
  EXPECT_EQ(alpha.calls(Call::Abort).size(), 1U);
  EXPECT_EQ(alpha.living(), Living{});
  EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
}

TEST_F(ResetTest, a_reset_before_any_enumeration_starts_over) {
  harness.initialize();
  EXPECT_EQ(controller().resetDiagController(), SUCCESS);
  EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
}

TEST_F(ResetTest, a_reset_that_cannot_restart_returns_why_and_lets_go_of_the_lock) {
  harness.addPackage("ALPHA");
  harness.trace();
  harness.start();
  harness.control().with("RunMode", "SIDEWAYS");
  rewriteControlFile();
  EXPECT_EQ(controller().resetDiagController(), INITIALISATION_FAILED);
  EXPECT_FALSE(isMarkedAsResetting());
  EXPECT_TRUE(trace().contains("INITIALIZE: : 2"));
  EXPECT_EQ(harness.phase(), Phase::UNINITIALISED);
  harness.control().with("RunMode", "SERIAL");
  auto result = OUT_OF_RANGE;
  Companion other([&] {
    rewriteControlFile();
    result = controller().initialize(harness.directory().file("control.cfg").c_str());
    controller().shutDown();
  });
  ASSERT_TRUE(other.ends()) << "neither the lock nor the flag was left behind";
  EXPECT_EQ(result, SUCCESS);
}

TEST_F(ResetTest, a_reset_whose_threads_are_refused_can_be_followed_by_an_initialize) {
  harness.initialize();
  {
    ThreadCreation creation;
    creation.refuse(2);
    EXPECT_EQ(controller().resetDiagController(), UNABLE_TO_INIT_MONI_THREAD);
  }
  EXPECT_EQ(harness.phase(), Phase::UNINITIALISED);
  harness.initialize();
}

TEST_F(ResetTest, no_call_of_another_client_slips_in_between_stop_and_restart) {
  harness.addPackage("ALPHA").holdRuns();  // which keeps the controller active
  harness.start();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  auto settings = ControllerHarness::settings();
  std::vector<int> tests{1};
  unsigned long newId = 77;
  auto queued = SUCCESS;
  auto aborted = SUCCESS;
  std::vector<std::unique_ptr<Companion>> waiting;
  Script::of("ALPHA").on(Call::DestroyDevice, [&](const CallRecord&) {
    waiting.push_back(std::make_unique<Companion>(
        [&] { queued = controller().queueTest(1, 1, tests, settings, newId); }));
    waiting.push_back(std::make_unique<Companion>([&] { aborted = controller().abortTest(id); }));
    for (const auto& companion : waiting) {
      EXPECT_TRUE(waitsForBigLock(*companion));
    }
  });
  EXPECT_EQ(controller().resetDiagController(), SUCCESS);
  ASSERT_EQ(waiting.size(), 2U);
  ASSERT_TRUE(waiting[0]->ends() && waiting[1]->ends());
  EXPECT_EQ(queued, OBJECT_NOT_FOUND) << "there are no packages yet in the new run";
  EXPECT_EQ(aborted, REQUEST_OBJECT_NOT_FOUND);
  EXPECT_EQ(newId, 77U);
  EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
}

TEST_F(ResetTest, of_two_resets_at_once_each_takes_its_turn) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  auto result = OUT_OF_RANGE;
  std::unique_ptr<Companion> other;
  alpha.on(Call::DestroyDevice, [&](const CallRecord&) {
    other = std::make_unique<Companion>([&] { result = controller().resetDiagController(); });
    EXPECT_TRUE(waitsForBigLock(*other));
  });
  EXPECT_EQ(controller().resetDiagController(), SUCCESS);
  ASSERT_TRUE(other->ends());
  EXPECT_EQ(result, SUCCESS);
  EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
}

}  // namespace
}  // namespace TarvexDiags::Lifecycle
