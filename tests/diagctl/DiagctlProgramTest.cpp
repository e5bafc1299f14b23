// The built program as a black box: each verb, option, exit code and format.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/diagctl/Program.h"
#include "tests/diagctl/Workplace.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;
using Json = nlohmann::json;
namespace fs = std::filesystem;

constexpr int passed = 0;
constexpr int hardwareFailure = 1;
constexpr int noVerdict = 2;
constexpr int nothingRan = 3;
constexpr int usage = 64;

std::vector<Json> parseLines(const std::string& text) {
  std::vector<Json> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(Json::parse(line));
  }
  return lines;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// The contents of all artifacts of a kind, such as "testStepEnd".
std::vector<Json> artifacts(const std::vector<Json>& lines, const std::string& kind) {
  std::vector<Json> found;
  for (const Json& line : lines) {
    for (const char* owner : {"testRunArtifact", "testStepArtifact"}) {
      if (line.contains(owner) && line[owner].contains(kind)) {
        found.push_back(line[owner][kind]);
      }
    }
  }
  return found;
}

class Diagctl : public ::testing::Test {
 protected:
  Outcome run(std::vector<std::string> arguments, const Program::Options& options = {}) {
    arguments.insert(arguments.begin(), {"--config", place.controlFile()});
    return diagctl(arguments, options);
  }

  /// One passing test on each of two devices, one that fails, warns, and says nothing.
  void addMixedPackage() {
    place.addPackage("MIX",
                     {{.name = "Good"},
                      {.name = "Bad", .behaviour = "fail", .more = "Event=7"},
                      {.name = "Weak", .behaviour = "warn", .more = "Event=8"},
                      {.name = "Silent", .behaviour = "nothing"},
                      {.name = "Picky", .more = "UnsupportedOn=Left\nEstimate=90"}},
                     {{"Left", "bus/left"}, {"Right", "bus/right"}});
  }

  Workplace place;
};

// ---- run: exit codes and selection ---------------------------------------------------------

TEST_F(Diagctl, run_of_passing_tests_ends_with_0) {
  addMixedPackage();
  const Outcome outcome = run({"run", "-t", "Good", "-q"});
  EXPECT_EQ(outcome.exitCode, passed) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("2 tests"));
  EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(Diagctl, run_with_a_failure_ends_with_1_and_tells_finding_and_action) {
  addMixedPackage();
  const Outcome outcome = run({"run", "-t", "Bad", "-d", "Left", "-t", "Good"});
  EXPECT_EQ(outcome.exitCode, hardwareFailure);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("FAILED   Package MIX: Bad on Left"), HasSubstr("line 3 is stuck."),
                    HasSubstr("-> Replace the cable.")));
}

TEST_F(Diagctl, run_tells_findings_in_the_chosen_language) {
  addMixedPackage();
  EXPECT_THAT(run({"run", "-t", "Bad", "-d", "1", "--lang", "de"}).out,
              AllOf(HasSubstr("line 3 klemmt."), HasSubstr("-> Kabel ersetzen.")));
  Program::Options german;
  german.environment["LC_ALL"] = "de_DE.UTF-8";
  EXPECT_THAT(run({"run", "-t", "Bad", "-d", "1"}, german).out, HasSubstr("line 3 klemmt."));
}

TEST_F(Diagctl, run_whose_package_says_nothing_has_no_verdict) {
  addMixedPackage();
  EXPECT_EQ(run({"run", "-t", "Silent", "-d", "1"}).exitCode, noVerdict);
}

TEST_F(Diagctl, run_with_a_warning_passes_unless_it_is_strict) {
  addMixedPackage();
  EXPECT_EQ(run({"run", "-t", "Weak", "-d", "1"}).exitCode, passed);
  EXPECT_EQ(run({"run", "-t", "Weak", "-d", "1", "--strict"}).exitCode, noVerdict);
}

TEST_F(Diagctl, run_of_nothing_ends_with_3) {
  addMixedPackage();
  const Outcome typo = run({"run", "-t", "Goood"});
  EXPECT_EQ(typo.exitCode, nothingRan);
  EXPECT_THAT(typo.err, HasSubstr("nothing matches test 'Goood'"));
  EXPECT_EQ(run({"run", "-t", "Picky", "-d", "Left"}).exitCode, nothingRan);
}

TEST_F(Diagctl, run_with_one_misspelt_pattern_has_no_verdict_on_it) {
  addMixedPackage();
  EXPECT_EQ(run({"run", "-t", "Good", "-t", "Goood", "-d", "1"}).exitCode, noVerdict);
}

