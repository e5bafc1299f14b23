// From what happens in a test to the exit code and to what each format tells of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/ReportedRun.h"
#include "tests/diagctl/Reports.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class DiagctlVerdict : public Diagctl {
 protected:
  /// One test of the package that misbehaves.
  ReportedRun misbehave(const std::string& test, std::vector<std::string> options = {}) {
    if (!m_usesMisbehavingPackage) {
      place.useMisbehavingPackage();
      m_usesMisbehavingPackage = true;
    }
    m_step = "Misbehaving package: " + test + " on Unit 0";
    return runTest(test, "Unit 0", std::move(options));
  }

  /// The package that misbehaves, with more keys in its configuration.
  void useMisbehavingPackageWith(const std::string& keys) {
    namespace fs = std::filesystem;
    const std::string copy = place.path("changed");
    fs::copy(Workplace::misbehavingPackages(), copy, fs::copy_options::recursive);
    place.usePackages(copy);
    place.replaceIn(copy + "/misbehaving.cfg", "[Package]\n", "[Package]\n" + keys);
    m_usesMisbehavingPackage = true;
  }

  /// One test of a package without the kit.
  ReportedRun behave(const ConfiguredTest& test, std::vector<std::string> options = {}) {
    place.addPackage(test.name, {test}, {{"Left", "bus/left"}});
    m_step = "Package " + test.name + ": " + test.name + " on Left";
    return runTest(test.name, "Left", std::move(options));
  }

  void expectVerdict(const ReportedRun& run, const std::string& verdict, int exitCode) {
    EXPECT_EQ(run.exitCode(), exitCode) << m_step;
    EXPECT_THAT(run.verdictsOf(m_step), ElementsAre(verdict)) << m_step;
    EXPECT_THAT(run.faultsOfLog(), IsEmpty()) << m_step;
  }

  void expectFault(const ReportedRun& run, const std::string& symptom, const std::string& text) {
    expectVerdict(run, "FAILED", kHardwareFailure);
    EXPECT_THAT(run.symptomsOf(m_step), ElementsAre(symptom)) << m_step;
    EXPECT_THAT(run.formatsWithout(m_step, text), IsEmpty()) << m_step;
  }

  std::string m_step;

 private:
  ReportedRun runTest(const std::string& test, const std::string& device,
                      std::vector<std::string> options) {
    options.insert(options.begin(), {"run", "-q", "-t", test, "-d", device});
    return reportedRun(withControlFile(options));
  }

  bool m_usesMisbehavingPackage = false;
};

TEST_F(DiagctlVerdict, of_a_test_that_found_a_fault_is_failed_whatever_ended_it) {
  const std::vector<std::pair<const char*, const char*>> endings = {
      {"crash", "crashed with signal SIGSEGV"},
      {"exit", "ended with exit status 0"},
      {"kill", "was killed from outside"},
      {"endless loop", "did not end within 5 s and"},
      {"exception", "deliberately thrown"},
      {"garbage", "bytes that are no message"},
      {"impossible", "the device is not what it was"}};
  for (const auto& [ending, text] : endings) {
    const ReportedRun run = misbehave(std::string("Fault, then ") + ending);
    expectFault(run, "fault-found", "Unit 0 has a fault: bit 3.");
    EXPECT_THAT(run.formatsWithout(m_step, text), IsEmpty()) << "told besides";
    EXPECT_THAT(run.accountOf(m_step, "text"), Not(HasSubstr("maker of the package")))
        << "which would lead away from the hardware";
  }
}

TEST_F(DiagctlVerdict, of_a_test_that_found_a_fault_is_failed_when_it_is_aborted) {
  expectFault(misbehave("Fault, then long test", {"--total-time", "15s"}), "fault-found",
              "Unit 0 has a fault: bit 3.");
}

