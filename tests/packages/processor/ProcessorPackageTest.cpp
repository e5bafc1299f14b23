// The package as the controller drives it, and its tests with a machine of files around them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "packagekit/ResourceTags.h"
#include "packagekit/Settings.h"
#include "packagekit/contract/Texts.h"
#include "packagekit/testing/PackageDriver.h"
#include "packagekit/testing/RecordingContext.h"
#include "packages/common/CpuList.h"
#include "packages/processor/CoreDiagnostic.h"
#include "tests/packages/processor/ProcessorFixture.h"
#include "tests/support/FakeMachine.h"

namespace TarvexDiags::Processor {
namespace {

using Diag::DiagnosticResult;
using PackageKit::Testing::PackageDriver;
using PackageKit::Testing::RecordingContext;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class ProcessorPackageTest : public ::testing::Test {
 protected:
  ProcessorPackageTest() { driver.set("Package", "QuickDurationSeconds", "0.02"); }

  PackageDriver::Run runQuick(const std::string& core, const std::vector<int>& tests) {
    PackageDriver::Options options;
    options.quickMode = true;
    return driver.run(core, tests, options);
  }

  /// A core on which this process may run.
  std::string anyCore() const { return "cpu" + std::to_string(Common::allowedCpus().back()); }

  PackageDriver driver{TARVEX_PACKAGE_DIR, "processor"};
};

// The others work with a partner or ask other cores what is right, so a crash may be another's.
TEST_F(ProcessorPackageTest, tests_that_keep_to_their_core_say_that_they_compute) {
  const PackageKit::Settings settings(std::string(TARVEX_PACKAGE_DIR) + "/processor.cfg");
  std::vector<int> computing;
  for (const int test : testNumbers()) {
    const auto words = settings.read("TestID" + std::to_string(test), "TestCapabilities");
    if (words.value_or("").find("computing") != std::string::npos) {
      computing.push_back(test);
    }
  }
  EXPECT_THAT(computing, ElementsAre(1, 2, 3, 4, 6, 7, 10));
}

TEST_F(ProcessorPackageTest, every_core_passes_every_test_that_it_supports) {
  for (const int core : Common::allowedCpus()) {
    const std::string name = "cpu" + std::to_string(core);
    std::vector<int> tests;
    for (const int test : testNumbers()) {
      if (processorTest(test).needs != Needs::Counters && driver.supports(name, test)) {
        tests.push_back(test);
      }
    }
    ASSERT_THAT(tests, SizeIs(::testing::Ge(4U)));
    const auto run = runQuick(name, tests);
    EXPECT_EQ(run.verdict, DiagnosticResult::PASSED) << name;
    EXPECT_TRUE(run.has(CoreVerified));
    EXPECT_GT(std::stod(run.measurement("resultsCompared")), 0);
    EXPECT_EQ(std::stod(run.measurement("coveredCores")), 1);
  }
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(ProcessorPackageTest, wrong_result_fails_the_core_and_is_told_with_all_that_is_known) {
  const std::vector<std::string> classes = {"integer multiply, high half", "double divide"};
  for (int test = 1; test <= 2; ++test) {
    const std::string& name = classes.at(static_cast<std::size_t>(test) - 1);
    driver.set("TestID" + std::to_string(test), "InjectFault", name);
    const auto run = runQuick(anyCore(), {test});
    EXPECT_EQ(run.verdict, DiagnosticResult::FAILED);
    EXPECT_FALSE(run.has(WrongResultTotal)) << "each was told by itself";
    const std::vector<std::string> fault = run.parametersOf(WrongResultFound);
    ASSERT_THAT(fault, SizeIs(6));
    EXPECT_EQ("cpu" + fault[1], anyCore());
    EXPECT_EQ(fault[2], name);
    EXPECT_THAT(fault[3], HasSubstr("0x"));
    EXPECT_EQ(std::stoull(fault[4], nullptr, 16) ^ std::stoull(fault[5], nullptr, 16), 1U);
  }
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(ProcessorPackageTest, setting_that_cannot_be_read_leaves_no_verdict_and_is_named) {
  driver.set("Package", "QuickDurationSeconds", "").set("Package", "DurationSeconds", "short");
  const auto run = runQuick(anyCore(), {1});
  EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_THAT(run.parametersOf(9006).at(3),
              HasSubstr("the key DurationSeconds cannot have the value 'short'"));
}

TEST_F(ProcessorPackageTest, estimate_is_the_configured_time) {
  PackageDriver::Options options;
  options.estimationMode = true;
  driver.set("TestID1", "DurationSeconds", "42");
  EXPECT_EQ(driver.run(anyCore(), {1}, options).estimatedTime, 43);
  options.quickMode = true;
  driver.set("TestID1", "QuickDurationSeconds", "7");
  EXPECT_EQ(driver.run(anyCore(), {1}, options).estimatedTime, 8);
}

TEST_F(ProcessorPackageTest, cores_have_tags_and_locks_of_their_own) {
  Tests::FakeMachine machine;
  machine.has("sys/devices/system/cpu/online", "0-1,60000\n");
  machine.has("proc/cpuinfo", "processor\t: 1\nmodel name\t: Some CPU\n");
  driver.set("Package", "SystemRoot", machine.path());
  std::vector<std::string> tags;
  for (auto& found : driver.enumerateAgain()) {
    tags.push_back(found.getDevice()->getResourceTag());
    EXPECT_EQ(found.getDevice()->getDeviceStatus(), 0U);
  }
  EXPECT_EQ(tags, (std::vector<std::string>{"host/cpu0", "host/cpu1", "host/cpu60000"}));
  EXPECT_THAT(PackageKit::findTagClashes(tags), IsEmpty());
  EXPECT_EQ(driver.device("cpu1").getDevice()->getDeviceName(), "Core 1 (Some CPU)");
}

TEST_F(ProcessorPackageTest, what_a_core_lacks_is_not_supported_with_a_reason) {
  Tests::FakeMachine machine;
  const std::string core = std::to_string(Common::allowedCpus().front());
  machine.has("sys/devices/system/cpu/online", core + ",60000\n");
  driver.set("Package", "SystemRoot", machine.path());
  EXPECT_FALSE(driver.supports("cpu60000", 1));
  EXPECT_FALSE(driver.supports("cpu" + core, 5));
  EXPECT_FALSE(driver.supports("cpu" + core, 8));
  EXPECT_TRUE(driver.supports("cpu" + core, 1));
  EXPECT_THAT(driver.logText(), HasSubstr("CORE_FORBIDDEN"));
  EXPECT_THAT(driver.logText(), HasSubstr("NO_OTHER_CORE"));
  EXPECT_THAT(driver.logText(), HasSubstr("CORE_WITHOUT_COUNTERS"));
}

/// @brief Changes a counter of the machine, or the thread's CPUs, once the test asks whether it
/// shall stop.
class HeatingContext : public RecordingContext {
 public:
  HeatingContext(PackageKit::TestParameters parameters, Tests::FakeMachine& machine)
      : RecordingContext(std::move(parameters)), m_machine(machine) {}

  bool stopRequested() const noexcept override {
    if (!changedFile.empty()) {
      m_machine.has(changedFile, changedText);
    }
    if (!cpusFromOutside.empty()) {
      Common::allowThisThread(cpusFromOutside);
    }
    return RecordingContext::stopRequested();
  }

  std::string changedFile;
  std::string changedText;
  /// Where somebody else lets the thread run from now on.
  std::vector<int> cpusFromOutside;

 private:
  Tests::FakeMachine& m_machine;
};

class ProcessorCountersTest : public ::testing::Test {
 protected:
  ProcessorCountersTest() {
    machine.has(folder + "core_throttle_count", "5\n");
    machine.has("proc/interrupts", interrupts(1, 0));
    PackageKit::TestParameters parameters;
    parameters.testId = 6;
    parameters.device.name = "Core";
    parameters.device.properties = {{"core", core}, {"systemRoot", machine.path()}};
    machine.has("processor.cfg", "[Package]\nDurationSeconds=0\n");
    parameters.configFile = machine.path() + "/processor.cfg";
    context = std::make_unique<HeatingContext>(std::move(parameters), machine);
  }

  std::string interrupts(int thresholds, int checks) const {
    return "     CPU" + core + "\n THR: " + std::to_string(thresholds) +
           "   Threshold\n MCE: " + std::to_string(checks) + "   Machine check exceptions\n";
  }

  PackageKit::Verdict::Kind kindWith(const std::string& file, const std::string& text) {
    context->changedFile = file;
    context->changedText = text;
    return CoreDiagnostic(processorTest(Loads)).run(*context).kind();
  }

  bool told(unsigned int code) const {
    for (const RecordingContext::Event& event : context->events()) {
      if (event.code == code) {
        return true;
      }
    }
    return false;
  }

  const std::string core = std::to_string(Common::allowedCpus().front());
  const std::string folder = "sys/devices/system/cpu/cpu" + core + "/thermal_throttle/";
  Tests::FakeMachine machine;
  std::unique_ptr<HeatingContext> context;
};

TEST_F(ProcessorCountersTest, counters_that_stand_still_change_nothing) {
  EXPECT_EQ(kindWith("", ""), PackageKit::Verdict::Kind::Passed);
}

TEST_F(ProcessorCountersTest, throttling_is_a_warning) {
  EXPECT_EQ(kindWith(folder + "core_throttle_count", "6\n"), PackageKit::Verdict::Kind::Unusual);
  EXPECT_TRUE(told(Throttled));
}

TEST_F(ProcessorCountersTest, corrected_errors_are_a_warning) {
  EXPECT_EQ(kindWith("proc/interrupts", interrupts(2, 0)), PackageKit::Verdict::Kind::Unusual);
  EXPECT_TRUE(told(ErrorsCorrected));
}

TEST_F(ProcessorCountersTest, machine_checks_are_a_fault) {
  EXPECT_EQ(kindWith("proc/interrupts", interrupts(1, 1)), PackageKit::Verdict::Kind::Failed);
  EXPECT_TRUE(told(MachineChecks));
}

TEST_F(ProcessorCountersTest, thread_has_its_cpus_back_after_the_test) {
  const std::vector<int> before = Common::allowedCpus();
  kindWith("", "");
  EXPECT_EQ(Common::allowedCpus(), before);
}

TEST_F(ProcessorCountersTest, core_that_is_taken_away_under_its_test_has_no_verdict) {
  const std::vector<int> all = Common::allowedCpus();
  if (all.size() < 2) {
    GTEST_SKIP() << "one CPU alone";
  }
  context->cpusFromOutside = {all.back()};
  EXPECT_THROW(kindWith("", ""), PackageKit::TakenAway);
  EXPECT_FALSE(told(CoreVerified));
  EXPECT_EQ(Common::allowedCpus(), all);
}

TEST_F(ProcessorCountersTest, core_that_was_free_to_leave_at_the_end_has_no_verdict) {
  const std::vector<int> all = Common::allowedCpus();
  if (all.size() < 2) {
    GTEST_SKIP() << "one CPU alone";
  }
  context->cpusFromOutside = all;
  EXPECT_THROW(kindWith("", ""), PackageKit::TakenAway);
}

/// One check, whose result differs from core to core.
std::vector<Check> disagreeingChecks() {
  return {
      {"what cores differ in", always, [](Verifier& verifier) {
         verifier.verifyAgreed(
             [](std::uint64_t seed) { return seed + static_cast<unsigned int>(sched_getcpu()); },
             5);
       }}};
}

TEST_F(ProcessorCountersTest, two_cores_that_differ_fail_and_both_are_named) {
  const std::vector<int> all = Common::allowedCpus();
  if (all.size() != 2) {
    GTEST_SKIP() << "not two CPUs";
  }
  const ProcessorTest test = {.number = 6, .checks = disagreeingChecks};
  EXPECT_EQ(CoreDiagnostic(test).run(*context).kind(), PackageKit::Verdict::Kind::Failed);
  ASSERT_TRUE(told(CoresDisagree));
  for (const RecordingContext::Event& event : context->events()) {
    if (event.code == CoresDisagree) {
      EXPECT_THAT(event.parameters,
                  ElementsAre("Core", "what cores differ in", "5",
                              core + " (" + hexadecimal(5U + static_cast<unsigned>(all[0])) +
                                  "), " + std::to_string(all[1]) + " (" +
                                  hexadecimal(5U + static_cast<unsigned>(all[1])) + ")"));
    }
  }
}

std::string reasonOf(const std::function<void()>& test) {
  try {
    test();
  } catch (const PackageKit::TakenAway& reason) {
    return reason.what();
  }
  return {};
}

/// The partner leaves its core for that of the test.
std::vector<Check> leavingChecks() {
  return {{"work for two", always, [](Verifier& verifier) {
             const int here = sched_getcpu();
             verifier.partner().together([] {}, [&] { Common::pinThisThread(here); });
           }}};
}

TEST_F(ProcessorCountersTest, partner_that_is_taken_away_is_told_with_its_number) {
  const std::vector<int> all = Common::allowedCpus();
  if (all.size() < 2) {
    GTEST_SKIP() << "one CPU alone";
  }
  const std::string partner = std::to_string(all[1]);
  machine.has("sys/devices/system/cpu/online", core + "," + partner + "\n");
  const ProcessorTest test = {.number = 6, .checks = leavingChecks};
  EXPECT_EQ(reasonOf([&] { static_cast<void>(CoreDiagnostic(test).run(*context)); }),
            "PARTNER_TAKEN_AWAY");
  ASSERT_THAT(context->events(), SizeIs(1));
  EXPECT_EQ(context->events()[0].code, PartnerLost);
  EXPECT_THAT(context->events()[0].parameters, ElementsAre("Core", partner));
}

TEST_F(ProcessorCountersTest, core_that_is_taken_away_is_told_by_a_word_of_each_language) {
  const std::vector<int> all = Common::allowedCpus();
  if (all.size() < 2) {
    GTEST_SKIP() << "one CPU alone";
  }
  context->cpusFromOutside = {all.back()};
  EXPECT_EQ(reasonOf([&] { kindWith("", ""); }), "CORE_TAKEN_AWAY");
  EXPECT_FALSE(told(PartnerLost));
}

// The names of the checks are the keys.
TEST(ProcessorTexts, tell_each_class_of_instructions_in_every_language) {
  for (const char* const language : PackageKit::Contract::kLanguages) {
    const PackageKit::Settings texts(std::string(TARVEX_PACKAGE_DIR "/") + language +
                                     "/processor.cfg");
    int asInEnglish = 0;
    int classes = 0;
    for (const ProcessorTest& test : processorTests()) {
      for (const Check& check : test.checks()) {
        const auto text = texts.read(language, check.instructionClass);
        ASSERT_TRUE(text) << language << ": " << check.instructionClass;
        asInEnglish += *text == check.instructionClass ? 1 : 0;
        ++classes;
      }
    }
    EXPECT_GT(classes, 100);
    EXPECT_TRUE(language == std::string("en") || asInEnglish < 10) << language << asInEnglish;
  }
}

TEST_F(ProcessorCountersTest, request_to_stop_gives_no_verdict) {
  context->requestStop();
  EXPECT_THROW(kindWith("", ""), PackageKit::Stopped);
}

}  // namespace
}  // namespace TarvexDiags::Processor