TEST_F(Diagctl, dry_run_tells_what_would_run_and_runs_nothing) {
  addMixedPackage();
  const Outcome outcome = run({"run", "--dry-run", "-t", "Picky", "-t", "Bad", "-d", "*ef*"});
  EXPECT_EQ(outcome.exitCode, passed);
  EXPECT_THAT(linesOf(outcome.out),
              ElementsAre("run   Package MIX: Bad on Left",
                          "skip  Package MIX: Picky on Left (not supported)"));
}

TEST_F(Diagctl, selection_knows_names_mnemonics_numbers_tags_and_exclusion) {
  addMixedPackage();
  place.addPackage("OTHER", {{.name = "Good"}}, {{"Far", "bus/far"}});
  const auto selected = [&](std::vector<std::string> options) {
    options.insert(options.begin(), {"run", "--dry-run"});
    return linesOf(run(options).out);
  };
  const std::string good = "run   Package MIX: Good on ";
  EXPECT_THAT(selected({"-p", "mix", "-t", "1"}), ElementsAre(good + "Left", good + "Right"));
  EXPECT_THAT(selected({"-p", "Package OTHER"}), ElementsAre("run   Package OTHER: Good on Far"));
  EXPECT_THAT(selected({"-d", "bus/r*", "-t", "g[ou]od", "--exclude-package", "OTHER"}),
              ElementsAre(good + "Right"));
  EXPECT_THAT(selected({"-t", "Good", "--exclude-device", "left", "--exclude-device", "far"}),
              ElementsAre(good + "Right"));
  EXPECT_THAT(selected({"-d", "far", "--exclude-test", "Good"}), IsEmpty());
}

TEST_F(Diagctl, missing_devices_are_a_failure_in_every_report) {
  addMixedPackage();
  const Outcome outcome = run({"run", "-t", "Good", "--expect-devices", "3", "--format", "jsonl"});
  EXPECT_EQ(outcome.exitCode, hardwareFailure);
  const auto ends = artifacts(parseLines(outcome.out), "testRunEnd");
  ASSERT_EQ(ends.size(), 1U);
  EXPECT_EQ(ends[0]["result"], "FAIL");
  EXPECT_EQ(run({"run", "-t", "Good", "--expect-devices", "2"}).exitCode, passed);
}

TEST_F(Diagctl, passes_come_from_the_option_or_the_profile) {
  addMixedPackage();
  const auto passesOf = [&](std::vector<std::string> options) {
    options.insert(options.begin(), {"run", "-t", "Good", "-d", "1", "--format", "jsonl"});
    return artifacts(parseLines(run(options).out), "diagnosis").size();
  };
  EXPECT_EQ(passesOf({}), 1U);
  EXPECT_EQ(passesOf({"--passes", "4"}), 4U);
  EXPECT_EQ(passesOf({"--profile", "extended"}), 3U);
}

TEST_F(Diagctl, halt_on_error_ends_the_passes) {
  addMixedPackage();
  const Outcome outcome =
      run({"run", "-t", "Bad", "-d", "1", "--passes", "5", "--halt-on-error", "--format", "jsonl"});
  EXPECT_EQ(artifacts(parseLines(outcome.out), "diagnosis").size(), 1U);
}

