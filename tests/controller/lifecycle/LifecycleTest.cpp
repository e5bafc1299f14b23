// Start, stop and health of the controller.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/ExecutionManagerThread.h"
#include "DiagCtrl/TestRequestManager.h"
#include "tests/support/BigLock.h"
#include "tests/support/ControllerTest.h"
#include "tests/support/CtrlEventTap.h"
#include "tests/support/Eventually.h"
#include "tests/support/PlatformAnswers.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/ProcessMaps.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/ThreadCount.h"
#include "tests/support/ThreadCreation.h"
#include "tests/support/ThreadState.h"
#include "tests/support/TraceFile.h"
#include "tests/support/WaitPlace.h"

TARVEX_PRIVATE_MEMBER(ExecQueueLockTag, DiagCtrl::TestRequestManager::mmtxTestReqExecLock);
TARVEX_PRIVATE_MEMBER(DispatcherTag, DiagCtrl::DiagnosticController::mpExecMgrThread);
TARVEX_PRIVATE_MEMBER(AbortAllFlagTag, DiagCtrl::DiagnosticController::mbAbortAllFlag);

namespace TarvexDiags::Lifecycle {
namespace {

using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagCtrlConstants;
using DiagCtrl::DiagnosticController;
using DiagCtrl::GlobalSettings;
using DiagCtrl::TestRequest;
using Scripted::Call;
using Scripted::CallRecord;
using Scripted::Living;
using Scripted::Script;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsNull;
using ::testing::Not;
using ::testing::NotNull;
using TestSupport::anyThreadWaitsAt;
using TestSupport::Companion;
using TestSupport::ControlFile;
using TestSupport::ControllerHarness;
using TestSupport::ControllerTest;
using TestSupport::CtrlEventTap;
using TestSupport::eventually;
using TestSupport::isMapped;
using TestSupport::PackageConfig;
using TestSupport::PlatformAnswers;
using TestSupport::privateMember;
using TestSupport::threadCount;
using TestSupport::ThreadCreation;
using TestSupport::threadsComeTo;
using TestSupport::TraceFile;
using TestSupport::waitPlaceOf;
using namespace std::chrono_literals;
using enum DiagnosticController::errorCode;
using Phase = DiagControllerStatus;

class LifecycleTest : public ControllerTest {
 protected:
  /// A control file beside the harness's own.
  std::string write(const ControlFile& file) {
    return file.writeTo(harness.directory(), "other.cfg");
  }
  ControlFile goodFile() { return ControlFile().packDirPath(harness.packages().path()); }
  std::string badFile() { return write(goodFile().without("RunMode")); }

  /// Whether the controller can be started and used.
  void expectToWork() {
    ASSERT_EQ(controller().initialize(write(goodFile()).c_str()), SUCCESS);
    EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
    EXPECT_EQ(controller().shutDown(), SUCCESS);
  }

  std::unique_ptr<DiagControllerStatus> health() {
    DiagControllerStatus* status = nullptr;
    EXPECT_EQ(controller().getDiagControllerStatus(status), SUCCESS);
    return std::unique_ptr<DiagControllerStatus>(status);
  }

  /// The methods that the calling thread has entered since the trace had that many lines.
  std::vector<std::string> entered(std::size_t from = 0) {
    std::vector<std::string> methods;
    const auto texts = trace().texts();
    for (std::size_t line = from; line < texts.size(); ++line) {
      if (texts[line].rfind(DiagCtrlConstants::mpcSEnterString, 0) == 0) {
        methods.push_back(
            texts[line].substr(std::string(DiagCtrlConstants::mpcSEnterString).size()));
      }
    }
    return methods;
  }

