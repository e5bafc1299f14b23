// The four forms of queueing: what is checked, what is copied, and each way to fail.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/TestRequest.h"
#include "tests/support/ControllerTest.h"
#include "tests/support/FlagByte.h"
#include "tests/support/Places.h"
#include "tests/support/PlatformAnswers.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/ProcessMaps.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/ThreadState.h"

TARVEX_PRIVATE_MEMBER(PackageMapTag, DiagCtrl::DiagnosticController::mPackageMap);

namespace TarvexDiags::Queueing {
namespace {

using Diag::DiagnosticSettings;
using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagnosticController;
using DiagCtrl::GlobalSettings;
using DiagCtrl::TestRequest;
using DiagCtrl::VectorTestReqId;
using Scripted::Call;
using Scripted::Living;
using Scripted::Script;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsNull;
using ::testing::SizeIs;
using TestSupport::Companion;
using TestSupport::ControlFile;
using TestSupport::ControllerHarness;
using TestSupport::ControllerTest;
using TestSupport::isMapped;
using TestSupport::PackageConfig;
using TestSupport::storeFlagByte;
using TestSupport::TemporaryDirectory;
using enum DiagnosticController::errorCode;
typedef DiagnosticController::errorCode Code;

class QueueingTest : public ControllerTest {
 protected:
  /// A package of three tests and two devices, whose passes stay inside.
  void start() {
    alpha.setDevices(2).holdRuns();
    harness.start();
  }

  /// What one form answers to these arguments, and whether the output is what it was.
  struct Answer {
    Code code;
    bool isUntouched;
  };
  typedef std::function<Answer(int package, unsigned int device, DiagnosticSettings&)> Form;
  std::vector<std::pair<std::string, Form>> forms() {
    return {{"tests and a halt flag",
             [this](int package, unsigned int device, auto& settings) {
               unsigned long id = 77;
               const Code code = controller().queueTest(package, device, tests, settings, true, id);
               return Answer{code, id == 77};
             }},
            {"tests",
             [this](int package, unsigned int device, auto& settings) {
               unsigned long id = 77;
               const Code code = controller().queueTest(package, device, tests, settings, id);
               return Answer{code, id == 77};
             }},
            {"one device",
             [this](int package, unsigned int device, auto& settings) {
               unsigned long id = 77;
               const Code code = controller().queueTest(package, device, settings, id);
               return Answer{code, id == 77};
             }},
            {"a whole package", [this](int package, unsigned int, auto& settings) {
               VectorTestReqId* ids = nullptr;
               const Code code = controller().queueTest(package, settings, ids);
               const std::unique_ptr<VectorTestReqId> owned(ids);
               return Answer{code, ids == nullptr};
             }}};
  }

  /// Each form fails alike; the event is raised once, the lock is free and nothing is queued.
  void expectAllForms(Code code, const std::string& event, int package, unsigned int device,
                      DiagnosticSettings settings = ControllerHarness::settings()) {
    for (const auto& [name, form] : forms()) {
      SCOPED_TRACE(name);
      harness.forget();
      const Answer answer = form(package, device, settings);
      EXPECT_EQ(answer.code, code);
      EXPECT_TRUE(answer.isUntouched);
      EXPECT_THAT(harness.ctrlEvents(), ElementsAre(event));
      expectNothingHeld();
    }
    EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
    EXPECT_THAT(harness.requestIds(), IsEmpty());
  }

  void expectNothingHeld() {
    int count = 0;
    Companion other([&] { controller().getNumberOfDiagPackages(count); });
    EXPECT_TRUE(other.ends());
  }

  TestRequest& request(unsigned long id) {
    TestRequest* found = nullptr;
    EXPECT_EQ(controller().getTestRequest(static_cast<int>(id), found), SUCCESS);
    return *found;
  }