TEST_F(Diagctl, quick_asks_for_the_short_form) {
  place.addPackage("SLOW", {{.name = "Long", .milliseconds = 60'000}}, {{"One", "bus/one"}});
  EXPECT_EQ(run({"run", "--quick"}).exitCode, passed);
  EXPECT_EQ(run({"run", "--profile", "quick"}).exitCode, passed);
}

TEST_F(Diagctl, total_time_ends_the_run_without_a_verdict) {
  place.addPackage("SLOW", {{.name = "Long", .milliseconds = 60'000}}, {{"One", "bus/one"}});
  const Outcome outcome = run({"run", "--total-time", "1s"});
  EXPECT_EQ(outcome.exitCode, noVerdict);
  EXPECT_THAT(outcome.out, HasSubstr("SKIPPED"));
  EXPECT_THAT(outcome.err, HasSubstr("total time is used up"));
}

TEST_F(Diagctl, serial_runs_one_test_at_a_time_and_parallel_several) {
  place.addPackage("TWO", {{.name = "Half", .milliseconds = 500}},
                   {{"One", "bus/one"}, {"Two", "bus/two"}});
  // The most steps that are open at once.
  const auto widest = [&](const char* mode) {
    int open = 0;
    int most = 0;
    for (const Json& line : parseLines(run({"run", mode, "--format", "jsonl"}).out)) {
      const Json step = line.value("testStepArtifact", Json::object());
      open += step.contains("testStepStart") ? 1 : 0;
      open -= step.contains("testStepEnd") ? 1 : 0;
      most = std::max(most, open);
    }
    return most;
  };
  EXPECT_EQ(widest("--serial"), 1);
  EXPECT_EQ(widest("--parallel"), 2);
}

TEST_F(Diagctl, a_diagnostic_mode_is_accepted_by_name) {
  addMixedPackage();
  EXPECT_EQ(run({"run", "-t", "Good", "--mode", "factory"}).exitCode, passed);
  EXPECT_EQ(run({"run", "-t", "Good", "--mode", "bringup"}).exitCode, passed);
}

TEST_F(Diagctl, exit_styles_translate_for_monitors) {
  addMixedPackage();
  const auto codeOf = [&](const char* test, const char* style) {
    return run({"run", "-d", "2", "-t", test, "--exit-style", style}).exitCode;
  };
  EXPECT_EQ(codeOf("Good", "nagios"), 0);
  EXPECT_EQ(codeOf("Weak", "nagios"), 1);
  EXPECT_EQ(codeOf("Bad", "nagios"), 2);
  EXPECT_EQ(codeOf("Silent", "nagios"), 3);
  EXPECT_EQ(codeOf("Good", "npd"), 0);
  EXPECT_EQ(codeOf("Bad", "npd"), 1);
  EXPECT_EQ(codeOf("Silent", "npd"), 2);
  const Outcome line = run({"run", "-d", "2", "-t", "Bad", "-q", "--exit-style", "nagios"});
  EXPECT_THAT(linesOf(line.out),
              ElementsAre("DIAGCTL CRITICAL: 1 failed - Bad on Right: line 3 is stuck."));
}

// ---- Formats -------------------------------------------------------------------------------

TEST_F(Diagctl, jsonl_numbers_its_lines_and_ends_each_step) {
  addMixedPackage();
  const auto lines = parseLines(run({"run", "-t", "Good", "-t", "Bad", "--format", "jsonl"}).out);
  ASSERT_GE(lines.size(), 3U);
  EXPECT_EQ(lines[0]["schemaVersion"], Json({{"major", 2}, {"minor", 0}}));
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i]["sequenceNumber"], i);
    EXPECT_EQ(lines[i].size(), 3U) << "one artifact a line: " << lines[i];
    const std::string time = lines[i]["timestamp"];
    EXPECT_EQ(time.size(), 24U);
    EXPECT_EQ(time.back(), 'Z');
  }
  EXPECT_EQ(artifacts(lines, "testStepStart").size(), 4U);
  for (const Json& end : artifacts(lines, "testStepEnd")) {
    EXPECT_EQ(end["status"], "COMPLETE");
  }
  EXPECT_EQ(artifacts(lines, "testRunEnd"),
            (std::vector<Json>{{{"status", "COMPLETE"}, {"result", "FAIL"}}}));
}

TEST_F(Diagctl, jsonl_names_hardware_software_and_verdicts) {
  addMixedPackage();
  const auto lines = parseLines(run({"run", "-t", "Bad", "-d", "Right", "--format", "jsonl"}).out);
  const Json start = artifacts(lines, "testRunStart").at(0);
  EXPECT_EQ(start["name"], "diagctl");
  EXPECT_EQ(start["parameters"]["profile"], "standard");
  const Json hardware = start["dutInfo"]["hardwareInfos"];
  EXPECT_EQ(hardware.size(), 2U);
  EXPECT_EQ(hardware[1]["location"], "bus/right");
  EXPECT_EQ(start["dutInfo"]["softwareInfos"][1]["version"], "2.1");
  const Json diagnosis = artifacts(lines, "diagnosis").at(0);
  EXPECT_EQ(diagnosis["type"], "FAIL");
  EXPECT_EQ(diagnosis["verdict"], "line-stuck");
  EXPECT_EQ(diagnosis["hardwareInfoId"], hardware[1]["hardwareInfoId"]);
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
  const Outcome outcome =
      run({"run", "-t", "Good", "-t", "Bad", "-t", "Silent", "-d", "1", "--format", "junit"});
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("<testsuite name=\"Package MIX\" tests=\"3\" failures=\"1\" "
                              "errors=\"1\" skipped=\"0\""),
                    HasSubstr("<failure type=\"line-stuck\" message=\"line 3 is stuck.\">"),
                    HasSubstr("<error type=\"no-result\"")));
  place.write(place.path("report.xml"), outcome.out);
  const std::string parse =
      "python3 -c 'import sys, xml.dom.minidom; "
      "sys.exit(len(xml.dom.minidom.parse(sys.argv[1])"
      ".getElementsByTagName(\"testcase\")) != 3)' " +
      place.path("report.xml");
  EXPECT_EQ(std::system(parse.c_str()), 0);  // NOLINT(cert-env33-c): the parser of the file
}

TEST_F(Diagctl, tap_numbers_its_points_and_ends_with_the_plan) {
  addMixedPackage();
  const auto lines = linesOf(run({"run", "-t", "Good", "-t", "Bad", "--format", "tap"}).out);
  ASSERT_GE(lines.size(), 6U);
  EXPECT_EQ(lines.front(), "TAP version 13");
  EXPECT_EQ(lines.back(), "1..4");
  int points = 0;
  int failures = 0;
  for (const std::string& line : lines) {
    const bool isFailure = line.rfind("not ok ", 0) == 0;
    if (isFailure || line.rfind("ok ", 0) == 0) {
      const std::string number = std::to_string(++points);
      EXPECT_THAT(line, HasSubstr("ok " + number + " - Package MIX: "));
      failures += isFailure ? 1 : 0;
    }
  }
  EXPECT_EQ(points, 4);
  EXPECT_EQ(failures, 2);
}

TEST_F(Diagctl, one_run_writes_all_formats_and_report_turns_the_log_into_the_same) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  const Outcome live = run({"run", "-q", "-o", "jsonl=" + log, "-o", "tap=" + place.path("run.tap"),
                            "-o", "junit=" + place.path("run.xml")});
  EXPECT_EQ(live.exitCode, hardwareFailure);
  const Outcome text = diagctl({"report", log});
  EXPECT_EQ(text.exitCode, hardwareFailure);
  EXPECT_EQ(text.out, live.out);
  EXPECT_EQ(diagctl({"report", log, "--format", "tap"}).out, contentsOf(place.path("run.tap")));
  EXPECT_EQ(diagctl({"report", log, "--format", "junit"}).out, contentsOf(place.path("run.xml")));
  EXPECT_EQ(diagctl({"report", log, "--format", "jsonl"}).out, contentsOf(log));
}