  const long threadsBefore = TestSupport::threadCountAfterFirst();
};

///  The names, in the order in which they first stand in the list; those that do not are left out.
std::vector<std::string> orderOf(const std::vector<std::string>& names,
                                 const std::vector<std::string>& list) {
  std::vector<std::string> found;
  for (const std::string& entry : list) {
    const bool isNew = std::find(found.begin(), found.end(), entry) == found.end();
    if (isNew && std::find(names.begin(), names.end(), entry) != names.end()) {
      found.push_back(entry);
    }
  }
  return found;
}

// ---- The object ------------------------------------------------------------------------------

TEST_F(LifecycleTest, a_fresh_controller_is_uninitialised_and_its_threads_count_as_unhealthy) {
  const auto status = health();
  EXPECT_EQ(status->getDiagCtrlPhase(-1), Phase::UNINITIALISED);
  EXPECT_FALSE(status->getExecMgrThrHealth());
  EXPECT_FALSE(status->getMonThrHealth());
  EXPECT_FALSE(controller().getShutDownFlag());
  EXPECT_EQ(threadCount(), threadsBefore);
}

TEST_F(LifecycleTest, the_phase_is_read_alike_whatever_the_time_out) {
  harness.initialize();
  for (const long timeOut : {-1L, 0L, 200L}) {
    EXPECT_EQ(controller().getDiagCtrlPhase(timeOut), Phase::INITIALIZE);
  }
}

TEST_F(LifecycleTest, the_machinery_is_there_from_initialize_to_shut_down_only) {
  const auto pointers = [&] {
    return std::vector<const void*>{
        controller().getGlobalSettingsPtr(), controller().getEventMgrPtr(),
        controller().getDiagPackInterfacePtr(), controller().getTestRequestMgrPtr()};
  };
  EXPECT_THAT(pointers(), Each(IsNull()));
  harness.initialize();
  EXPECT_THAT(pointers(), Each(NotNull()));
  harness.shutDown();
  EXPECT_THAT(pointers(), Each(IsNull()));
}

// ---- initialize ------------------------------------------------------------------------------

TEST_F(LifecycleTest, a_null_file_name_is_refused_in_any_phase_and_changes_nothing) {
  harness.addPackage("ALPHA");
  const auto expectRefused = [&] {
    const auto phase = harness.phase();
    const CtrlEventTap tap;
    EXPECT_EQ(controller().initialize(nullptr), INVALID_FILE_NAME_PASSED);
    EXPECT_EQ(harness.phase(), phase);
    EXPECT_THAT(tap.take(), IsEmpty());
  };
  expectRefused();
  harness.initialize();
  expectRefused();
  harness.enumerate();
  expectRefused();
  auto mode = GlobalSettings::PARALLEL;
  EXPECT_EQ(controller().getRunMode(mode), SUCCESS);
  EXPECT_EQ(mode, GlobalSettings::SERIAL);
  EXPECT_EQ(controller().resetDiagController(), SUCCESS) << "the path is kept";
}

TEST_F(LifecycleTest, a_file_without_a_required_key_is_refused_and_another_one_may_follow) {
  const ControlFile files[] = {
      goodFile().without("PackDirPath"),    goodFile().with("PackDirPath", ""),
      goodFile().without("RunMode"),        goodFile().with("RunMode", "SIDEWAYS"),
      goodFile().without("HaltOnError"),    goodFile().with("HaltOnError", "1"),
      goodFile().without("DiagnosticMode"), goodFile().with("DiagnosticMode", "SALES"),
  };
  for (const ControlFile& file : files) {
    const CtrlEventTap tap;
    EXPECT_EQ(controller().initialize(write(file).c_str()), INITIALISATION_FAILED) << file.text();
    EXPECT_EQ(harness.phase(), Phase::UNINITIALISED);
    EXPECT_THAT(tap.take(), IsEmpty());
    EXPECT_THAT(controller().getGlobalSettingsPtr(), IsNull());
  }
  EXPECT_EQ(controller().initialize("/nonexistent/control.cfg"), INITIALISATION_FAILED);
  EXPECT_EQ(controller().resetDiagController(), INCORRECT_PHASE);
  expectToWork();
}

TEST_F(LifecycleTest, the_four_required_keys_are_enough_to_start) {
  const TestSupport::TemporaryDirectory workingDirectory;
  ASSERT_EQ(chdir(workingDirectory.path().c_str()), 0);
  ASSERT_EQ(controller().initialize(write(goodFile()).c_str()), SUCCESS);
  auto level = DiagCtrlConstants::DIAG_INFORMATION;
  EXPECT_EQ(controller().getDebugLog(level), SUCCESS);
  EXPECT_EQ(level, DiagCtrlConstants::DIAG_NO);
  bool diagLog = true;
  EXPECT_EQ(controller().getDiagLogMode(diagLog), SUCCESS);
  EXPECT_FALSE(diagLog);
  EXPECT_FALSE(std::ifstream(TraceFile(workingDirectory.path()).path()).is_open());
}

TEST_F(LifecycleTest, without_a_log_directory_the_trace_lies_in_the_working_directory) {
  const TestSupport::TemporaryDirectory workingDirectory;
  ASSERT_EQ(chdir(workingDirectory.path().c_str()), 0);
  Script& alpha = harness.addPackage("ALPHA");
  harness.control().with("DebugLog", "DIAG_INFORMATION");
  harness.start();
  EXPECT_TRUE(TraceFile(workingDirectory.path())
                  .contains("@enter DiagnosticController::enumerateAllPackages"));
  ASSERT_EQ(alpha.calls(Call::SetLogDir).size(), 1U);
  EXPECT_EQ(alpha.calls(Call::SetLogDir)[0].text, "<null>");
}

TEST_F(LifecycleTest, a_trace_file_that_cannot_be_opened_is_forgiven) {
  harness.control().traced("/nonexistent/logs");
  EXPECT_NO_THROW(harness.initialize());
  EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
}

TEST_F(LifecycleTest, the_managers_stand_before_the_first_thread_and_the_loader_before_the_second) {
  const std::string path = write(goodFile());
  std::vector<std::string> log;
  ThreadCreation creation;
  creation.watch([&](int number) {
    const auto say = [](const void* object) { return object != nullptr ? "+" : "-"; };
    log.push_back(std::to_string(number) + ": events" + say(controller().getEventMgrPtr()) +
                  " requests" + say(controller().getTestRequestMgrPtr()) + " loader" +
                  say(controller().getDiagPackInterfacePtr()) + " " +
                  TestSupport::nameOf(harness.phase()));
  });
  ASSERT_EQ(controller().initialize(path.c_str()), SUCCESS);
  EXPECT_THAT(log, ElementsAre("1: events+ requests+ loader- UNINITIALISED",
                               "2: events+ requests+ loader+ UNINITIALISED"));
}

TEST_F(LifecycleTest, a_refused_thread_of_either_kind_undoes_the_start_under_the_same_code) {
  harness.trace();
  const std::string path = harness.control().writeTo(harness.directory());
  for (const int refused : {1, 2}) {
    ThreadCreation creation;
    creation.refuse(refused);
    EXPECT_EQ(controller().initialize(path.c_str()), UNABLE_TO_INIT_MONI_THREAD);
    EXPECT_EQ(creation.wanted(), refused);
    EXPECT_EQ(harness.phase(), Phase::UNINITIALISED);
    EXPECT_THAT(controller().getGlobalSettingsPtr(), IsNull());
    EXPECT_THAT(controller().getEventMgrPtr(), IsNull());
    EXPECT_THAT(controller().getTestRequestMgrPtr(), IsNull());
    EXPECT_THAT(controller().getDiagPackInterfacePtr(), IsNull());
    EXPECT_TRUE(threadsComeTo(threadsBefore)) << "the thread that did start was ended";
    EXPECT_EQ(trace().count("UNABLE_TO_INIT_MONI_THREAD: "), static_cast<std::size_t>(refused));
  }
  EXPECT_EQ(controller().shutDown(), SUCCESS);
  expectToWork();
}

TEST_F(LifecycleTest, without_a_name_of_the_operating_system_nothing_starts_and_a_retry_may) {
  harness.trace();
  const std::string path = harness.control().writeTo(harness.directory());
  PlatformAnswers platform;
  platform.setOs("");
  EXPECT_EQ(controller().initialize(path.c_str()), UNABLE_TO_GET_OS);
  EXPECT_TRUE(trace().contains("UNABLE_TO_GET_OS: "));
  EXPECT_EQ(harness.phase(), Phase::UNINITIALISED);
  EXPECT_THAT(controller().getEventMgrPtr(), IsNull());
  EXPECT_THAT(controller().getGlobalSettingsPtr(), NotNull()) << "what was read stays";
  EXPECT_EQ(threadCount(), threadsBefore);
  platform.setOs(std::nullopt);
  EXPECT_EQ(controller().shutDown(), SUCCESS);
  expectToWork();
}

TEST_F(LifecycleTest, a_second_initialize_reads_the_file_and_opens_the_trace_before_it_is_refused) {
  harness.addPackage("ALPHA");
  harness.trace();
  harness.start();
  const auto emptyLines = [&] {
    const auto lines = trace().rawLines();
    return std::count(lines.begin(), lines.end(), "");
  };
  const auto before = emptyLines();
  const std::string other =
      write(goodFile().parallel().without("LogDirPath").with("DebugLog", "DIAG_INFORMATION"));
  EXPECT_EQ(controller().initialize(other.c_str()), INCORRECT_PHASE);
  EXPECT_EQ(emptyLines(), before + 2) << "in the file that is open";
  EXPECT_TRUE(trace().contains("WARNING: No LogDirPath specified"));
  EXPECT_TRUE(trace().contains("INCORRECT PHASE:"));
  auto mode = GlobalSettings::SERIAL;
  EXPECT_EQ(controller().getRunMode(mode), SUCCESS);
  EXPECT_EQ(mode, GlobalSettings::PARALLEL) << "the settings are the new ones";
  EXPECT_EQ(harness.phase(), Phase::IDLE);
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  EXPECT_TRUE(harness.awaitEnd(id)) << "the threads go on";
}

TEST_F(LifecycleTest, an_initialize_that_waited_for_another_one_is_refused) {
  const std::string path = write(goodFile());
  std::unique_ptr<Companion> other;
  auto result = SUCCESS;
  ThreadCreation creation;
  creation.watch([&](int number) {
    if (number == 1) {
      other = std::make_unique<Companion>([&] { result = controller().initialize(path.c_str()); });
      EXPECT_TRUE(waitsForBigLock(*other));
    }
  });
  EXPECT_EQ(controller().initialize(path.c_str()), SUCCESS);
  ASSERT_TRUE(other->ends());
  EXPECT_EQ(result, INCORRECT_PHASE);
  EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
  other.reset();
  EXPECT_TRUE(threadsComeTo(threadsBefore + 2)) << "one dispatcher, one monitor";
}

// ---- A second initialize with a bad file -------------------------------------------------------

class AfterBadFileTest : public LifecycleTest {
 protected:
  void start() {
    harness.addPackage("ALPHA", PackageConfig(2).token("Error", 7, "TOKEN"));
    harness.packages().addLanguage("ALPHA", "en", {{"TOKEN", "text"}});
    harness.trace();
    harness.start();
  }
  void loseSettings() {
    EXPECT_EQ(controller().initialize(badFile().c_str()), INITIALISATION_FAILED);
    harness.forget();
  }
};

TEST_F(AfterBadFileTest, a_running_controller_loses_its_settings_and_stays_in_its_phase) {
  start();
  EXPECT_EQ(controller().initialize(badFile().c_str()), INITIALISATION_FAILED);
  EXPECT_TRUE(trace().contains("INITIALISATION_FAILED: Read CFG file failed"));
  EXPECT_THAT(controller().getGlobalSettingsPtr(), IsNull());
  EXPECT_EQ(harness.phase(), Phase::IDLE);
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
}

TEST_F(AfterBadFileTest, settings_can_neither_be_read_nor_written) {
  start();
  loseSettings();
  auto level = DiagCtrlConstants::DIAG_NO;
  auto runMode = GlobalSettings::SERIAL;
  auto diagMode = GlobalSettings::CUSTOMER;
  bool flag = false;
  DiagnosticController& c = controller();
  EXPECT_EQ(c.getDebugLog(level), UNABLE_TO_GET_LOCK);
  EXPECT_EQ(c.getRunMode(runMode), UNABLE_TO_GET_LOCK);
  EXPECT_EQ(c.getDiagLogMode(flag), UNABLE_TO_GET_LOCK);
  EXPECT_EQ(c.getHaltOnError(flag), UNABLE_TO_GET_LOCK);
  EXPECT_EQ(c.getDiagnosticMode(diagMode), UNABLE_TO_GET_LOCK);
  EXPECT_EQ(c.setDebugLog(DiagCtrlConstants::DIAG_NO), UNABLE_TO_GET_LOCK);
  EXPECT_EQ(c.setRunMode(GlobalSettings::SERIAL), UNABLE_TO_GET_LOCK);
  EXPECT_EQ(c.setDiagLogMode(false), UNABLE_TO_GET_LOCK);
  EXPECT_EQ(c.setHaltOnError(false), UNABLE_TO_GET_LOCK);
  EXPECT_EQ(c.setDiagnosticMode(GlobalSettings::CUSTOMER), UNABLE_TO_GET_LOCK);
  EXPECT_THAT(harness.ctrlEvents(), ::testing::Each("UNABLE_TO_GET_LOCK E 0"));
  EXPECT_EQ(harness.ctrlEvents().size(), 10U);
}

TEST_F(AfterBadFileTest, nothing_can_be_queued_in_any_form) {
  start();
  loseSettings();
  auto settings = ControllerHarness::settings();
  std::vector<int> tests{1};
  unsigned long id = 5;
  DiagCtrl::VectorTestReqId* ids = nullptr;
  DiagnosticController& c = controller();
  EXPECT_EQ(c.queueTest(1, 1, tests, settings, true, id), UNABLE_TO_ADD_TEST_REQUEST);
  EXPECT_EQ(c.queueTest(1, 1, tests, settings, id), UNABLE_TO_ADD_TEST_REQUEST);
  EXPECT_EQ(c.queueTest(1, 1, settings, id), UNABLE_TO_ADD_TEST_REQUEST);
  EXPECT_EQ(c.queueTest(1, settings, ids), UNABLE_TO_ADD_TEST_REQUEST);
  delete ids;
  EXPECT_THAT(harness.ctrlEvents(), ::testing::Each("UNABLE_TO_ADD_TEST_REQUEST E 0"));
  EXPECT_EQ(harness.ctrlEvents().size(), 4U);
  EXPECT_EQ(harness.phase(), Phase::IDLE);
}

TEST_F(AfterBadFileTest, tokens_and_texts_are_not_found) {
  start();
  loseSettings();
  char* text = nullptr;
  char key[] = "Mnemonic";
  char english[] = "en";
  char token[] = "TOKEN";
  DiagCtrl::ParamStringVector parameters;
  DiagnosticController& c = controller();
  const auto error = Diag::DiagnosticEvent::ERROR_EVENT;
  EXPECT_EQ(c.getTestToken(1, 1, key, text), INVALID_PARAMETER);
  EXPECT_EQ(c.getPackageToken(1, key, text), INVALID_PARAMETER);
  EXPECT_EQ(c.getMessageToken(1, error, 7, text), INVALID_PARAMETER);
  EXPECT_EQ(c.getDeviceStatusToken(1, 0, text), INVALID_PARAMETER);
  EXPECT_THAT(harness.ctrlEvents(), ::testing::Each("INVALID_PARAMETER_IN_INI_FILE E 0"));
  harness.forget();
  EXPECT_EQ(c.getLocalizedString(1, english, token, text), INVALID_PARAMETER);
  EXPECT_EQ(c.getLocalizedMessage(1, english, token, parameters, text), INVALID_PARAMETER);
  EXPECT_THAT(harness.ctrlEvents(), ::testing::Each("INVALID_PARAMETER_INI_FILE E 0"));
  EXPECT_THAT(text, IsNull());
}

TEST_F(AfterBadFileTest, a_package_cannot_be_enumerated_again) {
  start();
  loseSettings();
  EXPECT_EQ(controller().enumerateDiagPackages(1), PACKAGE_INITIALIZE_FAILED);
  EXPECT_EQ(harness.phase(), Phase::IDLE);
  EXPECT_FALSE(trace().contains(" /ALPHA.cfg ")) << "nothing is looked for at the root";
}

TEST_F(AfterBadFileTest, packages_cannot_be_enumerated_at_all) {
  harness.addPackage("ALPHA");
  harness.initialize();
  EXPECT_EQ(controller().initialize(badFile().c_str()), INITIALISATION_FAILED);
  EXPECT_EQ(controller().enumerateAllPackages(), INVALID_VALUE_IN_CONFIG_FILE);
  EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
  EXPECT_EQ(controller().enumerateByPackageClass({"SCRIPTED"}), INVALID_VALUE_IN_CONFIG_FILE);
}

TEST_F(AfterBadFileTest, what_runs_ends_and_the_controller_can_be_stopped_and_started) {
  start();
  const unsigned long id = harness.queue("ALPHA", 1, {1}, ControllerHarness::settings(2));
  loseSettings();
  EXPECT_TRUE(harness.awaitEnd(id)) << "the threads go on with the old settings";
  EXPECT_EQ(controller().shutDown(), SUCCESS);
  expectToWork();
}

TEST_F(AfterBadFileTest, a_reset_finds_no_file_and_leaves_the_controller_stopped) {
  start();
  loseSettings();
  EXPECT_EQ(controller().resetDiagController(), INVALID_FILE_NAME_PASSED);
  EXPECT_EQ(harness.phase(), Phase::UNINITIALISED);
  expectToWork();
}

// ---- shutDown --------------------------------------------------------------------------------

TEST_F(LifecycleTest, a_controller_that_is_not_running_shuts_down_as_often_as_asked) {
  EXPECT_EQ(controller().shutDown(), SUCCESS);
  harness.initialize();
  EXPECT_EQ(controller().shutDown(), SUCCESS);
  EXPECT_EQ(controller().shutDown(), SUCCESS);
  EXPECT_EQ(harness.phase(), Phase::UNINITIALISED);
  EXPECT_FALSE(controller().getShutDownFlag());
  EXPECT_THAT(controller().getEventMgrPtr(), IsNull());
}

TEST_F(LifecycleTest, an_active_controller_is_taken_down_in_a_fixed_order) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.trace();
  harness.start();
  alpha.holdRuns();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const std::size_t lines = trace().texts().size();
  EXPECT_EQ(harness.shutDown(), SUCCESS);
  const std::vector<std::string> steps = {
      "DiagnosticController::shutDown",
      "DiagnosticController::abortAllTest",
      "ResourceLockManager::resetResourceLockMap",
      "TestRequestManager::clearTestRequestIdList",
      "MonitorThread::stop",
      "ExecutionManagerThread::stop",
      "ExecutionManagerThread::~ExecutionManagerThread",
      "TestRequestManager::clearTestRequestMap",
      "TestRequest::~TestRequest",
      "EventManager::clearCtrlEventQueues",
      "EventManager::clearResultQueues",
      "EventManager::clearEventQueues",
      "DiagnosticPackage::getPackageHandle",
      "DiagnosticPackage::~DiagnosticPackage",
      "TestRequestManager::~TestRequestManager",
      "DiagControllerStatus::setDiagCtrlPhase",
  };
  EXPECT_EQ(orderOf(steps, entered(lines)), steps);
  EXPECT_THAT(alpha.calls(Call::Abort), ::testing::SizeIs(1));
}

TEST_F(LifecycleTest, an_idle_controller_aborts_nothing_on_its_way_down) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.trace();
  harness.start();
  const std::size_t lines = trace().texts().size();
  EXPECT_EQ(harness.shutDown(), SUCCESS);
  const auto methods = entered(lines);
  for (const char* method :
       {"DiagnosticController::abortAllTest", "ResourceLockManager::resetResourceLockMap",
        "DiagnosticController::abortRequest"}) {
    EXPECT_THAT(methods, Not(Contains(method)));
  }
  EXPECT_THAT(orderOf({"TestRequestManager::clearTestRequestIdList",
                       "TestRequestManager::clearTestRequestMap"},
                      methods),
              ElementsAre("TestRequestManager::clearTestRequestMap",
                          "TestRequestManager::clearTestRequestIdList"))
      << "only as a part of the teardown";
  EXPECT_FALSE(trace().contains("UNABLE_TO_ABORT_TESTS"));
  EXPECT_THAT(alpha.calls(Call::Abort), IsEmpty());
}