TEST_F(DiagctlVerdict, of_a_test_that_found_a_fault_is_failed_when_the_run_is_interrupted) {
  place.useMisbehavingPackage();
  ReportedProgram program(withControlFile({"run", "-q", "-t", "Fault, then long test"}));
  ASSERT_TRUE(program.waitForLog("Unit 0 has a fault"));
  program.program().signal(SIGINT);
  const ReportedRun run = program.finish();
  EXPECT_EQ(run.exitCode(), 128 + SIGINT);
  m_step = "Misbehaving package: Fault, then long test on Unit 0";
  EXPECT_THAT(run.verdictsOf(m_step), ElementsAre("FAILED"));
}

// Who would have judged it is gone, and the log alone is left.
TEST_F(DiagctlVerdict, of_a_test_that_found_a_fault_is_failed_when_its_front_end_was_killed) {
  place.useMisbehavingPackage();
  const std::string log = place.path("run.jsonl");
  Program program(withControlFile(
      {"run", "-q", "-t", "Fault, then long test", "-d", "Unit 0", "-o", "jsonl=" + log}));
  ASSERT_TRUE(TestSupport::eventually(
      [&] { return contentsOf(log).find("Unit 0 has a fault") != std::string::npos; }));
  program.signal(SIGKILL);
  program.finish();
  m_step = "Misbehaving package: Fault, then long test on Unit 0";
  const ReportedRun run = reportedRun({"report", log});
  expectFault(run, "failed", "Unit 0 has a fault: bit 3.");
  EXPECT_THAT(run.formatsWithout(m_step, "cut off"), IsEmpty()) << "told besides";
  EXPECT_THAT(run.accountOf(m_step, "text"), Not(HasSubstr("Run the test again")))
      << "which would lead away from the hardware";
  const Outcome monitor = diagctl({"report", log, "--exit-style", "nagios"});
  EXPECT_EQ(monitor.exitCode, 2);
  EXPECT_THAT(monitor.out, AllOf(StartsWith("DIAGCTL CRITICAL: 1 failed - "),
                                 HasSubstr("Unit 0 has a fault: bit 3.")));
  const std::string merged = place.path("merged.jsonl");
  EXPECT_EQ(diagctl({"merge", log, "-o", merged}).exitCode, kHardwareFailure);
  EXPECT_EQ(diagctl({"report", merged}).exitCode, kHardwareFailure);
  EXPECT_THAT(diagctl({"report", log, "--format", "html"}).out,
              HasSubstr("FAILED: the hardware is at fault"));
}

TEST_F(DiagctlVerdict, of_a_call_that_never_returns_from_the_kernel_comes_when_its_time_is_over) {
  useMisbehavingPackageWith("SignalsLost=TRUE\nKillGrace=0.2\n");
  const ReportedRun run = misbehave("Endless loop");
  expectVerdict(run, "ERROR", kNoVerdict);
  EXPECT_THAT(run.symptomsOf(m_step), ElementsAre("worker-unkillable"));
  EXPECT_THAT(run.formatsWithout(m_step, "hangs in the kernel"), IsEmpty());
}

TEST_F(DiagctlVerdict, of_a_test_that_contradicts_itself_is_trouble) {
  const ReportedRun run = misbehave("Contradiction");
  expectVerdict(run, "ERROR", kNoVerdict);
  EXPECT_THAT(run.symptomsOf(m_step), ElementsAre("test-contradicted-itself"));
  EXPECT_THAT(run.formatsWithout(m_step, "contradicts itself"), IsEmpty());
}

TEST_F(DiagctlVerdict, of_a_warning_in_a_pass_is_a_warning) {
  expectVerdict(misbehave("Warning, then passed"), "WARNING", kPassed);
  expectVerdict(misbehave("Warning, then passed", {"--strict"}), "WARNING", kNoVerdict);
  expectVerdict(misbehave("Warning, then passed", {"--exit-style", "nagios"}), "WARNING", 1);
}

