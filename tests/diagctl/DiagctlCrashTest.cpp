// The built program with computing tests that crash: they are repeated, and where they crash again
// decides on exit code and reports.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using Json = nlohmann::json;

class CrashedTest : public Diagctl {
 protected:
  /// A package with a computing test on devices Left and Right.
  void addComputingPackage(const std::string& behaviour, const std::string& behaviourOnRight,
                           const std::string& more = {}) {
    place.addPackage("SUM",
                     {{.name = "Add",
                       .behaviour = behaviour,
                       .more = "TestCapabilities=quick,computing\nBehaveOnRight=" +
                               behaviourOnRight + "\n" + more}},
                     {{"Left", "bus/left"}, {"Right", "bus/right"}});
  }

  /// The same where there is no device but Left.
  void addComputingPackageOnLeft(const std::string& behaviour) {
    place.addPackage(
        "SUM",
        {{.name = "Add", .behaviour = behaviour, .more = "TestCapabilities=quick,computing"}},
        {{"Left", "bus/left"}});
  }

  /// Runs the test on Left alone, into all formats; the text is on standard output.
  Outcome runOnLeft(std::vector<std::string> options = {}) {
    options.insert(options.begin(),
                   {"run", "-q", "-d", "Left", "-o", "jsonl=" + log(), "-o",
                    "junit=" + place.path("run.xml"), "-o", "tap=" + place.path("run.tap")});
    return run(options);
  }

  std::string log() const { return place.path("run.jsonl"); }
  std::vector<Json> lines() const { return parseLines(contentsOf(log())); }
  Json onlyCase() const {
    return parseXml(contentsOf(place.path("run.xml")))["children"].at(0)["children"].at(0);
  }
  Point onlyPoint() const { return parseTap(contentsOf(place.path("run.tap"))).points.at(0); }

  /// The log is sound, tells of one test, and makes the same reports as the live run.
  void expectOneConsistentStep(const Outcome& live) const {
    EXPECT_THAT(faultsOf(lines()), IsEmpty());
    EXPECT_EQ(artifacts(lines(), "testStepStart").size(), 1U);
    const Outcome report = diagctl({"report", log()});
    EXPECT_EQ(report.out, live.out);
    EXPECT_EQ(report.exitCode, live.exitCode);
    EXPECT_EQ(diagctl({"report", log(), "--format", "junit"}).out,
              contentsOf(place.path("run.xml")));
    EXPECT_EQ(diagctl({"report", log(), "--format", "tap"}).out, contentsOf(place.path("run.tap")));
    EXPECT_EQ(parseXml(contentsOf(place.path("run.xml")))["children"].at(0)["children"].size(), 1U);
    EXPECT_EQ(parseTap(contentsOf(place.path("run.tap"))).plan, 1);
  }