TEST_F(LifecycleTest, a_shut_down_leaves_no_object_of_a_package_and_no_library) {
  Script& alpha = harness.addPackage("ALPHA", PackageConfig(2));
  alpha.setDevices(3);
  harness.control().parallel();
  harness.start();
  alpha.holdRunsOn("ALPHA-1");
  harness.queuePackage("ALPHA");
  ASSERT_TRUE(alpha.awaitCalls(Call::RunEnter, 3));
  EXPECT_TRUE(isMapped(harness.packages().libraryPath("ALPHA")));
  EXPECT_EQ(harness.shutDown(), SUCCESS);
  EXPECT_EQ(alpha.living(), Living{});
  EXPECT_FALSE(isMapped(harness.packages().libraryPath("ALPHA")));
  EXPECT_TRUE(threadsComeTo(threadsBefore));
}

TEST_F(LifecycleTest, a_shut_down_waits_for_a_package_that_takes_its_time) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  alpha.everyPass({.duration = 1h, .unwinding = 300ms});
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_EQ(harness.shutDown(), SUCCESS);
  EXPECT_EQ(alpha.calls(Call::RunReturn).size(), 1U);
  EXPECT_EQ(alpha.living(), Living{});
}

TEST_F(LifecycleTest, a_package_that_throws_on_abort_does_not_stop_a_shut_down) {
  Script& alpha = harness.addPackage("ALPHA");
  Script& beta = harness.addPackage("BETA");
  harness.control().parallel();
  harness.trace();
  harness.start();
  alpha.holdRuns().on(Call::Abort, [&](const CallRecord&) {
    alpha.releaseRuns();  // the pass goes on to its end: it was told nothing
    throw std::runtime_error("no");
  });
  beta.holdRuns();
  harness.queue("ALPHA", 1, {1});
  harness.queue("BETA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1) && beta.awaitRunning(1));
  EXPECT_EQ(harness.shutDown(), SUCCESS);
  EXPECT_EQ(harness.phase(), Phase::UNINITIALISED);
  EXPECT_THAT(alpha.calls(Call::Abort), ::testing::SizeIs(1));
  EXPECT_THAT(beta.calls(Call::Abort), ::testing::SizeIs(1)) << "the others are told all the same";
}

TEST_F(LifecycleTest, an_abort_that_fails_is_told_and_the_shut_down_goes_on) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.trace();
  harness.start();
  alpha.holdRuns();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  TestSupport::privateMember<AbortAllFlagTag>(controller()) = true;
  const CtrlEventTap tap;
  std::vector<std::string> told;
  Companion stopper([&] { EXPECT_EQ(harness.shutDown(), SUCCESS); });
  EXPECT_TRUE(eventually([&] {
    const auto events = tap.take();
    told.insert(told.end(), events.begin(), events.end());
    return told.size() >= 2;
  }));
  EXPECT_THAT(told, ElementsAre("ABORT_ALL_ALREADY_IN_PROCESS W 0", "UNABLE_TO_ABORT_TESTS E 0"));
  alpha.releaseRuns();
  ASSERT_TRUE(stopper.ends());
  EXPECT_TRUE(trace().contains("UNABLE_TO_ABORT_TESTS: "));
  EXPECT_FALSE(TestSupport::privateMember<AbortAllFlagTag>(controller()));
  EXPECT_EQ(alpha.living(), Living{});
}

