// The reports of the built program: each format, read back by a parser, and outputs that fail.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Json = nlohmann::json;

// Of a time stamp of a log.
double secondsSince1970(const std::string& timestamp) {
  std::tm parts{};
  const char* const fraction = strptime(timestamp.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
  return static_cast<double>(timegm(&parts)) + std::strtod(fraction, nullptr);
}

// ---- Formats -------------------------------------------------------------------------------

TEST_F(Diagctl, a_log_is_sound_whatever_becomes_of_its_tests) {
  addMixedPackage();
  const auto lines = parseLines(run({"run", "--passes", "2", "--format", "jsonl"}).out);
  EXPECT_THAT(faultsOf(lines), IsEmpty());
  EXPECT_EQ(artifacts(lines, "testStepStart").size(), 10U);
  EXPECT_EQ(artifacts(lines, "testRunEnd"),
            (std::vector<Json>{{{"status", "COMPLETE"}, {"result", "FAIL"}}}));
}

TEST_F(Diagctl, a_log_is_sound_when_tests_crash_hang_and_lie) {
  place.useMisbehavingPackage();
  const auto lines = parseLines(
      run({"run",          "-d", "Unit 0",     "-t", "Behaves",     "-t",       "Seg*", "-t",
           "Endless loop", "-t", "Fault",      "-t", "Small*",      "-t",       "Lies", "-t",
           "Garbage",      "-t", "Impossible", "-t", "Destructive", "--format", "jsonl"})
          .out);
  EXPECT_THAT(faultsOf(lines), IsEmpty());
  std::map<std::string, std::string> statusByTest;
  std::map<std::string, std::string> tests;
  for (const Json& line : lines) {
    const Json step = line.value("testStepArtifact", Json::object());
    if (isOfCoverage(step)) {
      continue;
    }
    if (step.contains("testStepStart")) {
      tests[step["testStepId"]] = step["testStepStart"]["name"];
    } else if (step.contains("testStepEnd")) {
      statusByTest[tests[step["testStepId"]]] = step["testStepEnd"]["status"];
    }
  }
  const std::string of = "Misbehaving package: ";
  const std::map<std::string, std::string> expected = {
      {of + "Behaves on Unit 0", "COMPLETE"},      {of + "Segmentation fault on Unit 0", "ERROR"},
      {of + "Endless loop on Unit 0", "ERROR"},    {of + "Fault on Unit 0", "COMPLETE"},
      {of + "Small margin on Unit 0", "COMPLETE"}, {of + "Lies on Unit 0", "ERROR"},
      {of + "Garbage on Unit 0", "ERROR"},         {of + "Impossible on Unit 0", "SKIP"},
      {of + "Destructive on Unit 0", "SKIP"}};
  EXPECT_EQ(statusByTest, expected);
}

TEST_F(Diagctl, what_cannot_run_is_a_skipped_step_with_its_reason) {
  addMixedPackage();
  const auto lines = parseLines(run({"run", "-t", "Picky", "-d", "1", "--format", "jsonl"}).out);
  EXPECT_THAT(faultsOf(lines), IsEmpty());
  EXPECT_EQ(artifacts(lines, "log").at(0)["message"], "not supported");
  EXPECT_EQ(artifacts(lines, "testStepEnd").at(0)["status"], "SKIP");
  EXPECT_EQ(artifacts(lines, "testRunEnd").at(0),
            Json({{"status", "SKIP"}, {"result", "NOT_APPLICABLE"}}));
}

TEST_F(Diagctl, the_log_of_an_aborted_run_is_sound_and_has_no_verdict) {
  addSlowPackage();
  Program program(withControlFile({"run", "--format", "jsonl"}));
  ASSERT_TRUE(program.waitFor("running  Package SLOW: Long"));
  program.signal(SIGTERM);
  const auto lines = parseLines(program.finish().out);
  EXPECT_THAT(faultsOf(lines), IsEmpty());
  EXPECT_EQ(artifacts(lines, "testStepEnd").at(0)["status"], "SKIP");
  EXPECT_EQ(artifacts(lines, "testRunEnd").at(0),
            Json({{"status", "SKIP"}, {"result", "NOT_APPLICABLE"}}));
}

TEST_F(Diagctl, each_diagnosis_of_a_log_follows_the_number_of_its_pass) {
  addMixedPackage();
  const auto lines =
      parseLines(run({"run", "-t", "Bad", "-d", "1", "--passes", "3", "--format", "jsonl"}).out);
  std::vector<int> passes;
  for (const Json& extension : artifacts(lines, "extension")) {
    EXPECT_EQ(extension["name"], "pass");
    passes.push_back(extension["content"]["number"]);
  }
  EXPECT_THAT(passes, ElementsAre(1, 2, 3));
  EXPECT_EQ(artifacts(lines, "diagnosis").size(), 3U);
}

TEST_F(Diagctl, jsonl_names_hardware_software_and_verdicts) {
  addMixedPackage();
  const auto lines = parseLines(run({"run", "-t", "Bad", "-d", "Right", "--format", "jsonl"}).out);
  const Json start = artifacts(lines, "testRunStart").at(0);
  EXPECT_EQ(start["name"], "diagctl");
  EXPECT_EQ(start["parameters"]["profile"], "standard");
  EXPECT_EQ(start["parameters"]["mode"], "customer");
  EXPECT_EQ(start["parameters"]["selection"], "-d 'Right' -t 'Bad'");
  EXPECT_EQ(start["parameters"]["tests"], "1");
  const Json hardware = start["dutInfo"]["hardwareInfos"];
  ASSERT_GE(hardware.size(), 2U);
  EXPECT_EQ(hardware[1]["location"], "bus/right");
  EXPECT_EQ(start["dutInfo"]["softwareInfos"][1]["version"], "2.1");
  const Json diagnosis = artifacts(lines, "diagnosis").at(0);
  EXPECT_EQ(diagnosis["type"], "FAIL");
  EXPECT_EQ(diagnosis["verdict"], "line-stuck");
  EXPECT_EQ(diagnosis["hardwareInfoId"], hardware[1]["hardwareInfoId"]);
}

TEST_F(Diagctl, a_log_tells_a_command_that_a_shell_takes_for_the_same_words) {
  addMixedPackage();
  const std::string file = place.path("it's $HOME; *.txt");
  const auto lines = parseLines(
      run({"run", "-q", "-t", "Good", "--format", "jsonl", "-o", "text=" + file, "-d", "L*"}).out);
  ASSERT_FALSE(lines.empty());
  const std::string command = artifacts(lines, "testRunStart").at(0).at("commandLine");
  std::ofstream(place.path("again.sh")) << "printf '<%s>\\n' " << command << "\n";
  const std::string words = place.path("words");
  ASSERT_EQ(std::system(("sh " + place.path("again.sh") + " >" + words).c_str()), 0);
  EXPECT_THAT(contentsOf(words), AllOf(HasSubstr("<text=" + file + ">\n"), HasSubstr("<L*>\n"),
                                       HasSubstr("<Good>\n")));
}

TEST_F(Diagctl, report_hides_what_identifies_the_machine_where_it_is_asked_to) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  run({"run", "-t", "Bad", "-d", "Right", "-o", "jsonl=" + log});
  const auto machineIn = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {"report", log, "--format", "jsonl"});
    return artifacts(parseLines(run(words).out), "testRunStart").at(0)["dutInfo"];
  };
  const Json plain = machineIn({});
  const Json hidden = machineIn({"--redact"});
  EXPECT_THAT(hidden["name"].get<std::string>(), HasSubstr("redacted-"));
  EXPECT_NE(hidden["dutInfoId"], plain["dutInfoId"]);
  EXPECT_NE(machineIn({"--redact"})["name"], hidden["name"]) << "the key is drawn anew";
  std::ofstream(place.path("fleet.key")) << "secret";
  const Json keyed = machineIn({"--redact-key", place.path("fleet.key")});
  EXPECT_EQ(machineIn({"--redact-key", place.path("fleet.key")}), keyed);
  const Outcome failed = run({"report", log, "--redact-key", place.path("no.key")});
  EXPECT_EQ(failed.exitCode, kNoVerdict);
  EXPECT_THAT(failed.err, HasSubstr("no.key: No such file or directory"));
}

