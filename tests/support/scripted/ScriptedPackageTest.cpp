// The scripted package by itself: a careful package keeps what every client relies on, and a script
// breaks exactly what it says.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "DeviceEnum/IDeviceEnumerator.h"
#include "Diag/DiagnosticSettings.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/GlobalSettings.h"
#include "tests/support/PackageDirectory.h"
#include "tests/support/scripted/Script.h"

namespace TarvexDiags::Scripted {
namespace {

using Diag::DiagnosticEvent;
using Diag::DiagnosticResult;
using Diag::DiagnosticSettings;
using Diag::DiagnosticStatus;
using Diag::IDiagnostics;
using DiagCtrl::GlobalSettings;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsNull;
using ::testing::SizeIs;
using namespace std::chrono_literals;

template <class Message>
std::vector<std::unique_ptr<Message>> owned(std::vector<Message*>* handedOut) {
  std::vector<std::unique_ptr<Message>> messages;
  if (handedOut != nullptr) {
    for (Message* const message : *handedOut) {
      messages.emplace_back(message);
    }
    delete handedOut;
  }
  return messages;
}

/// A copy of the shared object, opened as a controller opens it.
class OpenPackage {
 public:
  OpenPackage(const TestSupport::PackageDirectory& directory, const std::string& name)
      : m_handle(dlopen(directory.libraryPath(name).c_str(), RTLD_NOW)) {
    if (m_handle == nullptr) {
      throw std::runtime_error(dlerror());
    }
    call<void (*)(const char*)>("setPackageConfigFile")(directory.configPath(name).c_str());
  }
  ~OpenPackage() { dlclose(m_handle); }
  OpenPackage(const OpenPackage&) = delete;
  OpenPackage& operator=(const OpenPackage&) = delete;

  template <class Function>
  Function call(const char* name) const {
    return reinterpret_cast<Function>(dlsym(m_handle, name));
  }
  std::unique_ptr<IDiagnostics> diagnostics() const {
    typedef IDiagnostics* (*Export)(bool, GlobalSettings::diagMode);
    return std::unique_ptr<IDiagnostics>(
        call<Export>("getIDiagnostics")(true, GlobalSettings::FACTORY));
  }
  std::unique_ptr<DeviceEnum::IDeviceEnumerator> enumerator() const {
    typedef DeviceEnum::IDeviceEnumerator* (*Export)(bool, GlobalSettings::diagMode);
    return std::unique_ptr<DeviceEnum::IDeviceEnumerator>(
        call<Export>("getIDeviceEnumerator")(false, GlobalSettings::CUSTOMER));
  }

 private:
  void* m_handle;
};

class ScriptedPackageTest : public ::testing::Test {
 protected:
  ScriptedPackageTest()
      : m_script(m_directory.add("ALPHA")),
        m_package(std::make_unique<OpenPackage>(m_directory, "ALPHA")),
        m_diagnostics(m_package->diagnostics()),
        m_device(new DeviceEnum::IDevice("tag", "device", "device")) {
    m_settings.setTestRequestId(3);
    m_settings.setTestNumberVector({1, 2});
  }
  ~ScriptedPackageTest() override {
    m_script.releaseRuns();
    m_script.setHabits({});
    m_script.planPasses([](const CallRecord&) { return Pass{}; });
    m_script.on(Call::RunEnter, {});
    m_script.clearLog();
  }

  DiagnosticResult* run() { return m_diagnostics->runDiagnostic(m_device, &m_settings); }
  std::future<DiagnosticResult*> runAside() {
    auto future = std::async(std::launch::async, [this] { return run(); });
    EXPECT_TRUE(m_script.awaitRunning(1));
    return future;
  }
  DiagnosticStatus::Status status() { return m_diagnostics->getDiagnosticStatus().getStatus(); }
  std::size_t fetchEvents() { return owned(m_diagnostics->getDiagnosticEvents()).size(); }
  std::size_t fetchResults() { return owned(m_diagnostics->getDiagnosticResults()).size(); }