TEST_F(LifecycleTest, threads_that_cannot_be_joined_are_traced_and_the_shut_down_goes_on) {
  harness.addPackage("ALPHA");
  harness.trace();
  harness.start();
  {
    PlatformAnswers platform;
    platform.failJoins();
    EXPECT_EQ(harness.shutDown(), SUCCESS);
  }
  EXPECT_EQ(trace().count("WARNING: DiagCtrlUnsupportedOperation"), 2U) << "of either thread";
  EXPECT_EQ(harness.phase(), Phase::UNINITIALISED);
  EXPECT_THAT(controller().getTestRequestMgrPtr(), IsNull());
  expectToWork();
}

TEST_F(LifecycleTest, registered_objects_stay_the_clients_own) {
  harness.addPackage("ALPHA");
  harness.start();
  harness.shutDown();
  EXPECT_NO_THROW(harness.callBack().notify());
  harness.initialize();
  unsigned int events = 9;
  unsigned int results = 9;
  unsigned int ctrlEvents = 9;
  EXPECT_EQ(controller().getNumberOfRegistrations(events, results, ctrlEvents), SUCCESS);
  EXPECT_EQ(events + results + ctrlEvents, 0U);
}

TEST_F(LifecycleTest, requests_and_registrations_count_from_one_in_each_run) {
  harness.addPackage("ALPHA");
  for (int run = 0; run < 2; ++run) {
    harness.start();
    EXPECT_EQ(harness.eventRegistration(), 1U);
    EXPECT_EQ(harness.resultRegistration(), 1U);
    EXPECT_EQ(harness.ctrlEventRegistration(), 1U);
    EXPECT_EQ(harness.queue("ALPHA", 1, {1}), 1U);
    EXPECT_EQ(harness.queue("ALPHA", 1, {1}), 2U);
    harness.shutDown();
  }
}