TEST_F(Diagctl, output_to_a_dash_takes_the_place_of_the_text) {
  addMixedPackage();
  const Outcome outcome = run({"run", "-t", "Good", "-o", "tap=-"});
  EXPECT_EQ(linesOf(outcome.out).front(), "TAP version 13");
  EXPECT_EQ(run({"run", "-o", "tap=-", "-o", "text=-"}).exitCode, usage);
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

TEST_F(Diagctl, a_killed_run_leaves_a_usable_log_and_the_old_report) {
  place.addPackage("SLOW", {{.name = "Short"}, {.name = "Long", .milliseconds = 60'000}},
                   {{"One", "bus/one"}});
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
  EXPECT_THAT(artifacts(lines, "testRunEnd"), IsEmpty());
  const Outcome report = diagctl({"report", log});
  EXPECT_EQ(report.exitCode, noVerdict);
  EXPECT_THAT(report.out, HasSubstr("The run was cut short."));
}

// ---- Trouble with outputs --------------------------------------------------------------------

TEST_F(Diagctl, a_full_disk_is_told_and_spoils_no_other_report) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  Program::Options full;
  full.standardOutput = "/dev/full";
  const Outcome outcome = run({"run", "-t", "Good", "-o", "jsonl=" + log}, full);
  EXPECT_EQ(outcome.exitCode, noVerdict);
  EXPECT_THAT(outcome.err, HasSubstr("standard output: No space left on device"));
  EXPECT_EQ(artifacts(parseLines(contentsOf(log)), "testRunEnd").size(), 1U);
  const Outcome file = run({"run", "-t", "Bad", "-o", "tap=/dev/full"});
  EXPECT_EQ(file.exitCode, hardwareFailure);
  EXPECT_THAT(file.err, HasSubstr("/dev/full: No space left on device"));
}

TEST_F(Diagctl, each_verb_tells_a_full_disk) {
  addMixedPackage();
  Program::Options full;
  full.standardOutput = "/dev/full";
  for (const std::vector<std::string>& verb : std::vector<std::vector<std::string>>{
           {"list"}, {"show", "Good"}, {"explain", "32"}, {"estimate"}, {"check"}}) {
    EXPECT_EQ(run(verb, full).exitCode, noVerdict) << verb[0];
  }
}

TEST_F(Diagctl, a_closed_pipe_lets_the_run_end_in_order) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  Program::Options closed;
  closed.closesOutput = true;
  const Outcome outcome = run({"run", "-t", "Good", "-o", "jsonl=" + log}, closed);
  EXPECT_EQ(outcome.exitCode, noVerdict);
  EXPECT_THAT(outcome.err, HasSubstr("standard output: Broken pipe"));
  EXPECT_EQ(artifacts(parseLines(contentsOf(log)), "testRunEnd").size(), 1U);
}

TEST_F(Diagctl, an_output_that_cannot_be_opened_is_told_before_anything_runs) {
  addMixedPackage();
  const Outcome outcome = run({"run", "-o", "tap=" + place.path("none/run.tap")});
  EXPECT_EQ(outcome.exitCode, noVerdict);
  EXPECT_THAT(outcome.out, IsEmpty());
  EXPECT_THAT(outcome.err, HasSubstr("none/run.tap: No such file or directory"));
}

// ---- Usage -----------------------------------------------------------------------------------

TEST_F(Diagctl, bad_usage_ends_with_64_and_a_message) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{},
                                             {"walk"},
                                             {"run", "--bad"},
                                             {"run", "--passes", "0"},
                                             {"run", "--passes", "many"},
                                             {"run", "--time", "5 parsecs"},
                                             {"run", "--time", "-1"},
                                             {"run", "--total-time", "0"},
                                             {"run", "--profile", "heroic"},
                                             {"run", "--mode", "vacation"},
                                             {"run", "--serial", "--parallel"},
                                             {"run", "--format", "pdf"},
                                             {"run", "-o", "run.tap"},
                                             {"run", "-o", "pdf=run.pdf"},
                                             {"run", "-o", "tap="},
                                             {"run", "--seed", "x"},
                                             {"run", "--expect-devices", "x"},
                                             {"run", "--exit-style", "loud"},
                                             {"list", "planets"},
                                             {"show"},
                                             {"explain"},
                                             {"report"}}) {
    const Outcome outcome = diagctl(arguments);
    EXPECT_EQ(outcome.exitCode, usage) << ::testing::PrintToString(arguments);
    EXPECT_THAT(outcome.err, Not(IsEmpty())) << ::testing::PrintToString(arguments);
    EXPECT_THAT(outcome.out, IsEmpty()) << ::testing::PrintToString(arguments);
  }
}

