// The five run-wide settings: the object that keeps them, and the client's calls under the phases.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/GlobalSettings.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/PhaseHold.h"
#include "tests/support/TraceFile.h"

namespace TarvexDiags::DiagCtrl {
namespace {

using Scripted::Call;
using Scripted::Script;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsNull;
using ::testing::NotNull;
using TestSupport::ControllerHarness;
using TestSupport::PackageConfig;
using TestSupport::PhaseHold;
typedef DiagControllerStatus Phase;
typedef DiagnosticController::errorCode Code;

// --- The object

class GlobalSettingsTest : public ::testing::Test {
 protected:
  ~GlobalSettingsTest() override { delete DiagTracer::getInstance(); }
};

TEST_F(GlobalSettingsTest, is_made_from_its_five_values_in_order) {
  GlobalSettings settings(DiagCtrlConstants::DIAG_WARNING, GlobalSettings::PARALLEL, true, false,
                          GlobalSettings::BRINGUP);
  EXPECT_EQ(settings.getDebugLog(), DiagCtrlConstants::DIAG_WARNING);
  EXPECT_EQ(settings.getRunMode(), GlobalSettings::PARALLEL);
  EXPECT_TRUE(settings.getDiagLogMode());
  EXPECT_FALSE(settings.getHaltOnError());
  EXPECT_EQ(settings.getDiagnosticMode(), GlobalSettings::BRINGUP);
}

TEST_F(GlobalSettingsTest, setters_store_whatever_they_are_given) {
  GlobalSettings settings(DiagCtrlConstants::DIAG_NO, GlobalSettings::SERIAL, false, false,
                          GlobalSettings::CUSTOMER);
  settings.setDebugLog(static_cast<DiagCtrlConstants::debugLevel>(17));
  settings.setRunMode(static_cast<GlobalSettings::runMode>(18));
  settings.setDiagnosticMode(static_cast<GlobalSettings::diagMode>(19));
  settings.setDiagLogMode(true);
  settings.setHaltOnError(true);
  EXPECT_EQ(settings.getDebugLog(), 17U);
  EXPECT_EQ(settings.getRunMode(), 18U);
  EXPECT_EQ(settings.getDiagnosticMode(), 19U);
  EXPECT_TRUE(settings.getDiagLogMode());
  EXPECT_TRUE(settings.getHaltOnError());
}

TEST(GlobalSettingsNumbers, are_fixed) {
  EXPECT_EQ(GlobalSettings::SERIAL, 0U);
  EXPECT_EQ(GlobalSettings::PARALLEL, 1U);
  EXPECT_EQ(GlobalSettings::CUSTOMER, 0U);
  EXPECT_EQ(GlobalSettings::FACTORY, 1U);
  EXPECT_EQ(GlobalSettings::BRINGUP, 2U);
}

// --- The client's calls

/// One setting behind one face: values as numbers.
struct Setting {
  const char* name;
  unsigned int largest;
  bool raisesOnRefusedRead;
  std::function<Code(DiagnosticController&, unsigned int)> set;
  std::function<Code(DiagnosticController&, unsigned int&)> get;
};

template <class Value>
Setting makeSetting(const char* name, unsigned int largest, bool raisesOnRefusedRead,
                    Code (DiagnosticController::*set)(Value),
                    Code (DiagnosticController::*get)(Value&)) {
  return {name, largest, raisesOnRefusedRead,
          [set](DiagnosticController& controller, unsigned int value) {
            return (controller.*set)(static_cast<Value>(value));
          },
          [get](DiagnosticController& controller, unsigned int& value) {
            auto typed = static_cast<Value>(value);
            const Code code = (controller.*get)(typed);
            value = static_cast<unsigned int>(typed);
            return code;
          }};
}

const std::vector<Setting>& allSettings() {
  typedef DiagnosticController C;
  static const std::vector<Setting> kSettings = {
      makeSetting("debug log", 3, false, &C::setDebugLog, &C::getDebugLog),
      makeSetting("run mode", 1, true, &C::setRunMode, &C::getRunMode),
      makeSetting("diag log mode", 1, true, &C::setDiagLogMode, &C::getDiagLogMode),
      makeSetting("halt on error", 1, true, &C::setHaltOnError, &C::getHaltOnError),
      makeSetting("diagnostic mode", 2, true, &C::setDiagnosticMode, &C::getDiagnosticMode),
  };
  return kSettings;
}

bool isEnumerated(const Setting& setting) {
  const std::string name = setting.name;
  return name != "diag log mode" && name != "halt on error";
}

const Phase::diagCtrlPhase kAllPhases[] = {Phase::UNINITIALISED, Phase::ACTIVE,
                                           Phase::IDLE,          Phase::ENUMERATE,
                                           Phase::INITIALIZE,    Phase::ESTIMATION};

class SettingsTest : public ::testing::Test {
 protected:
  void start() {
    m_harness.initialize();
    m_harness.registerForAll();
    setPhase(Phase::IDLE);
  }
  ~SettingsTest() override {
    if (m_harness.phase() != Phase::UNINITIALISED) {
      setPhase(Phase::IDLE);
    }
  }