TEST_F(LifecycleTest, a_library_that_does_not_close_is_traced) {
  harness.addPackage("ALPHA");
  harness.trace();
  harness.start();
  PlatformAnswers platform;
  platform.refuseToClose();
  std::thread([this] { harness.shutDown(); }).detach();
  EXPECT_TRUE(
      eventually([&] { return trace().contains("WARNING: DiagCtrlReleaseLibraryFailed"); }));
  TestSupport::endTestProcess(HasFailure());  // the loader keeps its lock after that
}

TEST_F(LifecycleTest, a_shut_down_ends_an_enumeration_between_two_packages) {
  Script& alpha = harness.addPackage("ALPHA");
  Script& beta = harness.addPackage("BETA");
  harness.initialize();
  std::unique_ptr<Companion> stopper;
  alpha.on(Call::GetDevices, [&](const CallRecord&) {
    stopper = std::make_unique<Companion>([&] { controller().shutDown(); });
    EXPECT_TRUE(eventually([&] { return controller().getShutDownFlag(); }));
    EXPECT_FALSE(stopper->ended());
  });
  EXPECT_EQ(controller().enumerateAllPackages(), SUCCESS);
  ASSERT_TRUE(stopper->ends());
  EXPECT_THAT(beta.calls(), IsEmpty());
  EXPECT_EQ(harness.phase(), Phase::UNINITIALISED);
  EXPECT_EQ(alpha.living(), Living{});
}