  void expectNoVerdict(const Outcome& outcome) {
    EXPECT_EQ(outcome.exitCode, kNoVerdict) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("ERROR    Package SUM: Add on Left"));
    EXPECT_THAT(artifacts(lines(), "diagnosis"), IsEmpty());
    EXPECT_EQ(artifacts(lines(), "error").at(0)["symptom"], "worker-crashed");
    EXPECT_EQ(artifacts(lines(), "testStepEnd").at(0)["status"], "ERROR");
    EXPECT_EQ(artifacts(lines(), "testRunEnd").at(0)["status"], "ERROR");
    EXPECT_EQ(onlyCase()["children"].at(1)["tag"], "error");
    EXPECT_EQ(onlyCase()["children"].at(1)["attributes"]["type"], "worker-crashed");
    EXPECT_FALSE(onlyPoint().isOk);
    EXPECT_EQ(onlyPoint().directive, "");
    EXPECT_EQ(onlyPoint().words["symptom"], "worker-crashed");
    expectOneConsistentStep(outcome);
  }

  void expectFailure(const Outcome& outcome, const std::string& symptom) {
    EXPECT_EQ(outcome.exitCode, kHardwareFailure) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("FAILED   Package SUM: Add on Left"));
    const Json diagnosis = artifacts(lines(), "diagnosis").back();
    EXPECT_EQ(diagnosis["type"], "FAIL");
    EXPECT_EQ(diagnosis["verdict"], symptom);
    EXPECT_EQ(artifacts(lines(), "testRunEnd").at(0)["result"], "FAIL");
    EXPECT_EQ(onlyCase()["children"].at(1)["tag"], "failure");
    EXPECT_EQ(onlyCase()["children"].at(1)["attributes"]["type"], symptom);
    EXPECT_FALSE(onlyPoint().isOk);
    EXPECT_EQ(onlyPoint().directive, "");
    expectOneConsistentStep(outcome);
  }

  void expectWarning(const Outcome& outcome) {
    EXPECT_EQ(outcome.exitCode, kPassed) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("WARNING  Package SUM: Add on Left"));
    const Json diagnosis = artifacts(lines(), "diagnosis").back();
    EXPECT_EQ(diagnosis["type"], "UNKNOWN");
    EXPECT_EQ(diagnosis["verdict"], "crash-not-repeated");
    EXPECT_THAT(artifacts(lines(), "error"), IsEmpty());
    EXPECT_EQ(artifacts(lines(), "testStepEnd").at(0)["status"], "COMPLETE");
    EXPECT_EQ(artifacts(lines(), "testRunEnd").at(0)["result"], "PASS");
    EXPECT_EQ(onlyCase()["children"].at(1)["tag"], "system-out");
    EXPECT_TRUE(onlyPoint().isOk);
    expectOneConsistentStep(outcome);
  }
};

// ---- The three outcomes --------------------------------------------------------------------

TEST_F(CrashedTest, is_a_hardware_failure_if_it_crashes_on_one_device_only) {
  addComputingPackage("crash", "pass");
  const Outcome outcome = runOnLeft();
  expectFailure(outcome, "crash-on-one-device");
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("The test crashed with signal SIGSEGV.\n"),
                    HasSubstr("Repeated on Left: it crashed.\n"),
                    HasSubstr("Repeated on Right: it did not crash.\n"),
                    HasSubstr("The test crashes on Left and not on Right: the hardware is at "
                              "fault.\n"),
                    HasSubstr("-> Take Left out of service and have it replaced.\n"),
                    Not(HasSubstr("Run it again."))));
  EXPECT_EQ(
      artifacts(lines(), "diagnosis").at(0)["hardwareInfoId"],
      artifacts(lines(), "testRunStart").at(0)["dutInfo"]["hardwareInfos"][0]["hardwareInfoId"]);
  EXPECT_THAT(artifacts(lines(), "error"), IsEmpty());
  EXPECT_EQ(artifacts(lines(), "testStepEnd").at(0)["status"], "COMPLETE");
}

TEST_F(CrashedTest, has_no_verdict_if_it_crashes_on_the_other_device_too) {
  addComputingPackage("crash", "crash");
  const Outcome outcome = runOnLeft();
  expectNoVerdict(outcome);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("Repeated on Right: it crashed.\n"),
                    HasSubstr("The test crashes on Right too: the package is to blame.\n"),
                    HasSubstr("bus/left crashed with SIGSEGV: the last line\n"),
                    HasSubstr("-> Report it to the maker of the package with the last output.\n"),
                    Not(HasSubstr("Run it again."))));
}

TEST_F(CrashedTest, is_a_warning_if_it_crashes_once_only) {
  addComputingPackage("crash,pass", "pass");
  const Outcome outcome = runOnLeft();
  expectWarning(outcome);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("Repeated on Left: it did not crash.\n"),
                    HasSubstr("The test crashed once, and not when it was repeated.\n"),
                    HasSubstr("-> Test Left again and for longer.")));
}

TEST_F(CrashedTest, is_no_success_of_a_strict_run_if_it_crashes_once_only) {
  addComputingPackage("crash,pass", "pass");
  EXPECT_EQ(runOnLeft({"--strict"}).exitCode, kNoVerdict);
}