TEST_F(Diagctl, trouble_of_the_tool_is_an_error_and_never_a_failure) {
  addMixedPackage();
  const auto lines = parseLines(run({"run", "-t", "Silent", "-d", "1", "--format", "jsonl"}).out);
  EXPECT_THAT(artifacts(lines, "diagnosis"), IsEmpty());
  EXPECT_EQ(artifacts(lines, "error").at(0)["symptom"], "no-result");
  EXPECT_EQ(artifacts(lines, "testStepEnd").at(0)["status"], "ERROR");
  EXPECT_EQ(artifacts(lines, "testRunEnd").at(0),
            Json({{"status", "ERROR"}, {"result", "NOT_APPLICABLE"}}));
}

TEST_F(Diagctl, junit_counts_and_nests) {
  addMixedPackage();
  const Json root =
      parseXml(run({"run", "-d", "1", "--exclude-test", "Weak", "--format", "junit"}).out);
  EXPECT_EQ(root["tag"], "testsuites");
  EXPECT_EQ(root["attributes"]["tests"], "4");
  EXPECT_EQ(root["attributes"]["failures"], "1");
  EXPECT_EQ(root["attributes"]["errors"], "1");
  EXPECT_EQ(root["attributes"]["skipped"], "1");
  ASSERT_EQ(root["children"].size(), 1U);
  const Json suite = root["children"][0];
  EXPECT_EQ(suite["attributes"]["name"], "Package MIX");
  EXPECT_EQ(suite["attributes"]["tests"], "4");
  EXPECT_EQ(suite["attributes"]["failures"], "1");
  EXPECT_EQ(suite["attributes"]["errors"], "1");
  EXPECT_EQ(suite["attributes"]["skipped"], "1");
  std::map<std::string, Json> inside;  // what a case holds, by its name
  for (const Json& each : suite["children"]) {
    EXPECT_EQ(each["attributes"]["classname"], "Package MIX");
    inside[each["attributes"]["name"]] = each["children"];
  }
  ASSERT_EQ(inside.at("Good on Left").size(), 1U);
  EXPECT_EQ(inside.at("Good on Left").at(0)["tag"], "properties");
  const Json failure = inside.at("Bad on Left").at(1);
  EXPECT_EQ(failure["tag"], "failure");
  EXPECT_EQ(failure["attributes"]["type"], "line-stuck");
  EXPECT_EQ(failure["attributes"]["message"], "line 3 is stuck.");
  EXPECT_EQ(failure["text"], "line 3 is stuck.\n-> Replace the cable.\n");
  EXPECT_EQ(inside.at("Silent on Left").at(1)["tag"], "error");
  EXPECT_EQ(inside.at("Silent on Left").at(1)["attributes"]["type"], "no-result");
  EXPECT_EQ(inside.at("Picky on Left").at(1)["tag"], "skipped");
  EXPECT_EQ(inside.at("Picky on Left").at(1)["attributes"]["message"], "not supported");
}