TEST_F(Diagctl, help_has_examples_at_each_level) {
  const Outcome top = diagctl({"--help"});
  EXPECT_EQ(top.exitCode, passed);
  EXPECT_THAT(top.out, HasSubstr("Examples:"));
  for (const char* verb :
       {"list", "show", "run", "estimate", "check", "explain", "report", "selftest"}) {
    EXPECT_THAT(top.out, HasSubstr(std::string("  ") + verb + " "));
    const Outcome help = diagctl({verb, "--help"});
    EXPECT_EQ(help.exitCode, passed);
    EXPECT_THAT(help.out, AllOf(HasSubstr("Examples:"), HasSubstr(std::string("diagctl ") + verb)));
  }
  EXPECT_THAT(diagctl({"--version"}).out, ::testing::MatchesRegex("diagctl [0-9.]+\n"));
}

// ---- Manual and completion ------------------------------------------------------------------

/// The options that the help of a verb names.
std::set<std::string> optionsOf(const std::vector<std::string>& helpArguments) {
  const std::string help = diagctl(helpArguments).out;
  static const std::regex option("(^|[ ,])(--?[a-z][a-z-]*)");
  std::set<std::string> options;
  for (const std::string& line : linesOf(help)) {
    if (line.rfind("  -", 0) == 0) {
      const std::string names = line.substr(0, line.find("  ", 2));
      for (std::sregex_iterator match(names.begin(), names.end(), option), end; match != end;
           ++match) {
        options.insert((*match)[2]);
      }
    }
  }
  return options;
}

const std::vector<std::string>& verbs() {
  static const std::vector<std::string> names = {"list",  "show",    "run",    "estimate",
                                                 "check", "explain", "report", "selftest"};
  return names;
}