TEST_F(LifecycleTest, the_trace_goes_on_in_the_old_file_after_a_new_start) {
  harness.trace();
  harness.initialize();
  harness.shutDown();
  const TestSupport::TemporaryDirectory elsewhere;
  ASSERT_EQ(controller().initialize(write(goodFile().traced(elsewhere.path())).c_str()), SUCCESS);
  EXPECT_FALSE(std::ifstream(TraceFile(elsewhere.path()).path()).is_open());
  EXPECT_EQ(trace().count("@enter DiagnosticController::initialize"), 1U)
      << "the first start has no file yet as it begins";
}

// ---- Health ----------------------------------------------------------------------------------

/// Keeps the controller's threads, which have nothing to do, at locks that they take behind their
/// time stamps: while it lives there are no new ones.
class ThreadsAtRest {
 public:
  explicit ThreadsAtRest(DiagCtrl::TestRequestManager& requests)
      : m_ofDispatcher(requests.mmtxTestReqChangeLock),
        m_ofMonitor(privateMember<ExecQueueLockTag>(requests)) {
    m_ofDispatcher.lock(-1);
    m_ofMonitor.lock(-1);
    requests.getCondVarTRWaitQueue().signal();
    requests.getCondVarTRExecQueue().signal();
    EXPECT_TRUE(eventually([this] {
      return anyThreadWaitsAt(waitPlaceOf(m_ofDispatcher)) &&
             anyThreadWaitsAt(waitPlaceOf(m_ofMonitor));
    }));
  }
  ~ThreadsAtRest() {
    m_ofMonitor.unlock();
    m_ofDispatcher.unlock();
  }
  ThreadsAtRest(const ThreadsAtRest&) = delete;
  ThreadsAtRest& operator=(const ThreadsAtRest&) = delete;