  Script& alpha = harness.addPackage("ALPHA", PackageConfig(3));
  std::vector<int> tests{1};
};

// ---- Settings ----------------------------------------------------------------------------------

struct BadSettings {
  std::string name;
  std::function<void(DiagnosticSettings&)> spoil;
  Code code;
  std::string event;
  std::string trace;
};

void PrintTo(const BadSettings& row, std::ostream* stream) {
  *stream << row.name;
}

void spoilPassCount(DiagnosticSettings& settings) {
  settings.setRequestedPassCount(0);
}
void spoilRunTime(DiagnosticSettings& settings) {
  settings.setRunTime(0);
}
void spoilHaltOnError(DiagnosticSettings& settings) {
  storeFlagByte(settings, &DiagnosticSettings::setHaltOnError, 7);
}
void spoilQuickTest(DiagnosticSettings& settings) {
  storeFlagByte(settings, &DiagnosticSettings::setQuickTestMode, 2);
}
void spoilStress(DiagnosticSettings& settings) {
  storeFlagByte(settings, &DiagnosticSettings::setStressMode, 255);
}

class BadSettingsTest : public QueueingTest, public ::testing::WithParamInterface<BadSettings> {};

TEST_P(BadSettingsTest, are_refused_in_every_form_before_anything_is_looked_up) {
  harness.control().traced(harness.directory().path()).with("DebugLog", "DIAG_ERROR");
  start();
  auto settings = ControllerHarness::settings();
  GetParam().spoil(settings);
  expectAllForms(GetParam().code, GetParam().event, 1, 1, settings);
  expectAllForms(GetParam().code, GetParam().event, 99, 99, settings);
  EXPECT_EQ(trace().count(GetParam().trace), 8U);
  EXPECT_EQ(alpha.calls(Call::GetDiagnostics).size(), 1U) << "the enumeration's";
}

INSTANTIATE_TEST_SUITE_P(
    Row, BadSettingsTest,
    ::testing::Values(BadSettings{"pass_count", spoilPassCount, INVALID_PASS_COUNT,
                                  "INVALID_PASS_COUNT E 0", "INCORRECT PASS COUNT:"},
                      BadSettings{"run_time", spoilRunTime, INVALID_RUN_TIME,
                                  "INVALID_RUN_TIME E 0", "INCORRECT RUN TIME:"},
                      BadSettings{"halt_on_error", spoilHaltOnError, INVALID_HALT_ON_EEROR,
                                  "INVALID_HALT_ON_EEROR E 0", "INVALID HALT ON ERROR:"},
                      BadSettings{"quick_test_mode", spoilQuickTest, INVALID_QIUCK_TEST_MODE,
                                  "INVALID_QIUCK_TEST_MODE E 0", "INVALID QIUCK TEST MODE:"},
                      BadSettings{"stress_mode", spoilStress, INVALID_STRESS_MODE,
                                  "INVALID_STRESS_MODE E 0", "INVALID STRESS MODE:"},
                      BadSettings{"pass_count_before_run_time",
                                  [](DiagnosticSettings& settings) {
                                    spoilPassCount(settings);
                                    spoilRunTime(settings);
                                  },
                                  INVALID_PASS_COUNT, "INVALID_PASS_COUNT E 0",
                                  "INCORRECT PASS COUNT:"},
                      BadSettings{"run_time_before_the_flags",
                                  [](DiagnosticSettings& settings) {
                                    spoilRunTime(settings);
                                    spoilHaltOnError(settings);
                                    spoilQuickTest(settings);
                                    spoilStress(settings);
                                  },
                                  INVALID_RUN_TIME, "INVALID_RUN_TIME E 0", "INCORRECT RUN TIME:"},
                      BadSettings{"halt_before_quick_before_stress",
                                  [](DiagnosticSettings& settings) {
                                    spoilStress(settings);
                                    spoilQuickTest(settings);
                                    spoilHaltOnError(settings);
                                  },
                                  INVALID_HALT_ON_EEROR, "INVALID_HALT_ON_EEROR E 0",
                                  "INVALID HALT ON ERROR:"},
                      BadSettings{"quick_before_stress",
                                  [](DiagnosticSettings& settings) {
                                    spoilStress(settings);
                                    spoilQuickTest(settings);
                                  },
                                  INVALID_QIUCK_TEST_MODE, "INVALID_QIUCK_TEST_MODE E 0",
                                  "INVALID QIUCK TEST MODE:"}),
    [](const auto& row) { return row.param.name; });

TEST_F(QueueingTest, unfilled_settings_are_refused_for_their_pass_count) {
  start();
  expectAllForms(INVALID_PASS_COUNT, "INVALID_PASS_COUNT E 0", 1, 1, DiagnosticSettings());
}

TEST_F(QueueingTest, a_negative_pass_count_is_one_that_is_over_at_once) {
  start();
  alpha.releaseRuns();
  const unsigned long id = harness.queue("ALPHA", 1, {1}, ControllerHarness::settings(-3));
  EXPECT_TRUE(harness.awaitEnd(id));
  EXPECT_THAT(alpha.calls(Call::RunEnter), SizeIs(1));
}

TEST_F(QueueingTest, an_empty_vector_of_tests_is_refused_before_the_settings_and_without_an_event) {
  start();
  std::vector<int> none;
  DiagnosticSettings unfilled;
  unsigned long id = 77;
  EXPECT_EQ(controller().queueTest(99, 99, none, unfilled, true, id), TEST_VECTOR_IS_EMPTY);
  EXPECT_EQ(controller().queueTest(99, 99, none, unfilled, id), TEST_VECTOR_IS_EMPTY);
  EXPECT_EQ(id, 77U);
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
  expectNothingHeld();
}

// ---- What does not exist -----------------------------------------------------------------------

TEST_F(QueueingTest, an_unknown_package_is_an_object_not_found) {
  start();
  for (const int package : {0, -1, 2, 99}) {
    expectAllForms(OBJECT_NOT_FOUND, "OBJECT_NOT_FOUND E 0", package, 1);
  }
}

TEST_F(QueueingTest, an_unknown_device_is_a_device_object_not_found) {
  start();
  auto settings = ControllerHarness::settings();
  unsigned long id = 77;
  for (const unsigned int device : {0U, 3U, 4294967295U}) {
    EXPECT_EQ(controller().queueTest(1, device, tests, settings, true, id),
              DEVICE_OBJECT_NOT_FOUND);
    EXPECT_EQ(controller().queueTest(1, device, tests, settings, id), DEVICE_OBJECT_NOT_FOUND);
    EXPECT_EQ(controller().queueTest(1, device, settings, id), DEVICE_OBJECT_NOT_FOUND);
  }
  EXPECT_EQ(id, 77U);
  EXPECT_EQ(DEVICE_OBJECT_NOT_FOUND, 34);
  EXPECT_THAT(harness.ctrlEvents(), Each("DEVICE_OBJECT_NOT_FOUND E 0"));
  EXPECT_THAT(harness.ctrlEvents(), SizeIs(9));
  expectNothingHeld();
}

TEST_F(QueueingTest, a_package_without_devices_has_none_to_queue_for_and_makes_no_vector) {
  alpha.setDevices(0);
  harness.start();
  auto settings = ControllerHarness::settings();
  VectorTestReqId* ids = nullptr;
  EXPECT_EQ(controller().queueTest(1, settings, ids), DEVICE_OBJECT_NOT_FOUND);
  EXPECT_THAT(ids, IsNull());
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("DEVICE_OBJECT_NOT_FOUND E 0"));
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
  expectNothingHeld();
}

TEST_F(QueueingTest, a_package_whose_name_is_lost_is_a_package_not_found) {
  start();
  auto names = std::exchange(TestSupport::privateMember<PackageMapTag>(controller()), {});
  auto settings = ControllerHarness::settings();
  unsigned long id = 77;
  VectorTestReqId* ids = nullptr;
  EXPECT_EQ(controller().queueTest(1, 1, tests, settings, id), PACKAGE_NOT_FOUND);
  EXPECT_EQ(controller().queueTest(1, settings, ids), PACKAGE_NOT_FOUND);
  ASSERT_NE(ids, nullptr) << "the package has devices";
  EXPECT_THAT(*std::unique_ptr<VectorTestReqId>(ids), IsEmpty());
  EXPECT_EQ(id, 77U);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("PACKAGE_NOT_FOUND E 0", "PACKAGE_NOT_FOUND E 0"));
  expectNothingHeld();
  TestSupport::privateMember<PackageMapTag>(controller()) = names;
}