TEST_F(Diagctl, junit_tells_verdict_passes_and_figures_as_properties) {
  place.useMisbehavingPackage();
  const Json root = parseXml(run({"run", "-q", "-t", "Behaves", "-d", "Unit 0", "--passes", "2",
                                  "--seed", "42", "--format", "junit"})
                                 .out);
  std::map<std::string, std::string> properties;
  for (const Json& each : root["children"].at(0)["children"].at(0)["children"].at(0)["children"]) {
    properties[each["attributes"]["name"]] = each["attributes"]["value"];
  }
  EXPECT_EQ(properties["verdict"], "PASSED");
  EXPECT_EQ(properties["passes"], "2/2");
  EXPECT_EQ(properties["seed"], "42");
  EXPECT_EQ(properties["answer"], "42 units");
}

TEST_F(Diagctl, the_text_begins_with_what_is_run_and_ends_with_what_needs_somebody) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  const Outcome outcome = run({"run", "-q", "-p", "MIX", "-o", "jsonl=" + log});
  const std::vector<std::string> lines = linesOf(outcome.out);
  EXPECT_THAT(lines, Contains(HasSubstr("profile standard, mode customer")));
  EXPECT_THAT(lines, Contains("  packages: Package MIX 2.1"));
  EXPECT_THAT(lines, Contains("  selection: -p 'MIX'"));
  EXPECT_THAT(lines, Contains(::testing::StartsWith("  9 tests")));
  const std::string end = outcome.out.substr(outcome.out.find("To look at:"));
  EXPECT_THAT(end, HasSubstr("  FAILED   Package MIX: Bad on Left\n"
                             "           line 3 is stuck.\n"
                             "           -> Replace the cable.\n"));
  EXPECT_THAT(end, HasSubstr("  ERROR    Package MIX: Silent on Right\n"));
  EXPECT_THAT(end, HasSubstr("  WARNING  Package MIX: Weak on Left\n"));
  EXPECT_THAT(end, HasSubstr("  SKIPPED  1 test: not supported\n"));
  EXPECT_EQ(lines.back(), "Verdict: FAILED: the hardware is at fault");
  EXPECT_EQ(diagctl({"report", log}).out, outcome.out);
}

TEST_F(Diagctl, only_problems_leaves_out_what_passed_and_what_was_skipped) {
  addMixedPackage();
  const Outcome outcome = run({"run", "-q", "--only-problems"});
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("FAILED   Package MIX: Bad on Left"), HasSubstr("3 passed, 2 failed"),
                    Not(HasSubstr("Good on Left")), Not(HasSubstr("Picky on"))));
}

TEST_F(Diagctl, each_line_of_a_result_tells_what_was_done) {
  place.useMisbehavingPackage();
  const std::vector<std::string> arguments = {"run", "-q",     "-t",     "Behaves",
                                              "-d",  "Unit 0", "--seed", "42"};
  const auto lines = linesOf(run(arguments).out);
  EXPECT_THAT(lines, Contains(::testing::MatchesRegex(
                         "PASSED   Misbehaving package: Behaves on Unit 0   [0-9.]+ s   .*answer "
                         "42 units.*")));
  EXPECT_THAT(lines, Each(Not(HasSubstr("seed"))));
  std::vector<std::string> verbosely = arguments;
  verbosely.emplace_back("-v");
  EXPECT_THAT(linesOf(run(verbosely).out),
              AllOf(Contains("         . seed: 42"), Contains("         . answer: 42 units")));
  const Outcome failed = run({"run", "-q", "-t", "Fault", "-d", "Unit 0", "--seed", "42"});
  EXPECT_THAT(linesOf(failed.out),
              Contains(AllOf(::testing::StartsWith("FAILED "), EndsWith("   seed 42"))));
}