TEST_F(CrashedTest, is_told_to_monitors_by_what_the_crash_came_to) {
  addComputingPackage("crash", "pass");
  const Outcome outcome = run({"run", "-q", "-d", "Left", "--exit-style", "nagios"});
  EXPECT_EQ(outcome.exitCode, 2) << outcome.err;
  EXPECT_THAT(outcome.out, StartsWith("DIAGCTL CRITICAL: 1 failed - Add on Left: "));
}

// A crash alone says nothing of the hardware, also where nobody was left to repeat it to its end.
TEST_F(CrashedTest, has_no_verdict_if_the_front_end_is_killed_before_it_was_repeated) {
  addComputingPackageOnLeft("crash,held");
  Program program(withControlFile({"run", "-q", "-d", "Left", "-o", "jsonl=" + log()}));
  ASSERT_TRUE(TestSupport::eventually(
      [&] { return contentsOf(log()).find("crashed with signal") != std::string::npos; }));
  program.signal(SIGKILL);
  program.finish();
  const Outcome report = diagctl({"report", log()});
  EXPECT_EQ(report.exitCode, kNoVerdict);
  EXPECT_THAT(report.out, AllOf(HasSubstr("ERROR    Package SUM: Add on Left"),
                                HasSubstr("crashed with signal SIGSEGV"), HasSubstr("cut off")));
}

TEST_F(CrashedTest, is_no_fault_of_its_device_if_an_error_is_raised_on_the_other_one) {
  addComputingPackage("crash", "fail", "Event=7\n");
  EXPECT_EQ(runOnLeft().exitCode, kHardwareFailure);
  const std::string text = contentsOf(log());
  const std::size_t raised = text.find("line 3 is stuck.");
  ASSERT_NE(raised, std::string::npos);
  place.write(log(), text.substr(0, text.find('\n', raised) + 1));
  const Outcome report = diagctl({"report", log()});
  EXPECT_EQ(report.exitCode, kNoVerdict) << report.out;
}

// ---- Which crashes are repeated, and where -------------------------------------------------

TEST_F(CrashedTest, has_no_verdict_if_it_crashes_again_on_the_only_device) {
  addComputingPackageOnLeft("crash");
  const Outcome outcome = runOnLeft();
  expectNoVerdict(outcome);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("Repeated on Left: it crashed.\n"),
                                 HasSubstr("The test crashes on Left again, and there is no other "
                                           "device to compare it with"),
                                 HasSubstr("-> Run the test on a machine of the same kind."),
                                 Not(HasSubstr("-> Run it again.\n"))));
}

TEST_F(CrashedTest, is_a_warning_if_the_only_device_does_not_repeat_it) {
  addComputingPackageOnLeft("crash,pass");
  const Outcome outcome = runOnLeft();
  expectWarning(outcome);
  EXPECT_THAT(outcome.out, HasSubstr("Repeated on Left: it did not crash.\n"));
}

TEST_F(CrashedTest, is_repeated_on_no_device_that_was_excluded) {
  addComputingPackage("crash", "pass");
  const Outcome outcome = runOnLeft({"--exclude-device", "Right"});
  expectNoVerdict(outcome);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("Repeated on Left: it crashed.\n"), Not(HasSubstr("on Right"))));
}

TEST_F(CrashedTest, is_compared_with_a_device_on_which_it_passed) {
  place.addPackage("SUM",
                   {{.name = "Add",
                     .behaviour = "crash",
                     .more = "TestCapabilities=computing\nBehaveOnThird=pass"}},
                   {{"First", "bus/first"}, {"Second", "bus/second"}, {"Third", "bus/third"}});
  const Outcome outcome = run({"run", "-q"});
  EXPECT_EQ(outcome.exitCode, kHardwareFailure);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("The test crashes on First and not on Third"),
                                 HasSubstr("The test crashes on Second and not on Third"),
                                 HasSubstr("3 tests in"), HasSubstr("1 passed, 2 failed")));
}

TEST_F(CrashedTest, is_not_repeated_if_it_does_not_compute) {
  place.addPackage("SUM", {{.name = "Add", .behaviour = "crash", .more = "BehaveOnRight=pass"}},
                   {{"Left", "bus/left"}, {"Right", "bus/right"}});
  const Outcome outcome = runOnLeft();
  expectNoVerdict(outcome);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("bus/left crashed with SIGSEGV"),
                                 HasSubstr("-> Run it again.\n"), Not(HasSubstr("Repeated"))));
}