// ---- Packages that cannot be loaded once more -----------------------------------------------

class UnloadableTest : public QueueingTest {
 protected:
  /// From now on libraries are looked for in another directory.
  void lookElsewhere() {
    const std::string path = ControlFile().packDirPath(elsewhere.path()).writeTo(elsewhere);
    ASSERT_EQ(controller().initialize(path.c_str()), INCORRECT_PHASE);
  }
  void expectFailure(Code code, const std::string& event, bool idBecomesZero = false) {
    auto settings = ControllerHarness::settings();
    unsigned long id = 77;
    EXPECT_EQ(controller().queueTest(1, 1, tests, settings, true, id), code);
    EXPECT_EQ(id, idBecomesZero ? 0U : 77U);
    VectorTestReqId* ids = nullptr;
    EXPECT_EQ(controller().queueTest(1, settings, ids), code);
    ASSERT_NE(ids, nullptr);
    EXPECT_THAT(*std::unique_ptr<VectorTestReqId>(ids), IsEmpty());
    EXPECT_THAT(harness.ctrlEvents(), ElementsAre(event, event));
    EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
    EXPECT_THAT(harness.requestIds(), IsEmpty());
    expectNothingHeld();
  }

  TemporaryDirectory elsewhere;
};

TEST_F(UnloadableTest, a_library_that_is_gone_is_told) {
  start();
  lookElsewhere();
  expectFailure(LOAD_LIBRARY_FAILED, "LOAD_LIBRARY_FAILED E 0");
}