TEST_F(DiagctlVerdict, of_poisoned_memory_is_trouble_of_the_test_that_met_it) {
  const ReportedRun run = misbehave("Poisoned memory");
  EXPECT_NE(run.exitCode(), kPassed);
  EXPECT_THAT(run.verdictsOf(m_step), ElementsAre("ERROR"));
  EXPECT_THAT(run.symptomsOf(m_step), ElementsAre("memory-poisoned"));
  EXPECT_THAT(run.formatsWithout(m_step, "virtual address 0x"), IsEmpty());
}

TEST_F(DiagctlVerdict, of_a_test_names_it_when_its_package_has_gone_meanwhile) {
  useMisbehavingPackageWith("");
  ReportedProgram program(
      withControlFile({"run", "-q", "-d", "Unit 0", "-t", "Long test", "-t", "Early exit"}));
  ASSERT_TRUE(program.waitForLog("started, pass 1"));
  const pid_t worker = program.program().awaitWorker();
  std::filesystem::remove_all(place.path("changed"));
  kill(worker, SIGKILL);
  const ReportedRun run = program.finish();
  for (const char* const test : {"Long test", "Early exit"}) {
    m_step = std::string("Misbehaving package: ") + test + " on Unit 0";
    expectVerdict(run, "ERROR", kNoVerdict);
    EXPECT_THAT(run.formatsWithout(m_step, std::string("(") + test + ")"), IsEmpty()) << m_step;
  }
}

TEST_F(DiagctlVerdict, of_a_vanished_device_is_trouble_in_one_line) {
  const ReportedRun run = misbehave("Vanished device");
  expectVerdict(run, "ERROR", kNoVerdict);
  EXPECT_THAT(run.symptomsOf(m_step), ElementsAre("device-vanished"));
  EXPECT_THAT(linesOf(run.accountOf(m_step, "text")),
              ElementsAre(HasSubstr("has vanished"), HasSubstr("-> ")));
}

TEST_F(DiagctlVerdict, of_a_vanished_device_tells_the_cause_in_the_readers_language) {
  const ReportedRun run = misbehave("Vanished device", {"--lang", "de"});
  EXPECT_THAT(run.accountOf(m_step, "jsonl"),
              HasSubstr("das System hat kein solches Gerät mehr (read: No such device)"));
}

TEST_F(DiagctlVerdict, of_a_vanished_device_is_a_failure_on_request_and_for_monitors) {
  const auto expectFailure = [&](const std::vector<std::string>& options, int exitCode) {
    const ReportedRun run = misbehave("Vanished device", options);
    expectVerdict(run, "FAILED", exitCode);
    EXPECT_THAT(run.symptomsOf(m_step), ElementsAre("device-vanished"));
    EXPECT_THAT(linesOf(run.accountOf(m_step, "text")),
                ElementsAre(HasSubstr("has vanished"), HasSubstr("-> ")));
  };
  expectFailure({"--vanished", "failure"}, kHardwareFailure);
  expectFailure({"--exit-style", "nagios"}, 2);
  expectFailure({"--exit-style", "npd"}, 1);
  expectVerdict(misbehave("Vanished device", {"--exit-style", "nagios", "--vanished", "trouble"}),
                "ERROR", 3);
}