TEST_F(Diagctl, a_report_of_the_log_shows_as_much_as_the_run_did) {
  place.useMisbehavingPackage();
  const std::string log = place.path("run.jsonl");
  const std::string looksAround = "         | looked around";
  for (const char* const detail : {"--strict", "-v", "-vv"}) {
    const Outcome live = run({"run", "-q", "-t", "Looks around", "-t", "Behaves", "-d", "Unit 0",
                              "--passes", "2", detail, "-o", "jsonl=" + log});
    EXPECT_EQ(diagctl({"report", detail, log}).out, live.out) << detail;
    const bool isWithLog = detail == std::string("-vv");
    EXPECT_EQ(live.out.find(looksAround) != std::string::npos, isWithLog) << live.out;
    std::filesystem::remove(log);
  }
  EXPECT_THAT(run({"run", "-q", "-t", "Looks around", "-d", "Unit 0", "-v", "-v"}).out,
              HasSubstr(looksAround))
      << "also without a log";
}

TEST_F(Diagctl, the_log_tells_what_the_run_has_covered) {
  addMixedPackage();
  place.addPackage("SLOW", {{.name = "Half", .milliseconds = 500}}, {{"One", "bus/one"}});
  const std::string log = place.path("run.jsonl");
  const Outcome live = run({"run", "-q", "-t", "Half", "-o", "jsonl=" + log});
  std::string text = contentsOf(log);
  const std::vector<Json> lines = parseLines(text);
  EXPECT_THAT(faultsOf(lines), IsEmpty());
  const double seconds = coverageOf(lines).at("seconds");
  EXPECT_GT(seconds, 0.4);
  EXPECT_THAT(live.out, HasSubstr("\nCovered: "));
  EXPECT_EQ(diagctl({"report", log}).out, live.out);
  const std::string written = "\"seconds\":" + Json(seconds).dump();
  ASSERT_NE(text.find(written), std::string::npos);
  place.write(log, text.replace(text.find(written), written.size(), "\"seconds\":98765"));
  EXPECT_THAT(diagctl({"report", log}).out, HasSubstr("\nCovered: 98765.0 s of tests\n"))
      << "as the log tells it";
  const auto skipped =
      parseLines(run({"run", "-q", "-t", "Picky", "-d", "1", "--format", "jsonl"}).out);
  EXPECT_TRUE(coverageOf(skipped).is_null()) << "nothing ran";
}

TEST_F(Diagctl, the_time_of_a_test_is_the_test_s_own) {
  place.useMisbehavingPackage();
  const auto lines = parseLines(
      run({"run", "-q", "-t", "Behaves", "-d", "Unit 0", "--passes", "2", "--format", "jsonl"})
          .out);
  std::vector<double> seconds;
  for (const Json& figure : artifacts(lines, "measurement")) {
    if (figure["name"] == "duration") {
      EXPECT_EQ(figure["unit"], "s");
      seconds.push_back(figure["value"]);
    }
  }
  ASSERT_EQ(seconds.size(), 2U);
  EXPECT_GE(seconds[1], seconds[0]) << "the sum of both passes";
}

TEST_F(Diagctl, tap_numbers_its_points_and_ends_with_the_plan) {
  addMixedPackage();
  const TapReport report =
      parseTap(run({"run", "-d", "1", "--exclude-test", "Weak", "--format", "tap"}).out);
  EXPECT_EQ(report.version, 13);
  EXPECT_EQ(report.plan, 4);
  std::map<std::string, Point> points;
  for (const Point& point : report.points) {
    EXPECT_EQ(point.number, static_cast<int>(points.size()) + 1);
    points[point.name] = point;
  }
  EXPECT_TRUE(points.at("Package MIX: Good on Left").isOk);
  EXPECT_EQ(points.at("Package MIX: Good on Left").directive, "");
  EXPECT_FALSE(points.at("Package MIX: Bad on Left").isOk);
  EXPECT_EQ(points.at("Package MIX: Bad on Left").directive, "");
  EXPECT_EQ(points.at("Package MIX: Bad on Left").words["verdict"], "FAILED");
  EXPECT_EQ(points.at("Package MIX: Bad on Left").words["symptom"], "line-stuck");
  EXPECT_THAT(points.at("Package MIX: Bad on Left").lists["findings"],
              ElementsAre("line 3 is stuck."));
  EXPECT_THAT(points.at("Package MIX: Bad on Left").lists["actions"],
              ElementsAre("Replace the cable."));
  EXPECT_FALSE(points.at("Package MIX: Silent on Left").isOk);
  EXPECT_EQ(points.at("Package MIX: Silent on Left").directive, "");
  EXPECT_EQ(points.at("Package MIX: Silent on Left").words["verdict"], "ERROR");
  EXPECT_EQ(points.at("Package MIX: Silent on Left").words["symptom"], "no-result");
  EXPECT_TRUE(points.at("Package MIX: Picky on Left").isOk);
  EXPECT_EQ(points.at("Package MIX: Picky on Left").directive, "SKIP not supported");
}