TEST_F(UnloadableTest, a_library_that_lost_its_export_is_told_as_an_error) {
  start();
  lookElsewhere();
  std::filesystem::copy_file(TestSupport::modulePath("loader_without_diagnostics"),
                             elsewhere.file("libALPHA.so"));
  expectFailure(FUNCTION_NOT_FOUND_IN_DLL, "FUNCTION_NOT_FOUND_IN_DLL E 0");
  EXPECT_FALSE(isMapped(elsewhere.file("libALPHA.so"))) << "it was given back";
}

TEST_F(UnloadableTest, a_library_whose_own_exception_is_of_the_controllers_family_is_given_back) {
  start();
  lookElsewhere();
  std::filesystem::copy_file(TestSupport::modulePath("loader_throwing"),
                             elsewhere.file("libALPHA.so"));
  expectFailure(UNABLE_TO_ADD_TEST_REQUEST, "UNABLE_TO_ADD_TEST_REQUEST E 0");
  EXPECT_FALSE(isMapped(elsewhere.file("libALPHA.so")));
}

TEST_F(UnloadableTest, a_package_that_gives_no_object_keeps_its_library_open) {
  start();
  alpha.setHabits({.givesNoDiagnostics = true});
  expectFailure(UNABLE_TO_ADD_TEST_REQUEST, "UNABLE_TO_ADD_TEST_REQUEST E 0", true);
  harness.shutDown();
  EXPECT_TRUE(isMapped(harness.packages().libraryPath("ALPHA")));
}