 private:
  DiagCtrl::DiagCtrlLock& m_ofDispatcher;
  DiagCtrl::DiagCtrlLock& m_ofMonitor;
};

TEST_F(LifecycleTest, each_record_of_the_health_is_a_new_object_of_the_clients) {
  harness.initialize();
  const auto first = health();
  const auto second = health();
  EXPECT_NE(first.get(), second.get());
  EXPECT_TRUE(first->getExecMgrThrHealth());
  EXPECT_TRUE(first->getMonThrHealth());
  EXPECT_EQ(first->getDiagCtrlPhase(-1), Phase::INITIALIZE);
  harness.shutDown();
  EXPECT_EQ(second->getDiagCtrlPhase(-1), Phase::INITIALIZE) << "a copy does not follow";
  EXPECT_FALSE(health()->getMonThrHealth());
}

TEST_F(LifecycleTest, a_thread_is_healthy_for_ten_seconds_after_its_last_time_stamp) {
  harness.initialize();
  const ThreadsAtRest rest(*controller().getTestRequestMgrPtr());
  PlatformAnswers platform;
  platform.setClockAhead(5);
  EXPECT_TRUE(health()->getExecMgrThrHealth());
  EXPECT_TRUE(health()->getMonThrHealth());
  platform.setClockAhead(11);
  const auto stale = health();
  EXPECT_FALSE(stale->getExecMgrThrHealth());
  EXPECT_FALSE(stale->getMonThrHealth());
}