TEST_F(Diagctl, a_harness_fails_whenever_the_run_ends_with_anything_but_0) {
  addMixedPackage();
  const auto expectAgreement = [&](std::vector<std::string> options, int exitCode) {
    options.insert(options.begin(), {"run", "-q", "--format", "tap"});
    const Outcome outcome = run(options);
    EXPECT_EQ(outcome.exitCode, exitCode) << outcome.out;
    EXPECT_EQ(isSuccessToHarness(outcome.out), exitCode == kPassed) << outcome.out;
  };
  expectAgreement({"-t", "Good"}, kPassed);
  expectAgreement({"-t", "Good", "-t", "Picky"}, kPassed);
  expectAgreement({"-t", "Good", "-t", "Picky", "--fail-on-skip"}, kNoVerdict);
  expectAgreement({"-t", "Weak"}, kPassed);
  expectAgreement({"-t", "Weak", "--strict"}, kNoVerdict);
  expectAgreement({"-t", "Bad"}, kHardwareFailure);
  expectAgreement({"-t", "Silent"}, kNoVerdict);
  place.addPackage("LATE", {{.name = "Long", .milliseconds = 60'000}}, {{"One", "bus/one"}});
  expectAgreement({"-t", "Long", "--total-time", "1s"}, kNoVerdict);
  place.addPackage("BROKEN", {{.name = "Good"}}, {{"Far", "bus/far"}});
  place.write(place.path("packages/libBROKEN.so"), "no shared object");
  expectAgreement({"-t", "Good"}, kNoVerdict);
}

TEST_F(Diagctl, a_harness_fails_on_a_log_without_an_end) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  run({"run", "-q", "-t", "Good", "-d", "1", "-o", "jsonl=" + log});
  const std::string whole = contentsOf(log);
  EXPECT_TRUE(isSuccessToHarness(diagctl({"report", log, "--format", "tap"}).out));
  place.write(log, whole.substr(0, whole.rfind("{\"testRunArtifact\"")));
  const Outcome cut = diagctl({"report", log, "--format", "tap"});
  EXPECT_EQ(cut.exitCode, kNoVerdict);
  EXPECT_FALSE(isSuccessToHarness(cut.out)) << cut.out;
}

TEST_F(Diagctl, one_run_writes_all_formats_and_report_turns_the_log_into_the_same) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  const Outcome live =
      run({"run", "-q", "--passes", "2", "-o", "jsonl=" + log, "-o", "tap=" + place.path("run.tap"),
           "-o", "junit=" + place.path("run.xml")});
  EXPECT_EQ(live.exitCode, kHardwareFailure);
  const Outcome text = diagctl({"report", log});
  EXPECT_EQ(text.exitCode, kHardwareFailure);
  EXPECT_EQ(text.out, live.out);
  EXPECT_EQ(diagctl({"report", log, "--format", "tap"}).out, contentsOf(place.path("run.tap")));
  EXPECT_EQ(diagctl({"report", log, "--format", "junit"}).out, contentsOf(place.path("run.xml")));
  EXPECT_EQ(diagctl({"report", log, "--format", "jsonl"}).out, contentsOf(log));
}

TEST_F(Diagctl, the_page_of_a_run_tells_its_verdict_and_findings_live_and_from_the_log) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  const std::string page = place.path("run.html");
  const Outcome live = run({"run", "-q", "-o", "jsonl=" + log, "-o", "html=" + page});
  EXPECT_EQ(live.exitCode, kHardwareFailure);
  const Outcome told = diagctl({"report", log, "--format", "html"});
  EXPECT_EQ(told.exitCode, kHardwareFailure);
  for (const std::string& text : {contentsOf(page), told.out}) {
    EXPECT_EQ(parseXml(text)["tag"], "html");
    EXPECT_THAT(text, AllOf(HasSubstr("FAILED: the hardware is at fault"), HasSubstr("bus/left"),
                            HasSubstr("Package MIX: Weak"), HasSubstr("2 devices")));
    EXPECT_THAT(text, HasSubstr(artifacts(parseLines(contentsOf(log)), "testRunStart")
                                    .at(0)["dutInfo"]["name"]
                                    .get<std::string>()));
  }
}

TEST_F(Diagctl, the_page_of_a_killed_run_is_made_of_its_log) {
  addSlowPackage();
  const std::string log = place.path("run.jsonl");
  const std::string page = place.path("run.html");
  Program program(
      {"--config", place.controlFile(), "run", "-o", "jsonl=" + log, "-o", "html=" + page});
  ASSERT_TRUE(program.waitFor("running  Package SLOW: Long"));
  program.signal(SIGKILL);
  program.finish();
  EXPECT_FALSE(std::filesystem::exists(page)) << "whole or not at all";
  EXPECT_EQ(diagctl({"report", log, "-o", "html=" + page}).exitCode, kNoVerdict);
  EXPECT_EQ(parseXml(contentsOf(page))["tag"], "html");
  EXPECT_THAT(contentsOf(page),
              AllOf(HasSubstr("ERROR: no verdict on all of it"), HasSubstr("The run was cut short"),
                    HasSubstr("It was cut off: the run ended before the test did."),
                    Not(HasSubstr("PASSED"))));
}