  TestSupport::PackageDirectory m_directory;
  Script& m_script;
  std::unique_ptr<OpenPackage> m_package;
  std::unique_ptr<IDiagnostics> m_diagnostics;
  DeviceEnum::VirtualDevice m_device;
  DiagnosticSettings m_settings;
};

TEST_F(ScriptedPackageTest, one_pass_goes_from_ready_to_completed_and_back_once_it_was_fetched) {
  EXPECT_EQ(status(), DiagnosticStatus::READY);
  m_script.holdRuns();
  auto pass = runAside();
  EXPECT_EQ(status(), DiagnosticStatus::EXECUTING);
  m_script.releaseRuns();
  EXPECT_EQ(pass.get()->getTestResult(), DiagnosticResult::PASSED);
  EXPECT_EQ(status(), DiagnosticStatus::COMPLETED);
  EXPECT_EQ(fetchResults(), 1U);
  EXPECT_EQ(status(), DiagnosticStatus::READY);
  EXPECT_THAT(m_diagnostics->getDiagnosticResults(), IsNull());
}

TEST_F(ScriptedPackageTest, completed_is_withheld_while_events_are_queued) {
  m_script.everyPass({.events = {{.code = 1}}, .lastEvents = {{.code = 2}}});
  run();
  EXPECT_EQ(status(), DiagnosticStatus::EXECUTING);
  EXPECT_EQ(fetchEvents(), 2U);
  EXPECT_EQ(status(), DiagnosticStatus::COMPLETED);
}

TEST_F(ScriptedPackageTest, messages_carry_what_the_script_says) {
  m_script.everyPass(
      {.events = {{.code = 7, .type = DiagnosticEvent::WARNING_EVENT, .parameters = {"hot"}}},
       .results = {{.verdict = DiagnosticResult::PASSED},
                   {.verdict = DiagnosticResult::FAILED, .estimatedTime = 20, .code = 9}}});
  EXPECT_EQ(run()->getTestResult(), DiagnosticResult::FAILED) << "the worst of them";
  const auto events = owned(m_diagnostics->getDiagnosticEvents());
  ASSERT_THAT(events, SizeIs(1));
  EXPECT_EQ(events[0]->dump(), "code 7, type WARNING_EVENT, request 3, parameters [\"hot\"]");
  const auto results = owned(m_diagnostics->getDiagnosticResults());
  ASSERT_THAT(results, SizeIs(2));
  EXPECT_EQ(results[1]->getEstimatedTime(), 20);
  EXPECT_EQ(results[1]->getEventCode(), 9U);
}

TEST_F(ScriptedPackageTest, stress_mode_stays_completed) {
  m_settings.setStressMode(true);
  run();
  EXPECT_EQ(fetchResults(), 1U);
  EXPECT_EQ(status(), DiagnosticStatus::COMPLETED);
}

TEST_F(ScriptedPackageTest, abort_ends_a_pass_and_is_completed_for_ever) {
  m_script.holdRuns();
  auto pass = runAside();
  m_diagnostics->abortDiagnostic();
  EXPECT_EQ(pass.get()->getTestResult(), DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_EQ(fetchResults(), 1U);
  EXPECT_EQ(status(), DiagnosticStatus::COMPLETED);
}

TEST_F(ScriptedPackageTest, abort_before_a_pass_is_latched) {
  m_script.holdRuns();
  m_diagnostics->abortDiagnostic();
  EXPECT_EQ(status(), DiagnosticStatus::COMPLETED);
  EXPECT_NE(run(), nullptr) << "returns at once";
  EXPECT_EQ(status(), DiagnosticStatus::COMPLETED);
  EXPECT_EQ(fetchResults(), 1U);
}

TEST_F(ScriptedPackageTest, suspend_holds_a_pass_until_it_is_resumed) {
  m_script.holdRuns();
  auto pass = runAside();
  m_diagnostics->suspendDiagnostic();
  m_script.releaseRuns();
  EXPECT_EQ(status(), DiagnosticStatus::SUSPENDED);
  m_diagnostics->resumeDiagnostic();
  EXPECT_NE(pass.get(), nullptr);
}

TEST_F(ScriptedPackageTest, suspend_in_ready_holds_the_next_pass_and_abort_wakes_it) {
  m_diagnostics->suspendDiagnostic();
  EXPECT_EQ(status(), DiagnosticStatus::READY);
  auto pass = runAside();
  EXPECT_EQ(status(), DiagnosticStatus::SUSPENDED);
  m_diagnostics->abortDiagnostic();
  EXPECT_NE(pass.get(), nullptr);
}

TEST_F(ScriptedPackageTest, suspend_after_the_end_is_ignored) {
  run();
  m_diagnostics->suspendDiagnostic();
  fetchResults();
  EXPECT_NE(run(), nullptr) << "does not hold";
}

TEST_F(ScriptedPackageTest, a_pass_that_is_reported_as_over_is_not_held_by_a_suspension) {
  m_script.setHabits({.completesEarly = true});
  m_diagnostics->suspendDiagnostic();
  EXPECT_NE(run(), nullptr) << "nobody would resume it";
}

TEST_F(ScriptedPackageTest, progress_is_what_the_script_says_while_a_pass_is_inside) {
  m_script.setProgress(40).setTimeRemaining(9).holdRuns();
  auto pass = runAside();
  const DiagnosticStatus inside = m_diagnostics->getDiagnosticStatus();
  EXPECT_EQ(inside.getProgress(), 40U);
  EXPECT_EQ(inside.getTimeRemaining(), 9);
  EXPECT_EQ(inside.getPassCount(), 0U);
  m_script.releaseRuns();
  pass.get();
  EXPECT_EQ(m_diagnostics->getDiagnosticStatus().getProgress(), 100U);
  EXPECT_EQ(m_diagnostics->getDiagnosticStatus().getPassCount(), 1U);
  m_script.setReportedPassCount(12);
  EXPECT_EQ(m_diagnostics->getDiagnosticStatus().getPassCount(), 12U);
  m_script.setReportedPassCount({}).setProgress(0).setTimeRemaining(0);
}

TEST_F(ScriptedPackageTest, events_can_be_emitted_into_a_pass_that_is_inside) {
  EXPECT_EQ(m_script.emit({.code = 1}), 0);
  m_script.holdRuns();
  auto pass = runAside();
  EXPECT_EQ(m_script.emit({.code = 5}), 1);
  EXPECT_EQ(fetchEvents(), 1U);
  m_script.releaseRuns();
  pass.get();
}

TEST_F(ScriptedPackageTest, a_pass_lasts_as_long_as_the_script_says) {
  m_script.everyPass({.duration = 30ms});
  const auto start = std::chrono::steady_clock::now();
  run();
  EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
}

TEST_F(ScriptedPackageTest, an_abort_can_take_long_to_unwind) {
  m_script.everyPass({.unwinding = 30ms}).setHabits({.completesOnAbort = true}).holdRuns();
  auto pass = runAside();
  const auto start = std::chrono::steady_clock::now();
  m_diagnostics->abortDiagnostic();
  EXPECT_EQ(status(), DiagnosticStatus::COMPLETED);
  pass.get();
  EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
}

TEST_F(ScriptedPackageTest, hooks_run_at_each_call_and_what_they_throw_leaves_the_package) {
  m_script.throwAt(Call::RunEnter, "no power");
  EXPECT_THROW(run(), std::runtime_error);
  EXPECT_EQ(m_script.running(), 0);
  m_script.on(Call::RunEnter, [this](const CallRecord& call) {
    EXPECT_EQ(describe(call), "RunEnter device [1,2] request 3 pass 1");
    EXPECT_EQ(status(), DiagnosticStatus::EXECUTING);
  });
  run();
}

TEST_F(ScriptedPackageTest, passes_are_planned_from_what_they_are) {
  m_script.planPasses([](const CallRecord& pass) {
    return Pass{.results = {{.verdict = pass.run == 2 ? DiagnosticResult::FAILED
                                                      : DiagnosticResult::PASSED}}};
  });
  EXPECT_EQ(run()->getTestResult(), DiagnosticResult::PASSED);
  EXPECT_EQ(run()->getTestResult(), DiagnosticResult::FAILED);
}

/// What a client sees of two passes, each with one event, one by one.
std::string storyOf(IDiagnostics& diagnostics, DeviceEnum::VirtualDevice& device,
                    DiagnosticSettings& settings, Script& script) {
  std::string story;
  const auto look = [&] {
    static constexpr const char* kLetters = "RCESU";
    story += kLetters[diagnostics.getDiagnosticStatus().getStatus()];
  };
  script.everyPass({.events = {{.code = 1}}});
  script.on(Call::RunEnd, [&](const CallRecord&) { look(); });
  for (int pass = 0; pass < 2; ++pass) {
    diagnostics.runDiagnostic(device, &settings);
    look();
    story += std::to_string(owned(diagnostics.getDiagnosticEvents()).size());
    look();
    story += std::to_string(owned(diagnostics.getDiagnosticResults()).size());
    look();
    story += ' ';
  }
  script.on(Call::RunEnd, {});
  return story;
}

TEST_F(ScriptedPackageTest, each_bad_habit_breaks_what_it_names) {
  const auto story = [&](Habits habits) {
    m_script.setHabits(habits);
    return storyOf(*m_package->diagnostics(), m_device, m_settings, m_script);
  };
  EXPECT_EQ(story({}), "EE1C1R EE1C1R ");
  EXPECT_EQ(story({.keepsReportingCompleted = true}), "EE1C1C EE1C1C ");
  EXPECT_EQ(story({.completesEarly = true}), "CE1C1R CE1C1R ");
  EXPECT_EQ(story({.neverCompletes = true}), "EE1E1E EE1E1E ");
  EXPECT_EQ(story({.losesEvents = true}), "EC1C1R EC1C1R ");
  EXPECT_EQ(story({.dropsResults = true}), "EE1C0R EE1C0R ");
  EXPECT_EQ(story({.givesNullResults = true}), "EE1C0R EE1C0R ");
  EXPECT_EQ(story({.givesNullEvents = true}), "EE0C1R EE0C1R ");
}

TEST_F(ScriptedPackageTest, empty_vectors_can_stand_for_nothing) {
  m_script.setHabits({.givesEmptyVectors = true});
  const std::unique_ptr<std::vector<DiagnosticEvent*>> events(m_diagnostics->getDiagnosticEvents());
  ASSERT_NE(events, nullptr);
  EXPECT_THAT(*events, IsEmpty());
}

TEST_F(ScriptedPackageTest, an_abort_can_be_ignored_or_forgotten) {
  m_script.setHabits({.ignoresAbort = true});
  m_diagnostics->abortDiagnostic();
  EXPECT_EQ(run()->getTestResult(), DiagnosticResult::PASSED);
  m_diagnostics = m_package->diagnostics();
  m_script.setHabits({.forgetsAbort = true});
  m_diagnostics->abortDiagnostic();
  EXPECT_EQ(run()->getTestResult(), DiagnosticResult::PASSED);
}

TEST_F(ScriptedPackageTest, devices_are_those_of_the_script_and_belong_to_the_enumerator) {
  m_script.setDevices(2).setDeviceStatus("ALPHA-2", 42);
  auto enumerator = m_package->enumerator();
  DeviceEnum::VirtualDeviceVector* const devices = enumerator->getDeviceVector("res", 7);
  ASSERT_THAT(*devices, SizeIs(2));
  EXPECT_EQ((*devices)[0].getDevice()->getResourceTag(), "ALPHA/ALPHA-1");
  EXPECT_EQ((*devices)[0].getDevice()->getDisableDeviceName(), "ALPHA-1");
  EXPECT_EQ((*devices)[1].getDevice()->getDeviceStatus(), 42U);
  EXPECT_EQ(m_script.living(), (Living{.diagnostics = 1, .enumerators = 1, .devices = 2}));
  enumerator.reset();
  EXPECT_EQ(m_script.living(), (Living{.diagnostics = 1}));
  m_script.setHabits({.givesNoDevices = true});
  EXPECT_THAT(m_package->enumerator()->getDeviceVector("", 0), IsNull());
  m_script.setHabits({.givesNoEnumerator = true, .givesNoDiagnostics = true});
  EXPECT_THAT(m_package->enumerator(), IsNull());
  EXPECT_THAT(m_package->diagnostics(), IsNull());
}

TEST_F(ScriptedPackageTest, every_pair_is_supported_unless_the_script_says_no) {
  EXPECT_TRUE(m_diagnostics->IsDeviceSupported(m_device, 1));
  m_script.setSupport(
      [](const std::string& device, int test) { return device != "device" || test != 2; });
  EXPECT_TRUE(m_diagnostics->IsDeviceSupported(m_device, 1));
  EXPECT_FALSE(m_diagnostics->IsDeviceSupported(m_device, 2));
  m_script.setSupport({});
}

TEST_F(ScriptedPackageTest, polls_are_counted_and_recorded_on_demand) {
  m_script.clearLog();
  status();
  EXPECT_EQ(m_script.count(Call::GetStatus), 1U);
  EXPECT_THAT(m_script.calls(), IsEmpty());
  m_script.recordPolls();
  status();
  EXPECT_THAT(m_script.calls(Call::GetStatus), SizeIs(1));
  m_script.recordPolls(false);
}

TEST_F(ScriptedPackageTest, each_copy_has_a_script_of_its_own) {
  Script& beta = m_directory.add("BETA");
  const OpenPackage package(m_directory, "BETA");
  m_script.clearLog();
  beta.clearLog();
  package.diagnostics();
  EXPECT_EQ(beta.count(Call::GetDiagnostics), 1U);
  EXPECT_EQ(m_script.count(Call::GetDiagnostics), 0U);
}

TEST_F(ScriptedPackageTest, two_passes_at_once_on_one_device_are_noticed) {
  AllPackages::forgetCollisions();
  run();
  run();
  EXPECT_THAT(AllPackages::collisions(), IsEmpty()) << "one behind the other";
  Script& beta = m_directory.add("BETA");
  const OpenPackage package(m_directory, "BETA");
  const auto other = package.diagnostics();
  DeviceEnum::VirtualDevice elsewhere(new DeviceEnum::IDevice("x/y", "y", "y"));
  DeviceEnum::VirtualDevice below(new DeviceEnum::IDevice("x/tag", "below", "below"));
  m_script.holdRuns();
  auto pass = runAside();
  other->runDiagnostic(elsewhere, &m_settings);
  EXPECT_THAT(AllPackages::collisions(), IsEmpty()) << "another device";
  other->runDiagnostic(below, &m_settings);
  EXPECT_THAT(AllPackages::collisions(), ElementsAre("BETA request 3 run 2 on x/tag began beside "
                                                     "ALPHA request 3 run 3 on tag"));
  m_script.releaseRuns();
  pass.get();
  EXPECT_THAT(AllPackages::inside(), IsEmpty());
  AllPackages::forgetCollisions();
  beta.clearLog();
}

TEST_F(ScriptedPackageTest, a_pass_that_is_inside_shows_whether_it_was_told_to_abort) {
  m_script.holdRuns().setHabits({.ignoresAbort = true, .forgetsAbort = true});
  auto pass = runAside();
  ASSERT_THAT(AllPackages::inside(), SizeIs(1));
  const InsidePass before = AllPackages::inside().front();
  EXPECT_FALSE(before.isToldToAbort);
  EXPECT_EQ(before.requestId, 3U);
  EXPECT_EQ(before.package, "ALPHA");
  m_diagnostics->abortDiagnostic();
  ASSERT_THAT(AllPackages::inside(), SizeIs(1));
  EXPECT_TRUE(AllPackages::inside().front().isToldToAbort);
  EXPECT_TRUE(AllPackages::inside().front().isSameAs(before));
  m_script.releaseRuns();
  pass.get();
}

TEST_F(ScriptedPackageTest, nothing_keeps_it_mapped_once_it_was_closed) {
  run();
  owned(m_diagnostics->getDiagnosticResults());
  m_diagnostics.reset();
  m_package.reset();
  EXPECT_EQ(dlopen(m_directory.libraryPath("ALPHA").c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

}  // namespace
}  // namespace TarvexDiags::Scripted