TEST_F(CrashedTest, is_not_repeated_if_the_signal_is_none_of_a_crash) {
  addComputingPackage("crash", "pass", "Signal=SIGTERM");
  const Outcome outcome = runOnLeft();
  expectNoVerdict(outcome);
  EXPECT_THAT(outcome.out, Not(HasSubstr("Repeated")));
}

TEST_F(CrashedTest, is_not_repeated_if_it_has_found_a_fault) {
  addComputingPackage("failcrash", "pass", "Event=7");
  const Outcome outcome = runOnLeft();
  expectFailure(outcome, "line-stuck");
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("line 3 is stuck."), HasSubstr("bus/left crashed with SIGSEGV"),
                    Not(HasSubstr("Repeated"))));
  EXPECT_EQ(artifacts(lines(), "error").at(0)["symptom"], "worker-crashed");
}

// ---- What else may become of the repetitions -----------------------------------------------

TEST_F(CrashedTest, has_failed_if_a_repetition_finds_a_fault) {
  addComputingPackage("crash,fail", "pass", "Event=7");
  expectFailure(runOnLeft(), "line-stuck");
}

TEST_F(CrashedTest, leaves_a_fault_of_the_other_device_to_a_step_of_its_own) {
  addComputingPackage("crash", "fail", "Event=7");
  const Outcome outcome = runOnLeft();
  EXPECT_EQ(outcome.exitCode, kHardwareFailure);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("FAILED   Package SUM: Add on Right"),
                                 HasSubstr("ERROR    Package SUM: Add on Left"),
                                 Not(HasSubstr("FAILED   Package SUM: Add on Left"))));
  const auto diagnoses = artifacts(lines(), "diagnosis");
  ASSERT_EQ(diagnoses.size(), 1U);
  EXPECT_EQ(
      diagnoses.at(0)["hardwareInfoId"],
      artifacts(lines(), "testRunStart").at(0)["dutInfo"]["hardwareInfos"][1]["hardwareInfoId"]);
  EXPECT_THAT(faultsOf(lines()), IsEmpty());
  EXPECT_EQ(artifacts(lines(), "testStepEnd").size(), 2U);
  EXPECT_EQ(parseXml(contentsOf(place.path("run.xml")))["children"].at(0)["children"].size(), 2U);
  EXPECT_EQ(parseTap(contentsOf(place.path("run.tap"))).plan, 2);
  EXPECT_EQ(diagctl({"report", log()}).out, outcome.out);
}

TEST_F(CrashedTest, has_no_verdict_if_a_repetition_has_none) {
  addComputingPackage("crash", "nothing");
  const Outcome outcome = runOnLeft();
  expectNoVerdict(outcome);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("The package handed over no result.\n"),
                    HasSubstr("Repeated on Right: it did not run to an end that tells anything.\n"),
                    HasSubstr("The repetitions do not tell who is to blame for the crash.\n"),
                    HasSubstr("-> Run it again.\n")));
}

TEST_F(CrashedTest, takes_a_repetition_with_a_warning_for_one_that_did_not_crash) {
  addComputingPackage("crash", "warn", "Event=8");
  const Outcome outcome = runOnLeft();
  expectFailure(outcome, "crash-on-one-device");
  EXPECT_THAT(outcome.out, HasSubstr("line 3 is weak."));
}

TEST_F(CrashedTest, is_repeated_with_all_its_passes) {
  addComputingPackage("pass,crash,pass,pass,pass,crash,pass", "pass");
  const Outcome outcome = runOnLeft({"--passes", "3"});
  expectFailure(outcome, "crash-on-one-device");
  EXPECT_THAT(outcome.out, HasSubstr("Add on Left, 3 of 3 passes"));
}

TEST_F(CrashedTest, is_repeated_when_the_crash_has_ended_its_passes) {
  addComputingPackage("crash", "pass");
  const Outcome outcome = runOnLeft({"--passes", "3", "--halt-on-error"});
  expectFailure(outcome, "crash-on-one-device");
}