TEST_F(Diagctl, output_to_a_dash_takes_the_place_of_the_text) {
  addMixedPackage();
  const Outcome outcome = run({"run", "-t", "Good", "-o", "tap=-"});
  EXPECT_EQ(linesOf(outcome.out).front(), "TAP version 13");
  EXPECT_EQ(run({"run", "-o", "tap=-", "-o", "text=-"}).exitCode, kUsage);
}

TEST_F(Diagctl, logs_are_appended_to_and_other_reports_replaced) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  const std::string tap = place.path("run.tap");
  for (int i = 0; i < 2; ++i) {
    run({"run", "-t", "Good", "-o", "jsonl=" + log, "-o", "tap=" + tap});
  }
  EXPECT_EQ(artifacts(parseLines(contentsOf(log)), "testRunStart").size(), 2U);
  EXPECT_EQ(linesOf(contentsOf(tap)).size(), 4U);
}

// The worker of the kit goes on while the program is stopped, and ends.
TEST_F(Diagctl, a_run_that_was_stopped_tells_when_its_test_ran_and_not_when_it_was_heard) {
  place.addMisbehavingPackage("slow", "");
  place.replaceIn(place.packageFile("slow"), "[TestID16]\n", "[TestID16]\nMilliseconds=1000\n");
  const std::string log = place.path("run.jsonl");
  const std::string cases = place.path("run.xml");
  Program program({"--config", place.controlFile(), "run", "-q", "-t", "Long test", "-d", "Unit 0",
                   "-o", "jsonl=" + log, "-o", "junit=" + cases});
  ASSERT_TRUE(TestSupport::eventually(
      [&] { return contentsOf(log).find("\"seed\"") != std::string::npos; }));
  constexpr double stopped = 6;  // much longer than the test takes
  program.signal(SIGSTOP);
  std::this_thread::sleep_for(std::chrono::duration<double>(stopped));
  program.signal(SIGCONT);
  const Outcome live = program.finish();
  ASSERT_EQ(live.exitCode, kPassed) << live.out;
  const auto lines = parseLines(contentsOf(log));
  const auto timeOf = [&](const std::string& kind) {
    for (const auto& line : lines) {
      const bool isMeant = line.contains("testStepArtifact") &&
                           line["testStepArtifact"]["testStepId"] == "1" &&
                           line["testStepArtifact"].contains(kind);
      if (isMeant) {
        return secondsSince1970(line["timestamp"]);
      }
    }
    return 0.0;
  };
  EXPECT_GE(timeOf("diagnosis") - timeOf("measurement"), 1);
  EXPECT_LT(timeOf("diagnosis") - timeOf("measurement"), stopped);
  EXPECT_LT(timeOf("testStepEnd") - timeOf("testStepStart"), stopped);
  const auto test = parseXml(contentsOf(cases))["children"].at(0)["children"].at(0);
  EXPECT_LT(std::stod(test["attributes"]["time"].get<std::string>()), stopped);
  EXPECT_EQ(diagctl({"report", log}).out, live.out) << "made of the log";
}

TEST_F(Diagctl, a_killed_run_leaves_a_usable_log_and_the_old_report) {
  addSlowPackage();
  const std::string log = place.path("run.jsonl");
  const std::string tap = place.path("run.tap");
  place.write(tap, "the old report\n");
  Program program(
      {"--config", place.controlFile(), "run", "-o", "jsonl=" + log, "-o", "tap=" + tap});
  ASSERT_TRUE(program.waitFor("running  Package SLOW: Long"));
  program.signal(SIGKILL);
  EXPECT_EQ(program.finish().exitCode, 128 + SIGKILL);
  EXPECT_EQ(contentsOf(tap), "the old report\n");
  const auto lines = parseLines(contentsOf(log));
  EXPECT_THAT(faultsOf(lines), IsEmpty());
  EXPECT_THAT(artifacts(lines, "testRunEnd"), IsEmpty());
  const Outcome report = diagctl({"report", log});
  EXPECT_EQ(report.exitCode, kNoVerdict);
  EXPECT_THAT(report.out, HasSubstr("The run was cut short."));
}

TEST_F(Diagctl, a_run_is_appended_to_a_log_that_broke_off_within_a_line) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  run({"run", "-t", "Good", "-d", "1", "-o", "jsonl=" + log});
  const std::string first = contentsOf(log);
  const std::string half = first.substr(0, first.size() - 30);
  place.write(log, half);
  const Outcome live = run({"run", "-q", "-t", "Bad", "-d", "1", "-o", "jsonl=" + log});
  EXPECT_EQ(contentsOf(log).substr(0, half.size() + 1), half + "\n");
  const Outcome report = diagctl({"report", log});
  EXPECT_EQ(report.exitCode, kHardwareFailure) << report.err;
  EXPECT_THAT(report.out, AllOf(HasSubstr("The run was cut short."), EndsWith(live.out)));
}