std::set<std::string> wordsOf(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

/// What bash offers behind a beginning of a command line, whose last word may be empty.
std::set<std::string> completions(const std::string& words, const std::string& file) {
  const std::string command =
      "bash -c 'source " TARVEX_SOURCE_DIR "/completion/diagctl.bash; COMP_WORDS=(" + words +
      "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _diagctl; echo \"${COMPREPLY[@]}\"' > " + file;
  EXPECT_EQ(std::system(command.c_str()), 0);  // NOLINT(cert-env33-c): bash is what is tested
  return wordsOf(contentsOf(file));
}

TEST_F(Diagctl, bash_completes_every_verb_and_option) {
  const std::string file = place.path("words");
  EXPECT_EQ(completions("diagctl \"\"", file),
            std::set<std::string>(verbs().begin(), verbs().end()));
  for (const std::string& verb : verbs()) {
    std::set<std::string> expected = optionsOf({verb, "--help"});
    expected.insert({"-c", "--config", "--lang", "--allow-insecure"});
    EXPECT_EQ(completions("diagctl " + verb + " -", file), expected) << verb;
  }
  EXPECT_EQ(completions("diagctl -", file), optionsOf({"--help"}));
  EXPECT_EQ(completions("diagctl run --profile q", file), std::set<std::string>{"quick"});
}

TEST_F(Diagctl, zsh_completion_and_manual_name_every_verb_and_option) {
  const std::string zsh = contentsOf(TARVEX_SOURCE_DIR "/completion/_diagctl");
  const std::string manual = contentsOf(TARVEX_SOURCE_DIR "/man/diagctl.1");
  std::set<std::string> options = optionsOf({"--help"});
  for (const std::string& verb : verbs()) {
    options.merge(optionsOf({verb, "--help"}));
    EXPECT_THAT(zsh, HasSubstr("'" + verb + "["));
    EXPECT_THAT(manual, ::testing::ContainsRegex("\n\\.(B|BI|BR) " + verb));
  }
  EXPECT_GT(options.size(), 30U);
  for (const std::string& option : options) {
    const std::regex entry("['{,*)]" + option + "['\\[,}]");
    EXPECT_TRUE(std::regex_search(zsh, entry)) << option;
    std::string written;  // a hyphen of an option is "\\-" in a manual
    for (const char character : option) {
      written += character == '-' ? "\\-" : std::string(1, character);
    }
    EXPECT_THAT(manual, HasSubstr(written)) << option;
  }
}

// ---- Other verbs -------------------------------------------------------------------------------

TEST_F(Diagctl, list_tells_packages_devices_and_tests_with_their_pairs) {
  addMixedPackage();
  EXPECT_THAT(run({"list"}).out, AllOf(HasSubstr("MIX"), HasSubstr("2 devices   5 tests")));
  EXPECT_THAT(run({"list", "devices"}).out, AllOf(HasSubstr("bus/left"), HasSubstr("Right")));
  EXPECT_THAT(run({"list", "tests"}).out,
              AllOf(HasSubstr("enabled: Left, Right"), HasSubstr("enabled: Right"),
                    HasSubstr("not supported: Left")));
}

TEST_F(Diagctl, list_tells_why_tests_are_withdrawn_or_disabled) {
  addMixedPackage();
  place.replaceIn(place.packageFile("MIX"), "[Error]",
                  "[Disable Test]\nNumberOfTests=1\n[DisableTestID1]\nTestID=4\n"
                  "[Disable Device]\nNumberOfTests=1\n[DisableDeviceTestID1]\nTestID=1\n"
                  "NumberOfDevice=1\nDeviceName1=Left\n[Error]");
  EXPECT_THAT(run({"list", "tests"}).out,
              AllOf(HasSubstr("withdrawn for this machine or operating system"),
                    HasSubstr("disabled by the package's configuration: Left")));
}

TEST_F(Diagctl, list_names_packages_that_the_control_file_leaves_out) {
  addMixedPackage();
  place.addPackage("OUT", {{.name = "Good"}}, {{"Far", "bus/far"}});
  place.write(place.controlFile(),
              contentsOf(place.controlFile()) +
                  "[DisablePackage]\nNumPackages=1\n[Package1]\nPackageName=OUT\n");
  EXPECT_THAT(run({"list"}).out, HasSubstr("OUT          disabled by the control file"));
}

TEST_F(Diagctl, a_package_that_cannot_be_loaded_spoils_the_verdict_of_a_run) {
  addMixedPackage();
  place.addPackage("BROKEN", {{.name = "Good"}}, {{"Far", "bus/far"}});
  place.write(place.path("packages/libBROKEN.so"), "no shared object");
  const Outcome outcome = run({"run", "-t", "Good", "--format", "jsonl"});
  EXPECT_EQ(outcome.exitCode, noVerdict);
  EXPECT_EQ(artifacts(parseLines(outcome.out), "error").at(0)["symptom"], "package-not-loaded");
  EXPECT_EQ(run({"list"}).exitCode, noVerdict);
}

TEST_F(Diagctl, show_tells_all_of_an_item) {
  addMixedPackage();
  EXPECT_THAT(run({"show", "Picky"}).out,
              AllOf(HasSubstr("test 5 of Package MIX: Picky"), HasSubstr("on Left: not supported"),
                    HasSubstr("on Right: enabled")));
  EXPECT_THAT(run({"show", "left"}).out, HasSubstr("tag bus/left"));
  EXPECT_EQ(run({"show", "nothing"}).exitCode, nothingRan);
}

TEST_F(Diagctl, explain_knows_both_tables_by_name_and_number) {
  EXPECT_THAT(diagctl({"explain", "load_library_failed"}).out, HasSubstr("LOAD_LIBRARY_FAILED"));
  EXPECT_THAT(diagctl({"explain", "32"}).out,
              AllOf(HasSubstr("FUNCTION_NOT_FOUND_IN_DLL"),
                    HasSubstr("UNABLE_TO_PROCESS_TEST_REQUEST"), HasSubstr("->")));
  EXPECT_EQ(diagctl({"explain", "9999"}).exitCode, nothingRan);
}

TEST_F(Diagctl, estimate_asks_the_packages_and_sums) {
  place.addPackage("EST",
                   {{.name = "One", .more = "Estimate=90"},
                    {.name = "Two", .more = "Estimate=30\nTestEstimatedTime=5"}},
                   {{"Left", "bus/left"}, {"Right", "bus/right"}});
  const Outcome outcome = run({"estimate", "--passes", "2"});
  EXPECT_EQ(outcome.exitCode, passed);
  const auto lines = linesOf(outcome.out);
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_EQ(lines[0], "  3 min 00 s  Package EST: One on Left");
  EXPECT_EQ(lines.back(), "4 tests: 8 min 00 s one after the other, 4 min 00 s side by side");
  EXPECT_EQ(run({"estimate", "-t", "None"}).exitCode, nothingRan);
}

TEST_F(Diagctl, check_of_a_sound_workplace_finds_nothing) {
  addMixedPackage();
  const Outcome outcome = run({"check"});
  EXPECT_EQ(outcome.exitCode, passed) << outcome.out;
}

TEST_F(Diagctl, check_tells_every_problem_with_file_section_key_and_reason) {
  addMixedPackage();
  place.addPackage("CLASH", {{.name = "Good"}}, {{"Far left", "other/left"}});
  place.replaceIn(place.controlFile(), "RunMode=PARALLEL", "RunMode=SIDEWAYS\nRunMod=SERIAL");
  place.replaceIn(place.controlFile(), "HaltOnError=FALSE\n", "");
  place.replaceIn(place.packageFile("MIX"), "SystemLock=FALSE", "SystemLock=MAYBE");
  place.replaceIn(place.packageFile("MIX"), "TestName=Weak\n", "TestName=\n");
  place.replaceIn(place.packageFile("MIX"), "7=LINE_STUCK", "7=LINE_STUCK\n9=LINE_GONE");
  place.replaceIn(place.path("packages/de/MIX.cfg"), "LINE_WEAK=$1$", "LINE_WEAK=$1");
  fs::remove(place.path("packages/en/CLASH.cfg"));
  place.write(place.path("packages/LONELY.cfg"), "[Package]\n");
  const Outcome outcome = run({"check"});
  EXPECT_EQ(outcome.exitCode, noVerdict);
  const std::string mix = place.packageFile("MIX");
  EXPECT_THAT(
      linesOf(outcome.out),
      IsSupersetOf(std::vector<std::string>{
          place.controlFile() + " [GlobalSettings] RunMode: 'SIDEWAYS' is none of SERIAL, "
                                "PARALLEL, 0, 1",
          place.controlFile() + " [GlobalSettings] RunMod: no such key is read",
          place.controlFile() + " [GlobalSettings] HaltOnError: the key is missing",
          mix + " [Package] SystemLock: 'MAYBE' is none of TRUE, FALSE",
          mix + " [TestID3] TestName: the value is empty or too long",
          place.path("packages/en/MIX.cfg") + " [en] LINE_GONE: the token has no text",
          place.path("packages/de/MIX.cfg") + " [de] LINE_WEAK: a \"$\" has no counterpart",
          place.path("packages/en/CLASH.cfg") + ": the file of texts is missing or cannot be read",
          place.path("packages/libLONELY.so") + ": the shared object of the package is missing"}));
}

TEST_F(Diagctl, check_tells_tags_that_clash) {
  place.addPackage("A", {{.name = "Good"}}, {{"Left", "bus/left"}});
  place.addPackage("B", {{.name = "Good"}}, {{"Far left", "other/left"}});
  const Outcome outcome = run({"check"});
  EXPECT_EQ(outcome.exitCode, noVerdict);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("resource tags left: "), HasSubstr("bus/left (A, Left)"),
                                 HasSubstr("other/left (B, Far left)")));
}