// ---- A run that is ended meanwhile ---------------------------------------------------------

TEST_F(CrashedTest, has_no_verdict_if_the_time_is_used_up_before_it_could_be_repeated) {
  place.addPackage("SUM",
                   {{.name = "Add", .behaviour = "crash", .more = "TestCapabilities=computing"},
                    {.name = "Long", .milliseconds = 60'000}},
                   {{"Left", "bus/left"}, {"Right", "bus/right"}});
  const Outcome outcome = run({"run", "-q", "-d", "Left", "--total-time", "10"});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("ERROR    Package SUM: Add on Left"),
                    HasSubstr("The run was ended before the test could be repeated.\n"),
                    Not(HasSubstr("Repeated"))));
}

TEST_F(CrashedTest, has_no_verdict_if_the_time_is_used_up_while_it_is_repeated) {
  addComputingPackage("crash", "stay", "MillisecondsToStay=60000");
  const Outcome outcome = runOnLeft({"--total-time", "10"});
  expectNoVerdict(outcome);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("Repeated on Left: it crashed.\n"),
                    HasSubstr("Repeated on Right: it did not run to an end that tells anything.")));
}

TEST_F(CrashedTest, has_no_verdict_if_the_run_is_interrupted_while_it_is_repeated) {
  addComputingPackage("crash", "stay", "MillisecondsToStay=60000");
  Program program(withControlFile({"run", "-d", "Left", "-o", "jsonl=" + log()}));
  ASSERT_TRUE(TestSupport::eventually(
      [&] { return contentsOf(log()).find("Repeated on Left") != std::string::npos; }));
  program.signal(SIGINT);
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.exitCode, 128 + SIGINT);
  EXPECT_THAT(outcome.out, HasSubstr("ERROR    Package SUM: Add on Left"));
  EXPECT_THAT(faultsOf(lines()), IsEmpty());
  EXPECT_EQ(diagctl({"report", log()}).exitCode, kNoVerdict);
}

TEST_F(CrashedTest, is_ended_by_the_key_for_one_test_while_it_is_repeated) {
  addComputingPackage("crash", "stay", "MillisecondsToStay=60000");
  Program::Options terminal;
  terminal.onTerminal = true;
  Program program(withControlFile({"run", "-d", "Left", "-o", "jsonl=" + log()}), terminal);
  ASSERT_TRUE(TestSupport::eventually(
      [&] { return contentsOf(log()).find("Repeated on Left") != std::string::npos; }));
  ASSERT_TRUE(program.waitFor("Add on Left"));
  program.type("a\n");
  EXPECT_EQ(program.finish().exitCode, kNoVerdict);
  EXPECT_THAT(faultsOf(lines()), IsEmpty());
  EXPECT_EQ(artifacts(lines(), "testStepEnd").at(0)["status"], "ERROR");
}

// ---- The worker of a kit -------------------------------------------------------------------

TEST_F(CrashedTest, of_the_kit_is_repeated_by_a_worker_of_its_own) {
  namespace fs = std::filesystem;
  const std::string packages = place.path("misbehaving");
  fs::copy(fs::path(TARVEX_DIAGCTL).parent_path().parent_path() / "selftest", packages,
           fs::copy_options::recursive);
  place.usePackages(packages);
  place.replaceIn(packages + "/misbehaving.cfg", "TestName=Segmentation fault\n",
                  "TestName=Segmentation fault\nTestCapabilities=computing\n");
  const Outcome outcome =
      run({"run", "-q", "-d", "Unit 0", "-t", "Segmentation fault", "--format", "jsonl"});
  EXPECT_EQ(outcome.exitCode, kNoVerdict) << outcome.err;
  const auto told = parseLines(outcome.out);
  EXPECT_THAT(faultsOf(told), IsEmpty());
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("Repeated on Unit 0: it crashed."),
                                 HasSubstr("Repeated on Unit 1: it crashed."),
                                 HasSubstr("The test crashes on Unit 1 too")));
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