TEST_F(UnloadableTest, a_package_that_throws_is_told_like_one_that_gives_no_object) {
  start();
  alpha.throwAt(Call::GetDiagnostics, "out of order");
  expectFailure(UNABLE_TO_ADD_TEST_REQUEST, "UNABLE_TO_ADD_TEST_REQUEST E 0");
  harness.shutDown();
  EXPECT_FALSE(isMapped(harness.packages().libraryPath("ALPHA"))) << "it was given back";
}

TEST_F(UnloadableTest, the_settings_copy_and_the_request_are_gone_and_the_next_one_is_queued) {
  start();
  alpha.setHabits({.givesNoDiagnostics = true});
  expectFailure(UNABLE_TO_ADD_TEST_REQUEST, "UNABLE_TO_ADD_TEST_REQUEST E 0", true);
  alpha.setHabits({});
  EXPECT_EQ(harness.queue("ALPHA", 1, {1}), 1U) << "no id was given away";
}

TEST_F(UnloadableTest, devices_before_the_one_that_fails_stay_queued_under_the_idle_phase) {
  start();
  int made = 0;
  alpha.on(Call::GetDiagnostics, [&](const Scripted::CallRecord&) {
    alpha.setHabits({.givesNoDiagnostics = ++made == 2});
  });
  auto settings = ControllerHarness::settings();
  VectorTestReqId* ids = nullptr;
  EXPECT_EQ(controller().queueTest(1, settings, ids), UNABLE_TO_ADD_TEST_REQUEST);
  EXPECT_THAT(*std::unique_ptr<VectorTestReqId>(ids), ElementsAre(1U));
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
  EXPECT_THAT(harness.requestIds(), ElementsAre(1U));
  EXPECT_TRUE(alpha.awaitRunning(1)) << "it starts all the same";
  EXPECT_EQ(alpha.count(Call::GetStatus), 0U) << "and is not polled";
  alpha.releaseRuns();
  const unsigned long later = harness.queue("ALPHA", 2, {1});
  EXPECT_TRUE(harness.awaitEnd(1) && harness.awaitEnd(later));
}

/// Ends its process itself: the loader keeps its lock once a library did not close.
class UnclosableTest : public UnloadableTest {
 protected:
  void TearDown() override { TestSupport::endTestProcess(HasFailure()); }

  TestSupport::PlatformAnswers platform;
};

TEST_F(UnclosableTest, a_library_that_cannot_be_given_back_changes_no_answer) {
  harness.trace();
  start();
  lookElsewhere();
  std::filesystem::copy_file(TestSupport::modulePath("loader_throwing"),
                             elsewhere.file("libALPHA.so"));
  ASSERT_EQ(controller().setDebugLog(DiagCtrl::DiagCtrlConstants::DIAG_ERROR), SUCCESS);
  platform.refuseToClose();
  auto settings = ControllerHarness::settings();
  unsigned long id = 77;
  EXPECT_EQ(controller().queueTest(1, 1, tests, settings, id), UNABLE_TO_ADD_TEST_REQUEST);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("UNABLE_TO_ADD_TEST_REQUEST E 0"));
  EXPECT_EQ(trace().count("STRING: DiagnosticController::queueRequest - "), 1U);
  expectNothingHeld();
}

// ---- What a request is made of --------------------------------------------------------------

TEST_F(QueueingTest, a_success_makes_the_controller_active_and_gives_ids_from_one_counter) {
  harness.addPackage("BETA");
  start();
  auto settings = ControllerHarness::settings();
  unsigned long id = 0;
  EXPECT_EQ(controller().queueTest(1, 1, tests, settings, true, id), SUCCESS);
  EXPECT_EQ(id, 1U);
  EXPECT_EQ(harness.phase(), DiagControllerStatus::ACTIVE);
  EXPECT_EQ(controller().queueTest(1, 1, tests, settings, id), SUCCESS);
  EXPECT_EQ(id, 2U);
  EXPECT_EQ(controller().queueTest(2, 1, settings, id), SUCCESS);
  EXPECT_EQ(id, 3U);
  EXPECT_THAT(harness.queuePackage("ALPHA"), ElementsAre(4U, 5U));
  EXPECT_THAT(harness.requestIds(), ElementsAre(1U, 2U, 3U, 4U, 5U));
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
}