TEST_F(DiagctlVerdict, of_a_vanished_device_can_be_changed_when_a_log_is_read) {
  place.useMisbehavingPackage();
  const std::string log = place.path("run.jsonl");
  const auto judge = [](const std::vector<std::string>& arguments) {
    const ReportedRun run = reportedRun(arguments);
    EXPECT_THAT(run.faultsOfLog(), IsEmpty());
    EXPECT_THAT(run.verdictsOf("Misbehaving package: Behaves on Unit 0"), ElementsAre("PASSED"));
    const auto verdicts = run.verdictsOf("Misbehaving package: Vanished device on Unit 0");
    EXPECT_EQ(verdicts.size(), 1U);
    return std::pair(run.exitCode(), *verdicts.begin());
  };
  run({"run", "-q", "-t", "Vanished device", "-t", "Behaves", "-d", "Unit 0", "-o",
       "jsonl=" + log});
  EXPECT_EQ(judge({"report", log}), std::pair(kNoVerdict, std::string("ERROR")));
  EXPECT_EQ(judge({"report", log, "--vanished", "failure"}),
            std::pair(kHardwareFailure, std::string("FAILED")));
  EXPECT_EQ(judge({"report", log, "--exit-style", "nagios"}), std::pair(2, std::string("FAILED")));
  const Outcome copy = diagctl({"report", log, "--vanished", "failure", "--format", "jsonl"});
  const auto ends = artifacts(parseLines(copy.out), "testRunEnd");
  ASSERT_EQ(ends.size(), 1U);
  EXPECT_EQ(ends[0]["result"], "FAIL");
}

TEST_F(DiagctlVerdict, of_a_vanished_device_that_the_run_told_as_a_failure_can_be_taken_back) {
  place.useMisbehavingPackage();
  const std::string log = place.path("run.jsonl");
  run({"run", "-q", "-t", "Vanished device", "-t", "Behaves", "-d", "Unit 0", "--vanished",
       "failure", "-o", "jsonl=" + log});
  m_step = "Misbehaving package: Vanished device on Unit 0";
  expectVerdict(reportedRun({"report", log}), "FAILED", kHardwareFailure);
  expectVerdict(reportedRun({"report", log, "--vanished", "failure"}), "FAILED", kHardwareFailure);
  const ReportedRun taken = reportedRun({"report", log, "--vanished", "trouble"});
  expectVerdict(taken, "ERROR", kNoVerdict);
  EXPECT_THAT(taken.symptomsOf(m_step), ElementsAre("device-vanished"));
  EXPECT_THAT(linesOf(taken.accountOf(m_step, "text")),
              ElementsAre(HasSubstr("has vanished"), HasSubstr("-> ")));
  const Outcome copy = diagctl({"report", log, "--vanished", "trouble", "--format", "jsonl"});
  EXPECT_EQ(artifacts(parseLines(copy.out), "testRunEnd").at(0)["status"], "ERROR");
  EXPECT_THAT(artifacts(parseLines(copy.out), "testStepEnd"),
              ::testing::Contains(nlohmann::json{{"status", "ERROR"}}));
}

TEST_F(DiagctlVerdict, of_a_core_that_was_taken_away_is_trouble) {
  const ReportedRun run = misbehave("Core taken away");
  expectVerdict(run, "ERROR", kNoVerdict);
  EXPECT_THAT(run.formatsWithout(m_step, "the core was taken away"), IsEmpty());
}

TEST_F(DiagctlVerdict, of_what_is_not_possible_is_none_and_fails_on_request_alone) {
  expectVerdict(misbehave("Impossible"), "SKIPPED", kNothingRan);
  EXPECT_THAT(misbehave("Impossible").formatsWithout(m_step, "there is nothing to test"),
              IsEmpty());
  expectVerdict(misbehave("Impossible", {"-t", "Behaves"}), "SKIPPED", kPassed);
  expectVerdict(misbehave("Impossible", {"-t", "Behaves", "--fail-on-skip"}), "SKIPPED",
                kNoVerdict);
  expectVerdict(misbehave("Impossible", {"--fail-on-skip"}), "SKIPPED", kNoVerdict);
  EXPECT_EQ(misbehave("Behaves", {"--fail-on-skip"}).exitCode(), kPassed);
}