  void setPhase(Phase::diagCtrlPhase phase) { m_harness->setDiagCtrlPhase(phase, -1); }

  unsigned int valueOf(const Setting& setting) {
    unsigned int value = 0;
    EXPECT_EQ(setting.get(m_harness.controller(), value), DiagnosticController::SUCCESS);
    return value;
  }

  ControllerHarness m_harness;
};

TEST_F(SettingsTest, start_as_the_control_file_says) {
  m_harness.control()
      .with("DebugLog", "DIAG_ERROR")
      .with("RunMode", "PARALLEL")
      .with("DiagLog", "TRUE")
      .with("HaltOnError", "TRUE")
      .with("DiagnosticMode", "BRINGUP");
  start();
  std::vector<unsigned int> values;
  for (const Setting& setting : allSettings()) {
    values.push_back(valueOf(setting));
  }
  EXPECT_THAT(values, ElementsAre(1, 1, 1, 1, 2));
}

TEST_F(SettingsTest, take_every_value_of_theirs_in_IDLE) {
  start();
  for (const Setting& setting : allSettings()) {
    for (unsigned int value = setting.largest + 1; value-- > 0;) {
      SCOPED_TRACE(setting.name + std::string(" ") + std::to_string(value));
      EXPECT_EQ(setting.set(m_harness.controller(), value), DiagnosticController::SUCCESS);
      EXPECT_EQ(valueOf(setting), value);
    }
  }
  EXPECT_THAT(m_harness.ctrlEvents(), IsEmpty());
}

TEST_F(SettingsTest, refuse_a_value_out_of_range_in_every_phase_without_an_event) {
  start();
  for (const Setting& setting : allSettings()) {
    if (!isEnumerated(setting)) {
      continue;
    }
    SCOPED_TRACE(setting.name);
    const unsigned int before = valueOf(setting);
    for (const auto phase : kAllPhases) {
      setPhase(phase);
      for (const unsigned int value : {setting.largest + 1, 1000U, static_cast<unsigned int>(-1)}) {
        EXPECT_EQ(setting.set(m_harness.controller(), value),
                  DiagnosticController::INAVLID_VALUE_PASSED);
      }
    }
    setPhase(Phase::IDLE);
    EXPECT_EQ(valueOf(setting), before);
  }
  EXPECT_THAT(m_harness.ctrlEvents(), IsEmpty());
}

TEST_F(SettingsTest, refuse_a_value_out_of_range_before_the_controller_is_initialised) {
  EXPECT_EQ(m_harness->setRunMode(static_cast<GlobalSettings::runMode>(2)),
            DiagnosticController::INAVLID_VALUE_PASSED);
  EXPECT_EQ(m_harness->setRunMode(GlobalSettings::SERIAL), DiagnosticController::INCORRECT_PHASE);
}

TEST_F(SettingsTest, are_written_in_IDLE_only) {
  start();
  const PhaseHold hold(m_harness.controller());
  for (const Setting& setting : allSettings()) {
    for (const auto phase : kAllPhases) {
      if (phase == Phase::IDLE) {
        continue;
      }
      SCOPED_TRACE(setting.name + std::string(" in ") + TestSupport::nameOf(phase));
      m_harness.forget();
      const unsigned int before = valueOf(setting);
      setPhase(phase);
      const Code code = setting.set(m_harness.controller(), before == 0 ? 1 : 0);
      setPhase(Phase::IDLE);
      EXPECT_EQ(code, DiagnosticController::INCORRECT_PHASE);
      EXPECT_EQ(valueOf(setting), before);
      EXPECT_THAT(m_harness.ctrlEvents(), ElementsAre("INCORRECT_PHASE E 0"));
    }
  }
}

TEST_F(SettingsTest, are_read_in_every_phase_but_UNINITIALISED_and_ENUMERATE) {
  start();
  const PhaseHold hold(m_harness.controller());
  for (const Setting& setting : allSettings()) {
    for (const auto phase : kAllPhases) {
      SCOPED_TRACE(setting.name + std::string(" in ") + TestSupport::nameOf(phase));
      m_harness.forget();
      const unsigned int expected = valueOf(setting);
      setPhase(phase);
      unsigned int value = expected == 0 ? 1 : 0;
      const unsigned int untouched = value;
      const Code code = setting.get(m_harness.controller(), value);
      setPhase(Phase::IDLE);
      if (phase == Phase::UNINITIALISED || phase == Phase::ENUMERATE) {
        EXPECT_EQ(code, DiagnosticController::INCORRECT_PHASE);
        EXPECT_EQ(value, untouched);
        EXPECT_EQ(m_harness.ctrlEvents().size(), setting.raisesOnRefusedRead ? 1U : 0U);
      } else {
        EXPECT_EQ(code, DiagnosticController::SUCCESS);
        EXPECT_EQ(value, expected);
        EXPECT_THAT(m_harness.ctrlEvents(), IsEmpty());
      }
    }
  }
}

TEST_F(SettingsTest, false_is_a_value_like_any_other) {
  start();
  EXPECT_EQ(m_harness->setHaltOnError(true), DiagnosticController::SUCCESS);
  EXPECT_EQ(m_harness->setHaltOnError(false), DiagnosticController::SUCCESS);
  EXPECT_EQ(m_harness->setDiagLogMode(false), DiagnosticController::SUCCESS);
}

TEST_F(SettingsTest, changes_are_lost_with_a_reset_and_never_reach_the_file) {
  start();
  EXPECT_EQ(m_harness->setRunMode(GlobalSettings::PARALLEL), DiagnosticController::SUCCESS);
  EXPECT_EQ(m_harness->resetDiagController(), DiagnosticController::SUCCESS);
  GlobalSettings::runMode mode = GlobalSettings::PARALLEL;
  EXPECT_EQ(m_harness->getRunMode(mode), DiagnosticController::SUCCESS);
  EXPECT_EQ(mode, GlobalSettings::SERIAL);
}

TEST_F(SettingsTest, the_trace_level_takes_effect_at_once) {
  m_harness.trace();
  start();
  const TestSupport::TraceFile trace(m_harness.directory().path());
  EXPECT_EQ(m_harness->setDebugLog(DiagCtrlConstants::DIAG_NO), DiagnosticController::SUCCESS);
  const std::size_t before = trace.linesOf().size();
  DiagCtrlConstants::debugLevel level = DiagCtrlConstants::DIAG_INFORMATION;
  m_harness->getDebugLog(level);
  EXPECT_EQ(trace.linesOf().size(), before);
  EXPECT_EQ(m_harness->setDebugLog(DiagCtrlConstants::DIAG_INFORMATION),
            DiagnosticController::SUCCESS);
  m_harness->getDebugLog(level);
  EXPECT_GT(trace.linesOf().size(), before);
}

TEST_F(SettingsTest, asking_for_the_object_leaves_the_trace_one_step_deeper) {
  m_harness.trace();
  EXPECT_THAT(m_harness->getGlobalSettingsPtr(), IsNull());
  start();
  const TestSupport::TraceFile trace(m_harness.directory().path());
  const auto indentation = [&] {
    m_harness->getEventMgrPtr();
    return trace.linesOf().back().indentation;
  };
  const std::size_t before = indentation();
  EXPECT_THAT(m_harness->getGlobalSettingsPtr(), NotNull());
  EXPECT_EQ(indentation(), before + 2);
}

// --- When they take effect

class SettingsInUse : public SettingsTest {
 protected:
  Script& addPackage() {
    Script& script = m_harness.addPackage("ALPHA");
    script.clearLog();
    return script;
  }
};

TEST_F(SettingsInUse, log_flag_and_diagnostic_mode_are_those_of_the_moment_an_object_is_made) {
  Script& script = addPackage();
  m_harness.control().with("DiagLog", "TRUE").with("DiagnosticMode", "FACTORY");
  m_harness.start();
  ASSERT_EQ(script.count(Call::GetEnumerator), 1U);
  EXPECT_TRUE(script.calls(Call::GetEnumerator)[0].diagLog);
  EXPECT_EQ(script.calls(Call::GetEnumerator)[0].diagMode, GlobalSettings::FACTORY);
  EXPECT_TRUE(script.calls(Call::GetDiagnostics)[0].diagLog);
  EXPECT_EQ(script.calls(Call::GetDiagnostics)[0].diagMode, GlobalSettings::FACTORY);

  EXPECT_EQ(m_harness->setDiagLogMode(false), DiagnosticController::SUCCESS);
  EXPECT_EQ(m_harness->setDiagnosticMode(GlobalSettings::BRINGUP), DiagnosticController::SUCCESS);
  m_harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(script.awaitCalls(Call::GetDiagnostics, 2));
  EXPECT_FALSE(script.calls(Call::GetDiagnostics)[1].diagLog);
  EXPECT_EQ(script.calls(Call::GetDiagnostics)[1].diagMode, GlobalSettings::BRINGUP);
  ASSERT_TRUE(m_harness.awaitIdle());

  EXPECT_EQ(m_harness->setDiagLogMode(true), DiagnosticController::SUCCESS);
  EXPECT_EQ(m_harness->setDiagnosticMode(GlobalSettings::CUSTOMER), DiagnosticController::SUCCESS);
  EXPECT_EQ(m_harness->enumerateDiagPackages(1), DiagnosticController::SUCCESS);
  for (const Scripted::CallRecord& made :
       {script.calls(Call::GetEnumerator).back(), script.calls(Call::GetDiagnostics).back()}) {
    EXPECT_TRUE(made.diagLog);
    EXPECT_EQ(made.diagMode, GlobalSettings::CUSTOMER);
  }
}

TEST_F(SettingsInUse, the_run_mode_cannot_be_changed_while_a_test_runs) {
  Script& script = addPackage();
  script.holdRuns();
  m_harness.start();
  m_harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(script.awaitRunning(1));
  EXPECT_EQ(m_harness->setRunMode(GlobalSettings::PARALLEL), DiagnosticController::INCORRECT_PHASE);
  GlobalSettings::runMode mode = GlobalSettings::PARALLEL;
  EXPECT_EQ(m_harness->getRunMode(mode), DiagnosticController::SUCCESS);
  EXPECT_EQ(mode, GlobalSettings::SERIAL);
  EXPECT_THAT(m_harness.ctrlEvents(), ElementsAre("INCORRECT_PHASE E 0"));
}

TEST_F(SettingsInUse, the_run_mode_is_read_for_each_request) {
  Script& script = addPackage();
  script.setDevices(2).holdRuns();
  m_harness.start();
  EXPECT_EQ(m_harness->setRunMode(GlobalSettings::PARALLEL), DiagnosticController::SUCCESS);
  m_harness.queuePackage("ALPHA");
  EXPECT_TRUE(script.awaitRunning(2));
}

TEST_F(SettingsInUse, halt_on_error_is_for_requests_queued_later) {
  Script& script = addPackage();
  script.everyPass({.results = {{.verdict = Diag::DiagnosticResult::FAILED}}}).holdRuns();
  m_harness.start();
  const unsigned long id = m_harness.queue("ALPHA", 1, {1}, ControllerHarness::settings(2));
  ASSERT_TRUE(script.awaitRunning(1));
  m_harness->getGlobalSettingsPtr()->setHaltOnError(true);
  script.releaseRuns();
  ASSERT_TRUE(m_harness.awaitEnd(id));
  EXPECT_EQ(script.count(Call::RunEnter), 2U) << "goes on after the failure";
  m_harness.forget();

  const unsigned long next = m_harness.queue("ALPHA", 1, {1}, ControllerHarness::settings(2));
  ASSERT_TRUE(m_harness.awaitEnd(next));
  EXPECT_EQ(script.count(Call::RunEnter), 3U) << "halts after the failure";
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