TEST_F(QueueingTest, the_controller_becomes_active_only_after_the_package_was_loaded) {
  start();
  std::vector<DiagControllerStatus::diagCtrlPhase> phases;
  alpha.on(Call::GetDiagnostics,
           [&](const Scripted::CallRecord&) { phases.push_back(harness.phase()); });
  harness.queuePackage("ALPHA");
  EXPECT_THAT(phases, ElementsAre(DiagControllerStatus::IDLE, DiagControllerStatus::IDLE));
  EXPECT_EQ(harness.phase(), DiagControllerStatus::ACTIVE);
}

TEST_F(QueueingTest, tests_run_in_the_order_of_the_vector_which_the_client_may_change_at_once) {
  start();
  auto settings = ControllerHarness::settings();
  std::vector<int> wanted{3, 1, 3};
  unsigned long id = 0;
  ASSERT_EQ(controller().queueTest(1, 1, wanted, settings, id), SUCCESS);
  wanted.clear();
  ASSERT_TRUE(alpha.awaitCalls(Call::RunEnter));
  EXPECT_THAT(alpha.calls(Call::RunEnter)[0].tests, ElementsAre(3, 1, 3));
}

TEST_F(QueueingTest, without_tests_all_that_are_enabled_run_on_the_device) {
  start();
  harness.queueAllTests("ALPHA", 2);
  ASSERT_TRUE(alpha.awaitCalls(Call::RunEnter));
  EXPECT_THAT(alpha.calls(Call::RunEnter)[0].tests, ElementsAre(1, 2, 3));
  EXPECT_EQ(alpha.calls(Call::RunEnter)[0].device, "ALPHA-2");
}

TEST_F(QueueingTest, a_whole_package_is_one_request_for_each_device_in_order) {
  harness.control().parallel();
  start();
  const auto ids = harness.queuePackage("ALPHA");
  ASSERT_THAT(ids, SizeIs(2));
  for (const unsigned long id : ids) {
    const std::string device = "ALPHA-" + std::to_string(id);
    EXPECT_EQ(request(id).getDiagDeviceRef().getIDevice()->getDeviceName(), device);
    EXPECT_THAT(request(id).getTestIdList(), IsEmpty());
  }
}

TEST_F(QueueingTest, disabled_and_unknown_tests_are_queued_and_skipped_when_they_run) {
  harness.packages().writeConfig("ALPHA", PackageConfig(3).disableDevices(2, {"ALPHA-1"}));
  start();
  alpha.releaseRuns();
  const unsigned long id = harness.queue("ALPHA", 1, {2, 99, 1});
  ASSERT_TRUE(harness.awaitEnd(id));
  EXPECT_THAT(alpha.calls(Call::RunEnter)[0].tests, ElementsAre(1));
  EXPECT_THAT(harness.ctrlEventsOf(id),
              ElementsAre("DISABLE_TEST W", "DISABLE_TEST W", "DROP_REQUEST_ON_COMPLETION I"));
}

TEST_F(QueueingTest, settings_are_copied_before_the_call_returns) {
  start();
  auto settings = ControllerHarness::settings(4);
  settings.setStressMode(false);
  unsigned long id = 0;
  ASSERT_EQ(controller().queueTest(1, 1, tests, settings, id), SUCCESS);
  settings.setRequestedPassCount(99);
  settings.setStressMode(true);
  settings.setPassCount(50);
  TestRequest::TestRequestStatus status = TestRequest::WAIT;
  int pass = 0;
  int passes = 0;
  bool stress = true;
  ASSERT_EQ(controller().getRequestStatus(static_cast<long>(id), status, pass, passes, stress),
            SUCCESS);
  EXPECT_EQ(pass, 1);
  EXPECT_EQ(passes, 4);
  EXPECT_FALSE(stress);
}