TEST_F(LifecycleTest, a_stamp_of_ten_seconds_is_too_old) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  alpha.holdRuns();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const auto age = [&] {  // of the dispatcher, which waits for the test and stamps no more
    return std::time(nullptr) -
           static_cast<time_t>(privateMember<DispatcherTag>(controller())->getLastUpdatedTime());
  };
  PlatformAnswers platform;
  ASSERT_TRUE(eventually([&] {
    platform.setClockAhead(0);
    platform.setClockAhead(9 - age());
    const bool isHealthy = health()->getExecMgrThrHealth();
    return age() == 9 && isHealthy;
  }));
  EXPECT_TRUE(eventually([&] {
    platform.setClockAhead(0);
    platform.setClockAhead(10 - age());
    const bool isHealthy = health()->getExecMgrThrHealth();
    return age() == 10 && !isHealthy;
  }));
}

TEST_F(LifecycleTest, a_dispatcher_that_waits_for_a_serial_test_reads_as_unhealthy) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  alpha.holdRuns();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  PlatformAnswers platform;
  platform.setClockAhead(20);
  // Between its stamp and its wait the monitor may have met the clock's jump, and sleeps for it
  // too.
  EXPECT_TRUE(eventually([&] { return health()->getMonThrHealth(); }, std::chrono::seconds(40)));
  EXPECT_FALSE(health()->getExecMgrThrHealth());
  EXPECT_EQ(health()->getDiagCtrlPhase(-1), Phase::ACTIVE);
}

// ---- Calls that waited behind a shut-down -------------------------------------------------------

TEST_F(LifecycleTest, calls_that_waited_behind_a_shut_down_find_the_controller_gone) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  alpha.holdRuns();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  auto settings = ControllerHarness::settings();
  std::vector<int> tests{1};
  std::vector<unsigned long> ids{id};
  unsigned long newId = 77;
  DiagCtrl::VectorTestReqId* newIds = nullptr;
  int count = 5;
  DiagnosticController& c = controller();
  const std::vector<std::function<DiagnosticController::errorCode()>> calls = {
      [&] { return c.abortTest(id); },
      [&] { return c.abortTest(ids); },
      [&] { return c.suspendTest(id); },
      [&] { return c.resumeTest(id); },
      [&] { return c.getNumberOfDiagPackages(count); },
      [&] { return c.queueTest(1, 1, tests, settings, true, newId); },
      [&] { return c.queueTest(1, 1, tests, settings, newId); },
      [&] { return c.queueTest(1, 1, settings, newId); },
      [&] { return c.queueTest(1, settings, newIds); },
  };
  std::vector<DiagnosticController::errorCode> results(calls.size(), SUCCESS);
  std::vector<std::unique_ptr<Companion>> waiting;
  alpha.on(Call::Abort, [&](const CallRecord&) {
    for (std::size_t i = 0; i < calls.size(); ++i) {
      waiting.push_back(std::make_unique<Companion>([&, i] { results[i] = calls[i](); }));
      EXPECT_TRUE(waitsForBigLock(*waiting.back()));
    }
  });
  EXPECT_EQ(harness.shutDown(), SUCCESS);
  ASSERT_EQ(waiting.size(), calls.size());
  for (const auto& companion : waiting) {
    ASSERT_TRUE(companion->ends());
  }
  EXPECT_THAT(results, ::testing::Each(INCORRECT_PHASE));
  EXPECT_EQ(newId, 77U);
  EXPECT_THAT(newIds, IsNull());
  EXPECT_EQ(count, 0);
  expectToWork();
}

TEST_F(LifecycleTest, an_enumeration_that_waited_behind_a_shut_down_is_refused) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  auto result = SUCCESS;
  std::unique_ptr<Companion> waiting;
  alpha.on(Call::DestroyDevice, [&](const CallRecord&) {
    waiting = std::make_unique<Companion>([&] { result = controller().enumerateDiagPackages(1); });
    EXPECT_TRUE(waitsForBigLock(*waiting));
  });
  EXPECT_EQ(harness.shutDown(), SUCCESS);
  ASSERT_TRUE(waiting->ends());
  EXPECT_EQ(result, INCORRECT_PHASE);
  EXPECT_EQ(harness.phase(), Phase::UNINITIALISED);
}

TEST_F(LifecycleTest, of_two_enumerations_at_once_one_is_refused) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.initialize();
  DiagCtrl::DiagCtrlLock& bigLock = TestSupport::bigLockOf(controller());
  bigLock.lock(-1);
  const CtrlEventTap tap;
  auto first = OUT_OF_RANGE;
  auto second = OUT_OF_RANGE;
  Companion one([&] { first = controller().enumerateAllPackages(); });
  Companion other([&] { second = controller().enumerateByPackageClass({}); });
  EXPECT_TRUE(waitsForBigLock(one) && waitsForBigLock(other));
  bigLock.unlock();
  ASSERT_TRUE(one.ends() && other.ends());
  EXPECT_THAT((std::vector{first, second}),
              ::testing::UnorderedElementsAre(SUCCESS, INCORRECT_PHASE));
  EXPECT_THAT(tap.take(), ElementsAre("INCORRECT_PHASE E 0"));
  EXPECT_EQ(harness.phase(), Phase::IDLE);
  EXPECT_EQ(alpha.calls(Call::GetDevices).size(), 1U);
}

}  // namespace
}  // namespace TarvexDiags::Lifecycle