TEST_F(Diagctl, report_tells_each_run_of_a_log_in_every_format) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  run({"run", "-q", "-t", "Good", "-d", "1", "-o", "jsonl=" + log});
  run({"run", "-q", "-t", "Bad", "-o", "jsonl=" + log});
  const Outcome text = diagctl({"report", log, "-o", "tap=" + place.path("run.tap"), "-o",
                                "junit=" + place.path("run.xml")});
  EXPECT_EQ(text.exitCode, kHardwareFailure);
  EXPECT_THAT(text.out, AllOf(HasSubstr("1 test in"), HasSubstr("2 tests in")));
  EXPECT_EQ(parseTap(contentsOf(place.path("run.tap"))).points.size(), 3U);
  EXPECT_EQ(parseXml(contentsOf(place.path("run.xml")))["children"].size(), 2U);
  const Outcome copy = diagctl({"report", log, "--format", "jsonl"});
  EXPECT_EQ(copy.out, contentsOf(log));
  EXPECT_THAT(faultsOf(parseLines(copy.out)), IsEmpty());
}

// Else its lines would be taken for the end of the run before it, which it has not.
TEST_F(Diagctl, report_tells_a_run_without_a_beginning_by_itself) {
  const std::string time = R"("sequenceNumber":0,"timestamp":"2026-01-02T03:04:05Z"})";
  const std::string schema = R"({"schemaVersion":{"major":2,"minor":0},)" + time + "\n";
  const std::string step = R"({"testStepArtifact":{"testStepId":"1",)";
  const std::string begin = step + R"("testStepStart":{"name":"memory: Walk on Node 0"}},)" + time;
  const std::string end = step + R"("testStepEnd":{"status":"COMPLETE"}},)" + time;
  const std::string log = place.path("run.jsonl");
  place.write(log,
              schema + begin + "\n" + schema + begin + "\n" + end + "\n" +
                  R"({"testRunArtifact":{"testRunEnd":{"status":"COMPLETE","result":"PASS"}},)" +
                  time + "\n");
  const Outcome outcome = diagctl({"report", log, "--format", "tap"});
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;  // as the last of them
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("not ok 1 - memory: Walk on Node 0\n"),
                                 HasSubstr("\nok 3 - memory: Walk on Node 0\n")));
}

TEST_F(Diagctl, report_of_a_bad_log_names_file_line_and_reason) {
  const std::string log = place.path("bad.jsonl");
  place.write(log, "{\"schemaVersion\":{\"major\":2,\"minor\":0}}\nnonsense\n{}\n");
  const Outcome outcome = diagctl({"report", log});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err, HasSubstr(log + ":2: it is no JSON from byte 2 on"));
  place.write(log, "{\"testRunArtifact\":{\"testRunStart\":{}},\"sequenceNumber\":0}\n");
  EXPECT_THAT(diagctl({"report", log}).err, HasSubstr(log + ":1: the key 'parameters' is missing"));
  EXPECT_THAT(diagctl({"report", place.path("none")}).err, HasSubstr("No such file"));
}

// ---- Trouble with outputs --------------------------------------------------------------------

TEST_F(Diagctl, a_full_disk_is_told_and_spoils_no_other_report) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  Program::Options full;
  full.standardOutput = "/dev/full";
  const Outcome outcome = run({"run", "-t", "Good", "-o", "jsonl=" + log}, full);
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err, HasSubstr("standard output: No space left on device"));
  EXPECT_EQ(artifacts(parseLines(contentsOf(log)), "testRunEnd").size(), 1U);
  const Outcome file = run({"run", "-t", "Bad", "-o", "tap=/dev/full"});
  EXPECT_EQ(file.exitCode, kHardwareFailure);
  EXPECT_THAT(file.err, HasSubstr("/dev/full: No space left on device"));
}

TEST_F(Diagctl, report_writes_its_other_files_when_one_disk_is_full) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  run({"run", "-t", "Good", "-d", "1", "-o", "jsonl=" + log});
  const Outcome outcome =
      diagctl({"report", log, "-o", "tap=/dev/full", "-o", "junit=" + place.path("run.xml")});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err, HasSubstr("/dev/full: No space left on device"));
  EXPECT_EQ(parseXml(contentsOf(place.path("run.xml")))["children"].size(), 1U);
}

TEST_F(Diagctl, no_file_takes_two_reports_and_no_log_its_own) {
  addMixedPackage();
  const std::string file = place.path("run.out");
  EXPECT_EQ(run({"run", "-t", "Good", "-o", "tap=" + file, "-o", "junit=" + file}).exitCode,
            kUsage);
  EXPECT_EQ(run({"run", "-t", "Good", "-o", "tap=" + file, "-o",
                 "junit=" + place.path("logs/../run.out")})
                .exitCode,
            kUsage);
  run({"run", "-t", "Good", "-o", "jsonl=" + file});
  const std::string before = contentsOf(file);
  EXPECT_EQ(diagctl({"report", file, "-o", "jsonl=" + file}).exitCode, kUsage);
  EXPECT_EQ(contentsOf(file), before);
  EXPECT_EQ(run({"run", "-t", "Good", "-o", "tap=/dev/null", "-o", "junit=/dev/null"}).exitCode,
            kPassed);
}