TEST_F(Diagctl, report_of_a_bad_log_names_file_line_and_reason) {
  const std::string log = place.path("bad.jsonl");
  place.write(log, "{\"schemaVersion\":{\"major\":2,\"minor\":0}}\nnonsense\n{}\n");
  const Outcome outcome = diagctl({"report", log});
  EXPECT_EQ(outcome.exitCode, noVerdict);
  EXPECT_THAT(outcome.err, HasSubstr(log + ":2: "));
  EXPECT_THAT(diagctl({"report", place.path("none")}).err, HasSubstr("No such file"));
}

TEST_F(Diagctl, selftest_proves_that_misbehaviour_is_contained) {
  const Outcome outcome = diagctl({"selftest", "--allow-insecure"});
  EXPECT_EQ(outcome.exitCode, passed) << outcome.out << outcome.err;
  const auto lines = linesOf(outcome.out);
  EXPECT_GE(lines.size(), 25U);
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string& line) { return line.rfind("ESCAPED", 0) == 0; }),
            0);
}

// ---- Control files and safety
// --------------------------------------------------------------------

TEST_F(Diagctl, control_files_are_found_in_the_user_s_directory) {
  addMixedPackage();
  fs::create_directories(place.path("home/tarvexdiags"));
  fs::copy_file(place.controlFile(), place.path("home/tarvexdiags/control.cfg"));
  Program::Options options;
  options.environment["XDG_CONFIG_HOME"] = place.path("home");
  EXPECT_THAT(diagctl({"list"}, options).out, HasSubstr("MIX"));
}