TEST_F(QueueingTest, the_pass_count_is_copied_as_the_client_left_it) {
  start();
  auto settings = ControllerHarness::settings(9);
  settings.setPassCount(5);
  const unsigned long id = harness.queue("ALPHA", 1, {1}, settings);
  EXPECT_EQ(request(id).getDiagnosticSettings()->getPassCount(), 5);
}

TEST_F(QueueingTest, two_requests_of_one_settings_object_count_their_own_passes) {
  start();
  auto settings = ControllerHarness::settings(3);
  unsigned long first = 0;
  unsigned long second = 0;
  ASSERT_EQ(controller().queueTest(1, 1, tests, settings, first), SUCCESS);
  ASSERT_EQ(controller().queueTest(1, 2, tests, settings, second), SUCCESS);
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(first) && harness.awaitEnd(second));
  EXPECT_EQ(settings.getPassCount(), 1);
  EXPECT_THAT(alpha.calls(Call::RunEnter), SizeIs(6));
}

TEST_F(QueueingTest, halting_comes_from_the_flag_or_the_run_wide_setting_not_from_the_settings) {
  start();
  auto settings = ControllerHarness::settings();
  settings.setHaltOnError(true);
  unsigned long id = 0;
  ASSERT_EQ(controller().queueTest(1, 1, tests, settings, false, id), SUCCESS);
  EXPECT_FALSE(request(id).getHaltLoopOnError());
  ASSERT_EQ(controller().queueTest(1, 1, tests, settings, id), SUCCESS);
  EXPECT_FALSE(request(id).getHaltLoopOnError());
  settings.setHaltOnError(false);
  ASSERT_EQ(controller().queueTest(1, 1, tests, settings, true, id), SUCCESS);
  EXPECT_TRUE(request(id).getHaltLoopOnError());
}

TEST_F(QueueingTest, the_run_wide_setting_holds_for_three_forms) {
  harness.control().haltOnError();
  start();
  auto settings = ControllerHarness::settings();
  unsigned long id = 0;
  ASSERT_EQ(controller().queueTest(1, 1, tests, settings, id), SUCCESS);
  EXPECT_TRUE(request(id).getHaltLoopOnError());
  ASSERT_EQ(controller().queueTest(1, 1, settings, id), SUCCESS);
  EXPECT_TRUE(request(id).getHaltLoopOnError());
  for (const unsigned long each : harness.queuePackage("ALPHA")) {
    EXPECT_TRUE(request(each).getHaltLoopOnError());
  }
  ASSERT_EQ(controller().queueTest(1, 1, tests, settings, false, id), SUCCESS);
  EXPECT_FALSE(request(id).getHaltLoopOnError());
}

TEST_F(QueueingTest, each_request_has_an_object_of_its_own_made_with_the_present_modes) {
  start();
  alpha.clearLog();
  EXPECT_EQ(controller().setDiagLogMode(true), SUCCESS);
  EXPECT_EQ(controller().setDiagnosticMode(GlobalSettings::FACTORY), SUCCESS);
  harness.queue("ALPHA", 1, {1});
  harness.queue("ALPHA", 1, {1});
  const auto made = alpha.calls(Call::GetDiagnostics);
  ASSERT_THAT(made, SizeIs(2));
  EXPECT_TRUE(made[1].diagLog);
  EXPECT_EQ(made[1].diagMode, static_cast<unsigned int>(GlobalSettings::FACTORY));
  EXPECT_EQ(alpha.living().diagnostics, 2);
  EXPECT_THAT(alpha.calls(Call::SetConfigFile), IsEmpty()) << "that is enumeration's alone";
  EXPECT_THAT(alpha.calls(Call::GetEnumerator), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Queueing