TEST_F(DiagctlVerdict, of_packages_without_the_kit_follows_the_same_table) {
  const std::string error = "Raises=error\nEvent=7";
  expectFault(behave({.name = "Stumbles", .behaviour = "warn", .more = error}), "line-stuck",
              "line 3 is stuck.");
  expectFault(behave({.name = "Silent", .behaviour = "nothing", .more = error}), "line-stuck",
              "line 3 is stuck.");
  expectFault(
      behave({.name = "Aborted", .milliseconds = 60'000, .more = error}, {"--total-time", "10s"}),
      "line-stuck", "line 3 is stuck.");
  const auto remarks = [](const char* name) {
    return ConfiguredTest{.name = name, .more = "Raises=warning\nEvent=8"};
  };
  const ReportedRun warning = behave(remarks("Remarks"));
  expectVerdict(warning, "WARNING", kPassed);
  EXPECT_THAT(warning.formatsWithout(m_step, "line 3 is weak."), IsEmpty());
  expectVerdict(behave(remarks("Strict"), {"--strict"}), "WARNING", kNoVerdict);
  expectVerdict(behave(remarks("Watched"), {"--exit-style", "nagios"}), "WARNING", 1);
  const ReportedRun contradiction = behave({.name = "Contradicts", .more = error});
  expectVerdict(contradiction, "ERROR", kNoVerdict);
  EXPECT_THAT(contradiction.symptomsOf(m_step), ElementsAre("test-contradicted-itself"));
  EXPECT_THAT(contradiction.formatsWithout(m_step, "line 3 is stuck."), IsEmpty());
  EXPECT_THAT(contradiction.formatsWithout(m_step, "returned that all is well"), IsEmpty());
}

// The finding behind the verdict comes first where there is room for one.
TEST_F(DiagctlVerdict, of_a_step_is_headed_by_its_own_finding) {
  const auto expectHead = [&](const ConfiguredTest& test, const std::string& kind,
                              const std::string& head) {
    place.addPackage(test.name, {test}, {{"Left", "bus/left"}});
    const Outcome line = run({"run", "-q", "-t", test.name, "--exit-style", "nagios"});
    EXPECT_THAT(line.out, HasSubstr(" - " + test.name + " on Left: " + head));
    const auto report = parseXml(run({"run", "-q", "-t", test.name, "--format", "junit"}).out);
    const auto body = report["children"].at(0)["children"].at(0)["children"].back();
    EXPECT_EQ(body["tag"], kind);
    EXPECT_THAT(std::string(body["attributes"]["message"]), StartsWith(head));
  };
  // Both tell of an event before, which is not what the verdict says.
  expectHead({.name = "Contradicts", .more = "Raises=error\nEvent=7"}, "error",
             "The test raised an error and returned that all is well.");
  expectHead({.name = "Fails", .behaviour = "fail", .more = "Raises=warning\nRaised=8\nEvent=7"},
             "failure", "line 3 is stuck.");
}

TEST_F(DiagctlVerdict, of_the_monitors_line_names_the_fault_and_not_the_crash_behind_it) {
  place.useMisbehavingPackage();
  const Outcome outcome =
      run({"run", "-q", "-t", "Fault, then crash", "-d", "Unit 0", "--exit-style", "nagios"});
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_THAT(outcome.out, StartsWith("DIAGCTL CRITICAL: 1 failed - Fault, then crash on Unit 0: "
                                      "Unit 0 has a fault: bit 3."));
}

TEST_F(DiagctlVerdict, of_the_monitors_line_is_that_of_the_exit_code) {
  place.useMisbehavingPackage();
  const auto expectLine = [&](const std::string& test, const std::string& option, int exitCode,
                              const std::string& line) {
    const Outcome outcome = run({"run", "-q", "-t", test, "-t", "Behaves", "-d", "Unit 0",
                                 "--exit-style", "nagios", option});
    EXPECT_EQ(outcome.exitCode, exitCode) << option;
    EXPECT_THAT(outcome.out, StartsWith("DIAGCTL " + line)) << option;
  };
  expectLine("Impossible", "--quick", 0, "OK: ");
  expectLine("Impossible", "--fail-on-skip", 3, "UNKNOWN: ");
  expectLine("Warning, then passed", "--quick", 1, "WARNING: ");
  expectLine("Warning, then passed", "--strict", 3, "UNKNOWN: ");
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