TEST_F(Diagctl, a_bad_control_file_is_told_with_what_to_do) {
  place.write(place.controlFile(), "[GlobalSettings]\n");
  const Outcome outcome = run({"list"});
  EXPECT_EQ(outcome.exitCode, noVerdict);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("INITIALISATION_FAILED"), HasSubstr("diagctl check")));
  EXPECT_EQ(diagctl({"--config", place.path("none.cfg"), "list"}).exitCode, noVerdict);
}

TEST_F(Diagctl, root_refuses_what_others_may_write_to_and_says_which) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root is refused";
  }
  addMixedPackage();
  fs::permissions(place.packageFile("MIX"), fs::perms(0666));
  const Outcome refused = run({"run", "-t", "Good"});
  EXPECT_EQ(refused.exitCode, noVerdict);
  EXPECT_THAT(refused.err, AllOf(HasSubstr(place.packageFile("MIX") + ": may be written by others"),
                                 HasSubstr("--allow-insecure")));
  EXPECT_EQ(run({"run", "-t", "Good", "--allow-insecure"}).exitCode, passed);
  EXPECT_THAT(run({"check"}).out, HasSubstr("permissions: " + place.packageFile("MIX")));
  fs::permissions(place.packageFile("MIX"), fs::perms(0644));
  ASSERT_EQ(chown(place.path("packages/libMIX.so").c_str(), 1000, 1000), 0);
  EXPECT_THAT(run({"list"}).err, HasSubstr("is owned by user 1000"));
}

// ---- Signals -----------------------------------------------------------------------------------

class DiagctlSignals : public Diagctl, public ::testing::WithParamInterface<int> {};

TEST_P(DiagctlSignals, the_first_ends_the_run_with_its_report) {
  place.addPackage("SLOW", {{.name = "Long", .milliseconds = 60'000}}, {{"One", "bus/one"}});
  Program program({"--config", place.controlFile(), "run", "-o", "tap=" + place.path("run.tap")});
  ASSERT_TRUE(program.waitFor("running  Package SLOW: Long"));
  program.signal(GetParam());
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.exitCode, 128 + GetParam());
  EXPECT_THAT(outcome.out, HasSubstr("SKIPPED  Package SLOW: Long on One"));
  EXPECT_THAT(contentsOf(place.path("run.tap")), HasSubstr("1..1"));
}

INSTANTIATE_TEST_SUITE_P(Each, DiagctlSignals, ::testing::Values(SIGINT, SIGTERM, SIGHUP));

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