TEST_F(Diagctl, each_verb_tells_a_full_disk) {
  addMixedPackage();
  Program::Options full;
  full.standardOutput = "/dev/full";
  for (const std::vector<std::string>& verb : std::vector<std::vector<std::string>>{
           {"list"}, {"show", "Good"}, {"explain", "32"}, {"estimate"}, {"check"}}) {
    EXPECT_EQ(run(verb, full).exitCode, kNoVerdict) << verb[0];
  }
}

TEST_F(Diagctl, a_closed_pipe_lets_the_run_end_in_order) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  Program::Options closed;
  closed.closesOutput = true;
  const Outcome outcome = run({"run", "-t", "Good", "-o", "jsonl=" + log}, closed);
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err, HasSubstr("standard output: Broken pipe"));
  EXPECT_EQ(artifacts(parseLines(contentsOf(log)), "testRunEnd").size(), 1U);
}

TEST_F(Diagctl, what_was_meant_for_a_descriptor_that_is_not_there_gets_into_no_file) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  const auto ranWithout = [&](const std::vector<int>& closed, const std::string& output) {
    std::filesystem::remove(log);
    Program::Options options;
    options.closed = closed;
    return run({"run", "-t", "Good", "-d", "1", "-o", "jsonl=" + log, "-o", output}, options);
  };
  const std::string report = "tap=" + place.path("run.tap");
  const Outcome outcome = ranWithout({0, 1}, report);
  EXPECT_EQ(outcome.exitCode, kNoVerdict) << "a report is missing";
  EXPECT_THAT(outcome.err, HasSubstr("standard output: Bad file descriptor"));
  EXPECT_EQ(artifacts(parseLines(contentsOf(log)), "testRunEnd").size(), 1U);
  EXPECT_EQ(ranWithout({0, 1, 2}, report).exitCode, kNoVerdict);
  EXPECT_EQ(artifacts(parseLines(contentsOf(log)), "testRunEnd").size(), 1U);
  EXPECT_EQ(ranWithout({1}, "text=/dev/stdout").exitCode, kNoVerdict);
  EXPECT_EQ(ranWithout({0, 2}, report).exitCode, kPassed);
  EXPECT_THAT(contentsOf(place.path("run.tap")), Not(HasSubstr("diagctl:")));
}

TEST_F(Diagctl, an_output_that_cannot_be_opened_is_told_before_anything_runs) {
  addMixedPackage();
  const Outcome outcome = run({"run", "-o", "tap=" + place.path("none/run.tap")});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.out, IsEmpty());
  EXPECT_THAT(outcome.err, HasSubstr("none/run.tap: No such file or directory"));
}

/// A named pipe that is full: whoever writes to it waits until somebody reads.
class FullPipe {
 public:
  explicit FullPipe(const std::string& path) {
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    m_end = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    const std::string filling(4096, '\n');
    while (write(m_end, filling.data(), filling.size()) > 0) {
    }
    EXPECT_EQ(errno, EAGAIN);
  }
  FullPipe(const FullPipe&) = delete;
  FullPipe& operator=(const FullPipe&) = delete;
  ~FullPipe() { close(m_end); }

  void drain() const {
    char bytes[4096];
    while (read(m_end, bytes, sizeof bytes) > 0) {
    }
  }

 private:
  int m_end = -1;
};

TEST_F(Diagctl, a_reader_that_stands_still_holds_up_neither_the_run_nor_its_log) {
  addMixedPackage();
  const FullPipe pipe(place.path("pipe"));
  const std::string log = place.path("run.jsonl");
  Program::Options options;
  options.standardOutput = place.path("pipe");
  Program program(
      withControlFile({"run", "-q", "-t", "Good", "--format", "jsonl", "-o", "jsonl=" + log}),
      options);
  EXPECT_TRUE(TestSupport::eventually(
      [&] { return contentsOf(log).find("testRunEnd") != std::string::npos; }));
  pipe.drain();
  EXPECT_EQ(program.finish().exitCode, kPassed);
}

TEST_F(Diagctl, a_run_leaves_metrics_beside_its_reports) {
  addMixedPackage();
  std::filesystem::create_directories(place.path("metrics"));
  const std::string log = place.path("run.jsonl");
  const Outcome outcome =
      run({"run", "-t", "Good", "--textfile", place.path("metrics"), "-o", "jsonl=" + log});
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;
  EXPECT_THAT(
      contentsOf(place.path("metrics/tarvexdiags-run.prom")),
      ::testing::AllOf(HasSubstr("tarvexdiags_run_exit_code{verb=\"run\"} 0\n"),
                       HasSubstr("tarvexdiags_tests{verb=\"run\",outcome=\"passed\"} 2\n")));
  EXPECT_THAT(contentsOf(log), HasSubstr("testRunEnd"));
  const Outcome refused = run({"run", "--textfile", place.path("none")});
  EXPECT_EQ(refused.exitCode, kNoVerdict);
  EXPECT_THAT(refused.err, HasSubstr("none/tarvexdiags-run.prom: No such file or directory"));
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
