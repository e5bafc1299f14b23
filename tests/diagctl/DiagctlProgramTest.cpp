// The built program as a black box: each verb, option, exit code and format.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "DiagCtrl/DiagCtrlEvent.h"
#include "diagctl/session/OpenFiles.h"
#include "packagekit/KitEvents.h"
#include "packagekit/contract/KitCodes.h"
#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/support/Eventually.h"
#include "tests/support/Places.h"
#include "tests/support/Sanitized.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::ContainsRegex;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::StartsWith;
using TestSupport::eventually;
using Json = nlohmann::json;
namespace fs = std::filesystem;

// ---- run: exit codes and selection ---------------------------------------------------------

TEST_F(Diagctl, run_of_passing_tests_ends_with_0) {
  addMixedPackage();
  const Outcome outcome = run({"run", "-t", "Good", "-q"});
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("2 tests"));
  EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(Diagctl, run_with_a_failure_ends_with_1_and_tells_finding_and_action) {
  addMixedPackage();
  const Outcome outcome = run({"run", "-t", "Bad", "-d", "Left", "-t", "Good"});
  EXPECT_EQ(outcome.exitCode, kHardwareFailure);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("FAILED   Package MIX: Bad on Left"), HasSubstr("line 3 is stuck."),
                    HasSubstr("-> Replace the cable.")));
}

TEST_F(Diagctl, run_tells_findings_when_the_packages_have_gone_meanwhile) {
  place.addPackage("MIX",
                   {{.name = "Bad", .behaviour = "fail", .milliseconds = 1500, .more = "Event=7"}},
                   {{"Left", "bus/left"}});
  Program program(withControlFile({"run", "--lang", "de"}));
  ASSERT_TRUE(eventually([&] { return fs::exists(place.markOf("MIX", 1, "Left")); }));
  fs::remove_all(place.path("packages"));
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.exitCode, kHardwareFailure) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("line 3 klemmt."), HasSubstr("-> Kabel ersetzen.")));
}

TEST_F(Diagctl, run_with_too_few_open_files_says_so_before_anything_runs) {
  addMixedPackage();
  // A sanitizer opens files of its own to look at memory, and takes it for bad when it cannot.
  constexpr unsigned long kFewest = TestSupport::kIsSanitized ? 12 : 5;
  for (unsigned long files = kFewest; files <= 23; ++files) {
    Program::Options few;
    few.openFiles = files;
    const Outcome outcome = run({"run", "-t", "Good", "-d", "Left"}, few);
    EXPECT_EQ(outcome.exitCode, kNoVerdict) << files;
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(outcome.err,
                HasSubstr(std::to_string(files) + " files may be open at once (see \"ulimit -n\"), "
                                                  "and 24 are needed"));
  }
  Program::Options enough;
  enough.openFiles = 24;
  EXPECT_EQ(run({"run", "-q", "-t", "Good", "-d", "Left"}, enough).exitCode, kPassed);
}

TEST_F(Diagctl, run_tells_that_a_log_may_not_become_that_long) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  Program::Options small;
  small.limits[RLIMIT_FSIZE] = 512;
  const Outcome outcome = run({"run", "-q", "-t", "Good", "-o", "jsonl=" + log}, small);
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err, HasSubstr(log + ": File too large"));
}

TEST_F(Diagctl, run_of_more_tests_at_once_needs_more_open_files) {
  addMixedPackage();
  Program::Options few;
  few.openFiles = 24;
  const Outcome outcome = run({"run", "-t", "Good", "--parallel"}, few);
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err, HasSubstr("and 29 are needed"));
  EXPECT_EQ(run({"run", "-q", "-t", "Good", "--serial"}, few).exitCode, kPassed);
}

TEST_F(Diagctl, run_holds_no_more_files_open_than_it_asks_for) {
  place.useMisbehavingPackage();
  // Two of its four devices are tested one after the other.
  constexpr std::size_t kTests = 3;
  Program program(withControlFile({"run", "-q", "-t", "Long test"}));
  std::size_t most = 0;
  ASSERT_TRUE(eventually([&] {
    most = std::max(most, program.openFiles());
    return program.workers().size() == kTests;
  }));
  for (int look = 0; look < 100; ++look) {
    most = std::max(most, program.openFiles());
  }
  program.signal(SIGTERM);
  program.finish();
  EXPECT_LE(most, FrontEnd::openFilesFor(kTests).wanted);
  EXPECT_GT(most, kTests * 5) << "it was looked at too early";
}

TEST_F(Diagctl, run_comes_before_other_programs_with_one_of_its_threads_at_most) {
  place.useMisbehavingPackage();
  Program program(withControlFile({"run", "-q", "-t", "Long test", "-d", "Unit 0"}));
  program.awaitWorker();
  std::vector<int> nicenesses = program.nicenesses();
  program.signal(SIGTERM);
  program.finish();
  ASSERT_GT(nicenesses.size(), 3U);
  nicenesses.pop_back();
  EXPECT_THAT(nicenesses, Each(getpriority(PRIO_PROCESS, 0)));
}

TEST_F(Diagctl, run_of_a_hundred_and_fifty_tests_at_once_is_not_refused_at_1024_files) {
  std::vector<ConfiguredDevice> devices;
  for (int number = 0; number < 150; ++number) {
    const std::string name = "Unit" + std::to_string(number);
    devices.push_back({name, "bus/" + name});
  }
  place.addPackage("MANY", {{.name = "Good"}}, devices);
  Program::Options usual;
  usual.openFiles = 1024;
  EXPECT_EQ(run({"run", "-q", "--parallel"}, usual).exitCode, kPassed);
}

TEST_F(Diagctl, run_raises_the_limit_on_open_files_where_it_may) {
  addMixedPackage();
  Program::Options low;
  low.openFiles = 9;
  low.mostOpenFiles = 100;
  EXPECT_EQ(run({"run", "-q", "-t", "Good", "--parallel"}, low).exitCode, kPassed);
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
  EXPECT_EQ(run({"run", "-t", "Silent", "-d", "1"}).exitCode, kNoVerdict);
}

TEST_F(Diagctl, run_with_a_warning_passes_unless_it_is_strict) {
  addMixedPackage();
  EXPECT_EQ(run({"run", "-t", "Weak", "-d", "1"}).exitCode, kPassed);
  EXPECT_EQ(run({"run", "-t", "Weak", "-d", "1", "--strict"}).exitCode, kNoVerdict);
}

TEST_F(Diagctl, run_with_a_code_of_the_kit_that_nobody_knows_has_no_verdict) {
  const std::string unknown = std::to_string(PackageKit::kLastKitCode);
  place.addPackage("NEW", {{.name = "Newer", .behaviour = "warn", .more = "Event=" + unknown}},
                   {{"Left", "bus/left"}});
  const Outcome outcome = run({"run", "--format", "jsonl"});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  const auto errors = artifacts(parseLines(outcome.out), "error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors[0]["symptom"], "tool-trouble");
  EXPECT_EQ(errors[0]["message"], "event " + unknown + ": line 3");
}

TEST_F(Diagctl, run_takes_events_of_the_controller_as_the_table_says) {
  const auto name = [](unsigned int code) { return std::to_string(code); };
  using Event = DiagCtrl::DiagCtrlEvent;
  place.addPackage(
      "CTRL",
      {{.name = "Unknown", .more = "ControllerEvent=777"},
       {.name = "Trouble", .more = "ControllerEvent=" + name(Event::LOAD_LIBRARY_FAILED)},
       {.name = "Waits", .more = "ControllerEvent=" + name(Event::UNABLE_TO_PROCESS_TEST_REQUEST)}},
      {{"Left", "bus/left"}});
  const Outcome unknown = run({"run", "-t", "Unknown", "--format", "jsonl"});
  EXPECT_EQ(unknown.exitCode, kNoVerdict);
  const auto errors = artifacts(parseLines(unknown.out), "error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors[0]["symptom"], "unknown-controller-event");
  EXPECT_THAT(std::string(errors[0]["message"]), HasSubstr("(777)"));
  EXPECT_EQ(run({"run", "-t", "Trouble"}).exitCode, kNoVerdict);
  EXPECT_EQ(run({"run", "-t", "Waits"}).exitCode, kPassed);
}

TEST_F(Diagctl, run_of_nothing_ends_with_3) {
  addMixedPackage();
  const Outcome typo = run({"run", "-t", "Goood"});
  EXPECT_EQ(typo.exitCode, kNothingRan);
  EXPECT_THAT(typo.err, HasSubstr("nothing matches test 'Goood'; did you mean 'Good'?"));
  EXPECT_EQ(run({"run", "-t", "Picky", "-d", "Left"}).exitCode, kNothingRan);
  EXPECT_EQ(run({"run", "-t", "Picky", "-d", "Left", "-o", "jsonl=/dev/full"}).exitCode, kNoVerdict)
      << "as its report is lost, too";
}

TEST_F(Diagctl, run_with_one_misspelt_pattern_ends_before_it_begins) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  const Outcome outcome =
      run({"run", "-t", "Good", "-d", "Left", "-d", "Rihgt", "-p", "MIXX", "-o", "jsonl=" + log});
  EXPECT_EQ(outcome.exitCode, kNothingRan);
  EXPECT_THAT(outcome.out, IsEmpty());
  EXPECT_THAT(linesOf(outcome.err),
              ElementsAre("diagctl: nothing matches package 'MIXX'; did you mean 'MIX'?",
                          "diagctl: nothing matches device 'Rihgt'; did you mean 'Right'?"));
  EXPECT_FALSE(fs::exists(log));
  const Outcome spared = run({"run", "--dry-run", "--exclude-test", "Bda"});
  EXPECT_EQ(spared.exitCode, kNothingRan);
  EXPECT_THAT(spared.err, HasSubstr("nothing matches test 'Bda'; did you mean 'Bad'?"));
  const Outcome line = run({"run", "-t", "Goood", "--exit-style", "nagios"});
  EXPECT_EQ(line.exitCode, 3);
  EXPECT_THAT(linesOf(line.out),
              ElementsAre("DIAGCTL UNKNOWN: nothing matches test 'Goood'; did you mean 'Good'?"));
}

TEST_F(Diagctl, dry_run_tells_what_would_run_and_runs_nothing) {
  addMixedPackage();
  const Outcome outcome = run({"run", "--dry-run", "-t", "Picky", "-t", "Bad", "-d", "*ef*"});
  EXPECT_EQ(outcome.exitCode, kPassed);
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
  EXPECT_EQ(outcome.exitCode, kHardwareFailure);
  const auto ends = artifacts(parseLines(outcome.out), "testRunEnd");
  ASSERT_EQ(ends.size(), 1U);
  EXPECT_EQ(ends[0]["result"], "FAIL");
  EXPECT_EQ(run({"run", "-t", "Good", "--expect-devices", "2"}).exitCode, kPassed);
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

TEST_F(Diagctl, fail_fast_ends_the_run_after_the_first_failure) {
  addSlowPackage();
  place.addPackage("BAD", {{.name = "Bad", .behaviour = "fail", .more = "Event=7"}},
                   {{"Two", "bus/two"}});
  const Outcome outcome = run({"run", "--parallel", "--fail-fast"});
  EXPECT_EQ(outcome.exitCode, kHardwareFailure);
  EXPECT_THAT(outcome.err, HasSubstr("A test has failed: what still runs is ended."));
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("FAILED   Package BAD: Bad on Two"),
                                 Not(HasSubstr("PASSED   Package SLOW: Long"))));
}

TEST_F(Diagctl, quick_asks_for_the_short_form) {
  addSlowPackage();
  EXPECT_EQ(run({"run", "--quick"}).exitCode, kPassed);
  EXPECT_EQ(run({"run", "--profile", "quick"}).exitCode, kPassed);
}

TEST_F(Diagctl, total_time_ends_the_run_without_a_verdict) {
  addSlowPackage();
  const Outcome outcome = run({"run", "--total-time", "1s"});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.out, AnyOf(HasSubstr("ABORTED  Package SLOW: Long on One"),
                                 HasSubstr("SKIPPED  1 test was not run")));
  EXPECT_THAT(outcome.err, HasSubstr("total time is used up"));
}

TEST_F(Diagctl, total_time_of_three_centuries_ends_nothing) {
  place.addPackage("MIX", {{.name = "Good"}}, {{"Left", "bus/left"}});
  const Outcome outcome = run({"run", "-q", "--total-time", "107000d"});
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.out << outcome.err;
}

TEST_F(Diagctl, tests_whose_turn_never_came_are_not_run_and_told_in_one_line) {
  place.addPackage("ROW",
                   {{.name = "Long", .milliseconds = 60'000},
                    {.name = "Second", .milliseconds = 60'000},
                    {.name = "Third", .milliseconds = 60'000}},
                   {{"One", "bus/one"}});
  const std::string log = place.path("run.jsonl");
  Program program(withControlFile({"run", "--serial", "-o", "jsonl=" + log}));
  ASSERT_TRUE(program.waitFor("running  Package ROW: Long"));
  program.signal(SIGTERM);
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.exitCode, 128 + SIGTERM);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("ABORTED  Package ROW: Long on One"),
                                 HasSubstr("SKIPPED  2 tests were not run: "),
                                 HasSubstr("1 aborted, 2 not run"), Not(HasSubstr("Second"))));
  const auto lines = parseLines(contentsOf(log));
  EXPECT_THAT(faultsOf(lines), IsEmpty());
  const Json notRun = {{"name", "skipped"}, {"content", {{"kind", "not-run"}}}};
  const auto extensions = artifacts(lines, "extension");
  EXPECT_EQ(std::count(extensions.begin(), extensions.end(), notRun), 2);
  const Outcome report = diagctl({"report", log});
  EXPECT_EQ(report.exitCode, kNoVerdict);
  EXPECT_EQ(report.out, outcome.out);
}

TEST_F(Diagctl, what_the_mode_does_not_offer_is_skipped_for_that) {
  place.useMisbehavingPackage();
  const Outcome outcome = run({"run", "-q", "-t", "Destructive", "-t", "Behaves", "-d", "Unit 0",
                               "--format", "jsonl", "--fail-on-skip=privilege"});
  EXPECT_EQ(outcome.exitCode, kPassed) << "no privilege is missing";
  EXPECT_THAT(artifacts(parseLines(outcome.out), "extension"),
              Contains(Json{{"name", "skipped"}, {"content", {{"kind", "not-in-this-mode"}}}}));
  EXPECT_EQ(
      run({"run", "-q", "-t", "Destructive", "-t", "Behaves", "-d", "Unit 0", "--fail-on-skip"})
          .exitCode,
      kNoVerdict);
  EXPECT_THAT(run({"run", "-q", "-t", "Destructive", "-t", "Behaves", "-d", "Unit 0"}).out,
              HasSubstr("1 passed, 1 skipped in this mode"));
}

TEST_F(Diagctl, what_this_user_may_not_do_is_skipped_for_that) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root has capabilities to be without";
  }
  const fs::path packages = fs::path(TARVEX_DIAGCTL).parent_path().parent_path() / "packages";
  const std::string disk = place.path("locked.disk");
  place.write(disk, std::string(std::size_t{1} << 20, 'x'));
  fs::permissions(disk, fs::perms::none);
  Program::Options powerless;
  powerless.withoutCapabilities = {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH};
  std::vector<std::string> arguments = {
      "--allow-insecure", "run", "-q", "-p", "storage", "-d", "*locked*", "-t", "Random read"};
  arguments.insert(arguments.end(),
                   {"--packages", packages, "--set", "storage.DeviceFile1=" + disk});
  const Outcome outcome = run(arguments, powerless);
  EXPECT_EQ(outcome.exitCode, kNothingRan) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("this user may not read the disk"),
                                 HasSubstr("1 skipped for lack of a privilege")));
  std::vector<std::string> strictly = arguments;
  strictly.emplace_back("--fail-on-skip=privilege");
  EXPECT_EQ(run(strictly, powerless).exitCode, kNoVerdict);
}

TEST_F(Diagctl, a_plain_user_is_told_first_what_that_costs) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "it takes root to become somebody else";
  }
  const std::vector<std::string> arguments = {
      "--allow-insecure", "run", "-q", "--quick", "-p", "network", "-t", "Loopback datagrams"};
  Program::Options nobody;
  nobody.user = 65534;
  const Outcome outcome = diagctl(arguments, nobody);
  if (outcome.exitCode == 126 || outcome.exitCode == 127) {
    GTEST_SKIP() << "the program lies where a plain user cannot read it";
  }
  const std::size_t remark = outcome.out.find("Not run by root");
  EXPECT_LT(remark, outcome.out.find("PASSED ")) << outcome.out << outcome.err;
  EXPECT_EQ(outcome.out.find("Not run by root", remark + 1), std::string::npos);
  EXPECT_THAT(diagctl(arguments).out, Not(HasSubstr("by root")));
}

TEST_F(Diagctl, serial_runs_one_test_at_a_time_and_parallel_several) {
  place.addPackage("TWO",
                   {{.name = "Half", .milliseconds = 500}, {.name = "Held", .behaviour = "held"}},
                   {{"One", "bus/one"}, {"Two", "bus/two"}});
  // The most steps that are open at once.
  const auto widest = [](const std::string& log) {
    int open = 0;
    int most = 0;
    for (const Json& line : parseLines(log)) {
      const Json step = line.value("testStepArtifact", Json::object());
      open += step.contains("testStepStart") ? 1 : 0;
      open -= step.contains("testStepEnd") ? 1 : 0;
      most = std::max(most, open);
    }
    return most;
  };
  EXPECT_EQ(widest(run({"run", "--serial", "-t", "Half", "--format", "jsonl"}).out), 1);
  const std::string log = place.path("run.jsonl");
  Program program(withControlFile({"run", "--parallel", "-t", "Held", "-o", "jsonl=" + log}));
  for (const char* const device : {"One", "Two"}) {
    EXPECT_TRUE(program.waitFor(std::string("running  Package TWO: Held on ") + device));
  }
  place.write(place.packageFile("TWO") + ".go", "");
  EXPECT_EQ(program.finish().exitCode, kPassed);
  EXPECT_EQ(widest(contentsOf(log)), 2);
}

TEST_F(Diagctl, the_time_of_a_test_ends_its_passes_and_cuts_none_short) {
  place.addPackage("MID", {{.name = "Middle", .milliseconds = 300}}, {{"One", "bus/one"}});
  const auto begin = std::chrono::steady_clock::now();
  const Outcome outcome =
      run({"run", "--time", "3s", "--passes", "1000", "--halt-on-error", "--format", "jsonl"});
  // How many passes that is depends on the machine; the time is told in whole seconds.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;
  EXPECT_LE(artifacts(parseLines(outcome.out), "diagnosis").size(), 20U);
}

TEST_F(Diagctl, units_of_time_are_seconds_minutes_hours_and_days) {
  addMixedPackage();
  const auto secondsOf = [&](const char* time) {
    const auto lines = parseLines(run({"run", "-t", "Good", "-d", "1", "--time", time,
                                       "--total-time", time, "--format", "jsonl"})
                                      .out);
    const Json parameters = artifacts(lines, "testRunStart").at(0)["parameters"];
    EXPECT_EQ(parameters["timePerTestSeconds"], parameters["totalTimeSeconds"]);
    return parameters["totalTimeSeconds"].get<std::string>();
  };
  EXPECT_EQ(secondsOf("90"), "90");
  EXPECT_EQ(secondsOf("90s"), "90");
  EXPECT_EQ(secondsOf("2m"), "120");
  EXPECT_EQ(secondsOf("1 h"), "3600");
  EXPECT_EQ(secondsOf("2D"), "172800");
}

/// How the log tells the beginnings of passes: "..., pass 2, seed 42."
std::vector<std::string> beginningsIn(const std::string& log) {
  std::vector<std::string> beginnings;
  for (const Json& each : artifacts(parseLines(log), "log")) {
    const std::string message = each["message"];
    if (const auto position = message.find("started, "); position != std::string::npos) {
      beginnings.push_back(message.substr(position + 9));
    }
  }
  return beginnings;
}

TEST_F(Diagctl, a_seed_reaches_each_pass_of_each_test_and_repeats) {
  place.useMisbehavingPackage();
  const std::vector<std::string> arguments = {"run",      "-t", "Behaves",  "-d",   "1",
                                              "--passes", "2",  "--format", "jsonl"};
  std::vector<std::string> seeded = arguments;
  seeded.insert(seeded.end(), {"--seed", "42"});
  EXPECT_THAT(beginningsIn(run(seeded).out), ElementsAre("pass 1, seed 42.", "pass 2, seed 42."));
  const auto free = beginningsIn(run(arguments).out);
  EXPECT_EQ(free.size(), 2U);
  EXPECT_NE(free, beginningsIn(run(arguments).out)) << "without a seed, each run has its own";
}

TEST_F(Diagctl, under_stress_a_test_repeats_by_itself_until_its_passes_or_its_time_are_used_up) {
  place.useMisbehavingPackage();
  const std::vector<std::string> arguments = {"run", "--stress", "-t",       "Behaves",
                                              "-d",  "1",        "--format", "jsonl"};
  std::vector<std::string> counted = arguments;
  counted.insert(counted.end(), {"--passes", "4"});
  const Outcome outcome = run(counted);
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.err;
  EXPECT_EQ(beginningsIn(outcome.out).size(), 4U);
  EXPECT_EQ(artifacts(parseLines(outcome.out), "diagnosis").size(), 4U);
  std::vector<std::string> timed = arguments;
  timed.insert(timed.end(), {"--passes", "1000000", "--time", "3s"});
  const auto begin = std::chrono::steady_clock::now();
  const Outcome limited = run(timed);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
  EXPECT_EQ(limited.exitCode, kPassed) << limited.err;
}

TEST_F(Diagctl, the_diagnostic_mode_decides_what_packages_offer) {
  place.useMisbehavingPackage();
  const auto planOf = [&](std::vector<std::string> options) {
    options.insert(options.begin(), {"run", "--dry-run", "-t", "Destructive", "-d", "1"});
    return linesOf(run(options).out);
  };
  const std::string skipped = "skip  Misbehaving package: Destructive on Unit 0 (not supported: ";
  EXPECT_THAT(planOf({}), ElementsAre(StartsWith(skipped)));
  EXPECT_THAT(planOf({"--mode", "customer"}), ElementsAre(StartsWith(skipped)));
  EXPECT_THAT(planOf({"--mode", "Factory"}),
              ElementsAre("run   Misbehaving package: Destructive on Unit 0"));
  EXPECT_EQ(run({"run", "-t", "Behaves", "-d", "1", "--mode", "bringup"}).exitCode, kPassed);
}

TEST_F(Diagctl, dry_runs_and_estimates_tell_what_a_run_would_lack) {
  addMixedPackage();
  for (const char* verb : {"run", "estimate"}) {
    std::vector<std::string> arguments = {verb, "-t", "Good", "-t", "Goood"};
    if (arguments[0] == "run") {
      arguments.emplace_back("--dry-run");
    }
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, kNothingRan) << verb;
    EXPECT_THAT(outcome.out, IsEmpty()) << verb;
    EXPECT_THAT(outcome.err, HasSubstr("nothing matches test 'Goood'")) << verb;
  }
  EXPECT_EQ(run({"run", "--dry-run", "-t", "Picky", "-d", "Left"}).exitCode, kNothingRan);
}

// ---- The bundled packages ----------------------------------------------------------------------

TEST_F(Diagctl, with_nothing_configured_the_bundled_packages_run) {
  const std::vector<std::string> arguments = {
      "--allow-insecure", "run", "-q", "--quick", "-p", "network", "-t", "Loopback datagrams"};
  const Outcome outcome = diagctl(arguments);
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.out << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("PASSED   Network: Loopback datagrams on lo"));
}

TEST_F(Diagctl, a_plain_user_runs_tests_and_needs_no_permission_for_it) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "every test is run by a plain user";
  }
  Program::Options nobody;
  nobody.user = 65534;
  const std::vector<std::string> arguments = {"run",     "-q", "--quick",           "-p",
                                              "network", "-t", "Loopback datagrams"};
  const Outcome outcome = diagctl(arguments, nobody);
  if (outcome.exitCode == 126 || outcome.exitCode == 127) {
    GTEST_SKIP() << "the program lies where a plain user cannot read it";
  }
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.out << outcome.err;
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

TEST_F(Diagctl, monitors_take_trouble_for_unknown_and_never_for_a_failure) {
  addSlowPackage();
  const auto codeOf = [&](const Program::Options& options, const char* style, const char* test) {
    return run({"run", "--quick", "-t", test, "--exit-style", style}, options).exitCode;
  };
  Program::Options full;
  full.standardOutput = "/dev/full";
  EXPECT_EQ(codeOf(full, "nagios", "Long"), 3);
  EXPECT_EQ(codeOf(full, "npd", "Long"), 2);
  EXPECT_EQ(codeOf({}, "nagios", "None"), 3);
  EXPECT_EQ(codeOf({}, "npd", "None"), 2);

  Program program(withControlFile({"run", "--exit-style", "nagios"}));
  ASSERT_TRUE(program.waitFor("running  Package SLOW: Long"));
  program.signal(SIGTERM);
  EXPECT_EQ(program.finish().exitCode, 3);

  place.write(place.controlFile(), "[GlobalSettings]\n");
  const Outcome outcome = run({"run", "--exit-style", "nagios"});
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_THAT(linesOf(outcome.out), ElementsAre(StartsWith("DIAGCTL UNKNOWN: starting with")));
  EXPECT_EQ(codeOf({}, "npd", "Long"), 2);
}

TEST_F(Diagctl, a_report_judges_as_its_run_did) {
  addMixedPackage();
  const std::string log = place.path("run.jsonl");
  struct Case {
    const char* test;
    std::vector<std::string> judgement;
    int code;
  };
  for (const Case& each : std::vector<Case>{{"Good", {}, kPassed},
                                            {"Weak", {}, kPassed},
                                            {"Weak", {"--strict"}, kNoVerdict},
                                            {"Weak", {"--exit-style", "nagios"}, 1},
                                            {"Bad", {"--exit-style", "nagios"}, 2},
                                            {"Bad", {"--exit-style", "npd"}, 1},
                                            {"Silent", {"--exit-style", "nagios"}, 3},
                                            {"Silent", {"--exit-style", "npd"}, 2}}) {
    std::vector<std::string> running = {"run", "-q",      "-d", "2",
                                        "-t",  each.test, "-o", "jsonl=" + log};
    std::vector<std::string> reporting = {"report", log};
    running.insert(running.end(), each.judgement.begin(), each.judgement.end());
    reporting.insert(reporting.end(), each.judgement.begin(), each.judgement.end());
    const Outcome live = run(running);
    const Outcome report = diagctl(reporting);
    EXPECT_EQ(live.exitCode, each.code) << each.test;
    EXPECT_EQ(report.exitCode, each.code) << each.test;
    EXPECT_THAT(report.out, EndsWith(live.out));
  }
  const Outcome line = diagctl({"report", log, "--exit-style", "nagios"});
  EXPECT_THAT(linesOf(line.out), ElementsAre(StartsWith("DIAGCTL UNKNOWN: 1 without a verdict")));
  const Outcome lost = diagctl({"report", place.path("none"), "--exit-style", "nagios"});
  EXPECT_EQ(lost.exitCode, 3);
  EXPECT_THAT(linesOf(lost.out), ElementsAre(StartsWith("DIAGCTL UNKNOWN: " + place.path("none"))));
}

TEST_F(Diagctl, a_report_of_an_aborted_run_has_no_verdict_as_the_run_had_none) {
  addSlowPackage();
  const std::string log = place.path("run.jsonl");
  EXPECT_EQ(run({"run", "--total-time", "1s", "-o", "jsonl=" + log}).exitCode, kNoVerdict);
  EXPECT_EQ(diagctl({"report", log}).exitCode, kNoVerdict);
  EXPECT_THAT(faultsOf(parseLines(contentsOf(log))), IsEmpty());
}

// ---- The table of exit codes in the manual
// --------------------------------------------------------

/// The paragraphs of the manual's table: by code, with their marks taken out.
std::map<std::string, std::string> exitCodesOfManual() {
  const std::string manual = contentsOf(TestSupport::sourcePath("man/diagctl.1"));
  const std::size_t begin = manual.find("\n.SH EXIT STATUS");
  const std::string section = manual.substr(begin, manual.find("\n.PP\nWith", begin) - begin);
  std::map<std::string, std::string> paragraphs;
  std::string code;
  bool isHead = false;
  for (const std::string& line : linesOf(section)) {
    if (line == ".TP") {
      isHead = true;
    } else if (isHead) {
      code = line.substr(line.find(' ') + 1);
      isHead = false;
    } else if (!code.empty()) {
      std::string text = line.starts_with(".B") ? line.substr(line.find(' ') + 1) : line;
      text = std::regex_replace(text, std::regex(R"(\\-)"), "-");
      paragraphs[code] += text + " ";
    }
  }
  return paragraphs;
}

TEST_F(Diagctl, the_manual_s_table_of_exit_codes_is_what_happens) {
  addMixedPackage();
  place.addPackage("LATE", {{.name = "Long", .milliseconds = 60'000}}, {{"One", "bus/one"}});
  const std::map<std::string, std::string> manual = exitCodesOfManual();
  std::set<std::string> walked;
  const auto expectRow = [&](const std::string& code, const std::string& words,
                             std::vector<std::string> arguments,
                             const Program::Options& options = {}) {
    walked.insert(code);
    ASSERT_TRUE(manual.contains(code)) << code;
    EXPECT_THAT(manual.at(code), HasSubstr(words));
    EXPECT_EQ(std::to_string(run(arguments, options).exitCode), code) << words;
  };
  expectRow("0", "ran and passed", {"run", "-t", "Good"});
  expectRow("0", "Warnings count as passed", {"run", "-t", "Weak"});
  expectRow("0", "what was skipped beside others", {"run", "-t", "Good", "-t", "Picky"});
  expectRow("1", "a test that failed", {"run", "-t", "Bad"});
  expectRow("1", "a missing device", {"run", "-t", "Good", "--expect-devices", "9"});
  expectRow("2", "trouble of the tool", {"run", "-t", "Silent"});
  expectRow("2", "a test that was aborted", {"run", "-t", "Long", "--total-time", "1s"});
  expectRow("2", "No verdict", {"run", "-t", "Weak", "--strict"});
  expectRow("2", "No verdict", {"run", "-t", "Good", "-t", "Picky", "--fail-on-skip"});
  Program::Options full;
  full.standardOutput = "/dev/full";
  expectRow("2", "a report that could not be written", {"run", "-t", "Good"}, full);
  expectRow("3", "A pattern matches nothing", {"run", "-t", "Good", "-t", "None"});
  expectRow("3", "all was skipped", {"run", "-t", "Picky", "-d", "Left"});
  expectRow("64", "Wrong usage", {"run", "--bad"});
  place.addPackage("BROKEN", {{.name = "Good"}}, {{"Far", "bus/far"}});
  place.write(place.path("packages/libBROKEN.so"), "no shared object");
  expectRow("2", "a package that could not be loaded", {"run", "-t", "Good"});
  expectRow("2", "a problem", {"check"});
  std::set<std::string> codes;
  for (const auto& [code, text] : manual) {
    codes.insert(code);
  }
  walked.insert("128+n");  // the signals have tests of their own
  EXPECT_EQ(codes, walked);
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
                                             {"run", "--expect-devices", "-1"},
                                             {"run", "--seed", "0"},
                                             {"run", "-o", "tap=-", "-o", "text=-"},
                                             {"estimate", "--passes", "0"},
                                             {"report", "run.jsonl", "-o", "tap=-", "-o", "text=-"},
                                             {"run", "--exit-style", "loud"},
                                             {"list", "planets"},
                                             {"show"},
                                             {"explain"},
                                             {"report"}}) {
    const Outcome outcome = diagctl(arguments);
    EXPECT_EQ(outcome.exitCode, kUsage) << ::testing::PrintToString(arguments);
    EXPECT_THAT(outcome.err, Not(IsEmpty())) << ::testing::PrintToString(arguments);
    EXPECT_THAT(outcome.out, IsEmpty()) << ::testing::PrintToString(arguments);
  }
}

TEST_F(Diagctl, help_has_examples_at_each_level) {
  const Outcome top = diagctl({"--help"});
  EXPECT_EQ(top.exitCode, kPassed);
  EXPECT_THAT(top.out, HasSubstr("Examples:"));
  for (const char* verb :
       {"list", "show", "run", "watch", "estimate", "check", "explain", "report", "selftest"}) {
    EXPECT_THAT(top.out, HasSubstr(std::string("  ") + verb + " "));
    const Outcome help = diagctl({verb, "--help"});
    EXPECT_EQ(help.exitCode, kPassed);
    EXPECT_THAT(help.out, AllOf(HasSubstr("Examples:"), HasSubstr(std::string("diagctl ") + verb)));
  }
  EXPECT_THAT(diagctl({"--version"}).out, ::testing::MatchesRegex("diagctl [0-9.]+\n"));
}

// ---- Other verbs -------------------------------------------------------------------------------

TEST_F(Diagctl, list_tells_packages_devices_and_tests_with_their_pairs) {
  addMixedPackage();
  EXPECT_THAT(run({"list"}).out,
              AllOf(HasSubstr("DEVICES  TESTS"), ContainsRegex("MIX .* 2 +5\n")));
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

TEST_F(Diagctl, list_tells_the_reasons_that_packages_give) {
  place.useMisbehavingPackage();
  EXPECT_THAT(run({"list", "tests"}).out, HasSubstr("not supported: unit 1 is excused: Unit 1\n"));
}

TEST_F(Diagctl, list_tells_reasons_that_are_tokens_in_the_language_of_the_reader) {
  place.useMisbehavingPackage();
  EXPECT_THAT(run({"list", "tests", "--lang", "en"}).out,
              HasSubstr("not supported: not offered in this diagnostic mode (CUSTOMER): Unit 0"));
  EXPECT_THAT(run({"list", "tests", "--lang", "de"}).out,
              HasSubstr(": in diesem Diagnosemodus nicht angeboten (CUSTOMER): Unit 0"));
}

TEST_F(Diagctl, list_tells_reasons_when_no_log_can_be_written) {
  place.useMisbehavingPackage();
  place.replaceIn(place.controlFile(), "LogDirPath=" + place.path("logs"),
                  "LogDirPath=" + place.path("nowhere"));
  EXPECT_THAT(run({"list", "tests"}).out, HasSubstr("not supported: unit 1 is excused: Unit 1\n"));
}

TEST_F(Diagctl, list_names_packages_that_the_control_file_leaves_out) {
  addMixedPackage();
  place.addPackage("OUT", {{.name = "Good"}}, {{"Far", "bus/far"}});
  place.write(place.controlFile(),
              contentsOf(place.controlFile()) +
                  "[DisablePackage]\nNumPackages=1\n[Package1]\nPackageName=OUT\n");
  EXPECT_THAT(run({"list"}).out, ContainsRegex("OUT +disabled by the control file"));
}

TEST_F(Diagctl, a_package_that_cannot_be_loaded_spoils_the_verdict_of_a_run) {
  addMixedPackage();
  place.addPackage("BROKEN", {{.name = "Good"}}, {{"Far", "bus/far"}});
  place.write(place.path("packages/libBROKEN.so"), "no shared object");
  const Outcome outcome = run({"run", "-t", "Good", "--format", "jsonl"});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_EQ(artifacts(parseLines(outcome.out), "error").at(0)["symptom"], "package-not-loaded");
  EXPECT_EQ(run({"list"}).exitCode, kNoVerdict);
}

TEST_F(Diagctl, a_package_that_was_left_out_is_named_with_its_reason_wherever_packages_are_told) {
  addMixedPackage();
  for (const char* name : {"BROKEN", "TORN"}) {
    place.addPackage(name, {{.name = "Good"}}, {{"Far", "bus/far"}});
  }
  place.write(place.path("packages/libBROKEN.so"), "no shared object");
  place.replaceIn(place.packageFile("TORN"), "NumberOfTests=1", "NumberOfTests=none");
  const std::string broken = "package BROKEN was left out: UNABLE_TO_LOAD_PACKAGE: ";
  const std::string torn = "package TORN was left out: PACKAGE_INITIALIZE_FAILED: ";
  const Outcome list = run({"list"});
  EXPECT_THAT(list.out, AllOf(ContainsRegex("BROKEN +left out: UNABLE_TO_LOAD_PACKAGE: "),
                              ContainsRegex("TORN +left out: PACKAGE_INITIALIZE_FAILED: ")));
  EXPECT_THAT(list.err, AllOf(HasSubstr(broken), HasSubstr("file too short"), HasSubstr(torn)));
  for (const char* format : {"text", "jsonl", "junit", "tap"}) {
    const Outcome outcome = run({"run", "-q", "-t", "Good", "--format", format});
    EXPECT_EQ(outcome.exitCode, kNoVerdict) << format;
    EXPECT_THAT(outcome.out, AllOf(HasSubstr(broken), HasSubstr(torn))) << format;
  }
  EXPECT_THAT(run({"run", "-q", "-t", "Good", "--exit-style", "nagios"}).out, HasSubstr(broken));
  EXPECT_THAT(run({"run", "--dry-run", "-t", "Good"}).err, HasSubstr(broken));
  const Outcome wanted = run({"run", "-q", "-p", "BROKEN"});
  EXPECT_EQ(wanted.exitCode, kNoVerdict) << "what was asked for is there, and has no verdict";
  EXPECT_THAT(wanted.out, HasSubstr(broken));
}

TEST_F(Diagctl, show_tells_all_of_an_item) {
  addMixedPackage();
  EXPECT_THAT(run({"show", "Picky"}).out,
              AllOf(HasSubstr("test 5 of Package MIX: Picky"), HasSubstr("on Left: not supported"),
                    HasSubstr("on Right: enabled")));
  EXPECT_THAT(run({"show", "left"}).out, HasSubstr("tag bus/left"));
  place.replaceIn(place.packageFile("MIX"), "SystemLock=FALSE",
                  "SystemLock=FALSE\nPrivileges=ptrace, cap_net_raw");
  place.replaceIn(place.packageFile("MIX"), "TestName=Weak\n", "TestName=Weak\nPrivileges=none\n");
  EXPECT_THAT(run({"show", "MIX"}).out,
              AllOf(HasSubstr("Picky: root's rights that it keeps: CAP_NET_RAW, ptrace\n"),
                    HasSubstr("Weak: root's rights that it keeps: none\n")));
  EXPECT_EQ(run({"show", "nothing"}).exitCode, kNothingRan);
}

TEST_F(Diagctl, explain_knows_both_tables_by_name_and_number) {
  EXPECT_THAT(diagctl({"explain", "load_library_failed"}).out, HasSubstr("LOAD_LIBRARY_FAILED"));
  EXPECT_THAT(diagctl({"explain", "kit_device_vanished"}).out, HasSubstr("has vanished: .... Last"))
      << "a word and its detail are one thing to be filled in";
  EXPECT_THAT(diagctl({"explain", "32"}).out,
              AllOf(HasSubstr("FUNCTION_NOT_FOUND_IN_DLL"),
                    HasSubstr("UNABLE_TO_PROCESS_TEST_REQUEST"), HasSubstr("->")));
  EXPECT_EQ(diagctl({"explain", "9999"}).exitCode, kNothingRan);
}

TEST_F(Diagctl, explain_knows_every_word_and_number_that_a_report_can_show) {
  const auto explained = [](const std::string& asked) {
    const Outcome outcome = diagctl({"--lang", "en", "explain", asked});
    EXPECT_EQ(outcome.exitCode, kPassed) << asked;
    return outcome.out;
  };
  EXPECT_THAT(explained("controller:61"), StartsWith("controller: "));
  EXPECT_THAT(explained("kit:9040"),
              AllOf(StartsWith("kit: KIT_TEST_NOT_SUPPORTED (warning)"), HasSubstr("  -> ")));
  EXPECT_THAT(explained("9040"), StartsWith("kit: KIT_TEST_NOT_SUPPORTED"));
  EXPECT_THAT(explained("memory:201"), StartsWith("memory: "));
  EXPECT_THAT(explained("worker-crashed"), StartsWith("kit: KIT_WORKER_CRASHED (error)"));
  EXPECT_THAT(explained("load-library-failed"), StartsWith("controller: LOAD_LIBRARY_FAILED"));
  EXPECT_THAT(explained("device-missing"), StartsWith("word: device-missing"));
  EXPECT_THAT(explained("exit:2"), StartsWith("exit: exit status 2"));
  EXPECT_THAT(explained("2"), AllOf(HasSubstr("controller: "), HasSubstr("exit: exit status 2")));
  for (const char* word : {"PASSED", "FAILED", "WARNING", "ERROR", "ABORTED", "SKIPPED"}) {
    EXPECT_THAT(explained(word), StartsWith(std::string("word: ") + word));
  }
  for (const char* word : {"crash-on-one-device", "crash-not-repeated", "queueing-failed",
                           "run-trouble", "further-tests", "no-end", "log-not-read", "part-missing",
                           "part-degraded", "part-differs", "part-added", "not-comparable"}) {
    EXPECT_THAT(explained(word), AllOf(StartsWith(std::string("word: ") + word), HasSubstr("-> ")));
  }
  EXPECT_THAT(diagctl({"--lang", "de", "explain", "bestanden"}).out, StartsWith("word: PASSED"));
  for (const auto& row : PackageKit::Contract::kKitCodes) {
    EXPECT_THAT(explained(std::string(row.symptom)), HasSubstr(std::string(row.token)));
  }
  EXPECT_THAT(diagctl({"--lang", "de", "explain", "kit:9000"}).out, HasSubstr("abgest\u00fcrzt"));
}

TEST_F(Diagctl, estimate_asks_the_packages_and_sums) {
  place.addPackage("EST",
                   {{.name = "One", .more = "Estimate=90"},
                    {.name = "Two", .more = "Estimate=30\nTestEstimatedTime=5"}},
                   {{"Left", "bus/left"}, {"Right", "bus/right"}});
  const Outcome outcome = run({"estimate", "--passes", "2"});
  EXPECT_EQ(outcome.exitCode, kPassed);
  const auto lines = linesOf(outcome.out);
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_EQ(lines[0], "  3 min 00 s  Package EST: One on Left");
  EXPECT_EQ(lines.back(), "4 tests: 8 min 00 s one after the other, 4 min 00 s side by side");
  EXPECT_EQ(run({"estimate", "-t", "None"}).exitCode, kNothingRan);
}

TEST_F(Diagctl, estimates_and_the_head_of_a_run_know_short_forms_limits_and_passes) {
  place.addPackage("EST",
                   {{.name = "One", .more = "TestEstimatedTime=90\nQuickTestEstimatedTime=0.4"},
                    {.name = "Two", .more = "TestEstimatedTime=30"}},
                   {{"Left", "bus/left"}, {"Right", "bus/right"}});
  const auto last = [&](const std::vector<std::string>& arguments) {
    return linesOf(run(arguments).out).back();
  };
  EXPECT_EQ(last({"estimate", "-t", "One", "--quick"}),
            "2 tests: 1 s one after the other, 1 s side by side");
  EXPECT_EQ(last({"estimate", "--profile", "extended", "-d", "Left"}),
            "2 tests: 6 min 00 s one after the other, 6 min 00 s side by side");
  EXPECT_THAT(run({"run", "-q", "-t", "Two", "--passes", "9", "--time", "50s"}).out,
              HasSubstr("2 tests, about 60 s"))
      << "the second pass begins within the time, and no third one";
  EXPECT_THAT(run({"run", "-q", "-t", "One", "--quick", "--passes", "5"}).out,
              HasSubstr("2 tests, about 2 s, ends at "));
  EXPECT_THAT(run({"run", "-q", "--total-time", "50s"}).out, HasSubstr("4 tests, about 50 s"));
}

TEST_F(Diagctl, check_of_a_sound_workplace_finds_nothing) {
  addMixedPackage();
  const Outcome outcome = run({"check"});
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.out;
}

TEST_F(Diagctl, check_tells_every_problem_with_file_section_key_and_reason) {
  addMixedPackage();
  place.addPackage("CLASH", {{.name = "Good"}}, {{"Far left", "other/left"}});
  place.replaceIn(place.controlFile(), "RunMode=PARALLEL", "RunMode=SIDEWAYS\nRunMod=SERIAL");
  place.replaceIn(place.controlFile(), "HaltOnError=FALSE\n", "");
  place.replaceIn(place.packageFile("MIX"), "SystemLock=FALSE", "SystemLock=MAYBE\nNice=20");
  place.replaceIn(place.packageFile("MIX"), "TestName=Weak\n", "TestName=\n");
  place.replaceIn(place.packageFile("MIX"), "7=LINE_STUCK", "7=LINE_STUCK\n9=LINE_GONE");
  place.replaceIn(place.path("packages/de/MIX.cfg"), "LINE_WEAK=$1$", "LINE_WEAK=$1");
  place.replaceIn(place.packageFile("CLASH"), "[Devices]",
                  "SODependencies=libnone.so\n[Disable Test]\nNumberOfTests=1\n"
                  "[DisableTestID1]\nTestID=2\nMachineId=any\n[Devices]");
  place.write(place.controlFile(), contentsOf(place.controlFile()) +
                                       "[DisablePackage]\nNumPackages=1\n[Package1]\n"
                                       "PackageName=GONE\nMachineId=0x1ffff\n");
  fs::remove(place.path("packages/en/CLASH.cfg"));
  place.write(place.path("packages/LONELY.cfg"), "[Package]\n");
  const Outcome outcome = run({"check"});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  const std::string mix = place.packageFile("MIX");
  EXPECT_THAT(outcome.out, HasSubstr("[Package] SODependencies: 'libnone.so' cannot be loaded: "));
  EXPECT_THAT(
      linesOf(outcome.out),
      IsSupersetOf(std::vector<std::string>{
          place.controlFile() + " [GlobalSettings] RunMode: 'SIDEWAYS' is none of SERIAL, "
                                "PARALLEL, 0, 1",
          place.controlFile() + " [GlobalSettings] RunMod: no such key is read",
          place.controlFile() + " [GlobalSettings] HaltOnError: the key is missing",
          mix + " [Package] SystemLock: 'MAYBE' is none of TRUE, FALSE",
          mix + " [Package] Nice: 20 is not between 0 and 19",
          mix + " [TestID3] TestName: the value is empty or too long",
          place.path("packages/en/MIX.cfg") + " [en] LINE_GONE: the token has no text",
          place.path("packages/de/MIX.cfg") + " [de] LINE_WEAK: a \"$\" has no counterpart",
          place.controlFile() + " [Package1] MachineId: 131071 is not between 0 and 65535",
          place.controlFile() + " [Package1] PackageName: there is no package 'GONE' to leave out",
          place.packageFile("CLASH") + " [DisableTestID1] MachineId: 'any' is no whole number",
          place.packageFile("CLASH") + " [DisableTestID1] TestID: the package has no test 2",
          place.path("packages/en/CLASH.cfg") + ": the file of texts is missing or cannot be read",
          place.path("packages/libLONELY.so") + ": the shared object of the package is missing"}));
}

TEST_F(Diagctl, check_tells_keys_that_a_package_misses_and_those_that_nobody_reads) {
  const fs::path packages = fs::path(place.path("packages"));
  fs::remove_all(packages);
  fs::copy(fs::path(TARVEX_DIAGCTL).parent_path().parent_path() / "packages", packages,
           fs::copy_options::recursive);
  const std::string network = (packages / "network.cfg").string();
  const Outcome sound = run({"check"});
  EXPECT_THAT(sound.out, Not(HasSubstr(".cfg ["))) << "the packages as they are shipped";
  place.replaceIn(network, "CarrierSeconds=10\n", "CarierSeconds=10\n");
  place.replaceIn(network, "AllowedDrops=10\n", "");
  place.replaceIn(network, "QuickDatagrams=20000\n", "QuickDatagrams=few\n");
  place.replaceIn(network, "TestTimeout=600\n",
                  "TestTimeout=nan\nAbortGrace=inf\nTermGrace=1e300\nKillGrace=31536001\n");
  const Outcome outcome = run({"check"});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(
      linesOf(outcome.out),
      IsSupersetOf(std::vector<std::string>{
          network + " [TestID6] CarierSeconds: no such key is read",
          network + " [TestID6] CarrierSeconds: the key is missing",
          network + " [Package] AllowedDrops: the key is missing",
          network + " [Package] TestTimeout: 'nan' is no time in seconds from 0 to 31536000",
          network + " [Package] AbortGrace: 'inf' is no time in seconds from 0 to 31536000",
          network + " [Package] TermGrace: '1e300' is no time in seconds from 0 to 31536000",
          network + " [Package] KillGrace: '31536001' is no time in seconds from 0 to 31536000",
          network + " [TestID5] QuickDatagrams: 'few' is no whole number of 0 or above"}));
}

TEST_F(Diagctl, check_tells_tags_that_clash) {
  place.addPackage("A", {{.name = "Good"}}, {{"Left", "bus/left"}});
  place.addPackage("B", {{.name = "Good"}}, {{"Far left", "other/left"}});
  const Outcome outcome = run({"check"});
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("resource tags left: "), HasSubstr("bus/left (A, Left)"),
                                 HasSubstr("other/left (B, Far left)")));
}

TEST_F(Diagctl, selftest_proves_that_misbehaviour_is_contained) {
  const Outcome outcome = diagctl({"selftest", "--allow-insecure"});
  // No limit of memory can be set there, and the test that would fill it is not run.
  const int impossible = TestSupport::kIsSanitized ? 1 : 0;
  EXPECT_EQ(outcome.exitCode, impossible > 0 ? kNoVerdict : kPassed) << outcome.out << outcome.err;
  const auto lines = linesOf(outcome.out);
  EXPECT_GE(lines.size(), 25U);
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string& line) { return line.rfind("ESCAPED", 0) == 0; }),
            impossible);
}

// ---- Control files and safety ------------------------------------------------------------------

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
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("INITIALISATION_FAILED"), HasSubstr("diagctl check")));
  EXPECT_EQ(diagctl({"--config", place.path("none.cfg"), "list"}).exitCode, kNoVerdict);
}

TEST_F(Diagctl, root_refuses_what_others_may_write_to_and_says_which) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root is refused";
  }
  addMixedPackage();
  fs::permissions(place.packageFile("MIX"), fs::perms(0666));
  const Outcome refused = run({"run", "-t", "Good"});
  EXPECT_EQ(refused.exitCode, kNoVerdict);
  EXPECT_THAT(refused.err, AllOf(HasSubstr(place.packageFile("MIX") + ": may be written by others"),
                                 HasSubstr("--allow-insecure")));
  EXPECT_EQ(run({"run", "-t", "Good", "--allow-insecure"}).exitCode, kPassed);
  EXPECT_THAT(run({"check"}).out, HasSubstr("permissions: " + place.packageFile("MIX")));
  fs::permissions(place.packageFile("MIX"), fs::perms(0644));
  ASSERT_EQ(chown(place.path("packages/libMIX.so").c_str(), 1000, 1000), 0);
  EXPECT_THAT(run({"list"}).err, HasSubstr("is owned by user 1000"));
}

// ---- Signals -----------------------------------------------------------------------------------

class DiagctlSignals : public Diagctl, public ::testing::WithParamInterface<int> {};

TEST_P(DiagctlSignals, the_first_ends_the_run_with_its_report) {
  addSlowPackage();
  Program program(withControlFile({"run", "-o", "tap=" + place.path("run.tap")}));
  ASSERT_TRUE(program.waitFor("running  Package SLOW: Long"));
  program.signal(GetParam());
  const Outcome outcome = program.finish();
  EXPECT_EQ(outcome.exitCode, 128 + GetParam());
  EXPECT_THAT(outcome.out, HasSubstr("ABORTED  Package SLOW: Long on One"));
  EXPECT_EQ(parseTap(contentsOf(place.path("run.tap"))).plan, 1);
}

TEST_P(DiagctlSignals, the_second_leaves_at_once_and_writes_no_half_report) {
  addSlowPackage("deaf");
  place.write(place.path("run.tap"), "the old report\n");
  Program program(withControlFile({"run", "-o", "tap=" + place.path("run.tap")}));
  ASSERT_TRUE(program.waitFor("running  Package SLOW: Long"));
  program.signal(SIGINT);
  ASSERT_TRUE(program.waitFor("Interrupted: what still runs is ended."));
  program.signal(GetParam());
  EXPECT_EQ(program.finish(std::chrono::seconds(10)).exitCode, 128 + GetParam());
  EXPECT_EQ(contentsOf(place.path("run.tap")), "the old report\n");
}

TEST_P(DiagctlSignals, one_that_was_ignored_from_the_start_stays_so) {
  place.addPackage("SHORT", {{.name = "Brief", .milliseconds = 1000}}, {{"One", "bus/one"}});
  Program::Options options;
  options.ignoredSignal = GetParam();
  Program program(withControlFile({"run"}), options);
  ASSERT_TRUE(program.waitFor("running  Package SHORT: Brief"));
  program.signal(GetParam());
  EXPECT_EQ(program.finish().exitCode, kPassed);
}

TEST_F(Diagctl, a_run_left_at_once_leaves_nothing_in_the_directory_for_temporary_files) {
  const std::string directory = place.path("temporary");
  fs::create_directory(directory);
  Program::Options options;
  options.environment["TMPDIR"] = directory;
  Program program({"--allow-insecure", "run", "-p", "processor", "-t", "Integer arithmetic",
                   "--passes", "1000000", "--time", "10m"},
                  options);
  ASSERT_TRUE(program.waitFor("running  "));
  EXPECT_FALSE(fs::is_empty(directory));
  for (const int number : {SIGSTOP, SIGINT, SIGTERM, SIGCONT}) {
    program.signal(number);  // so that two come at once
  }
  const Outcome outcome = program.finish(std::chrono::seconds(10));
  EXPECT_THAT(outcome.exitCode, AnyOf(128 + SIGINT, 128 + SIGTERM));
  EXPECT_THAT(outcome.out, Not(HasSubstr("skipped")));
  EXPECT_TRUE(fs::is_empty(directory));
}

INSTANTIATE_TEST_SUITE_P(Each, DiagctlSignals, ::testing::Values(SIGINT, SIGTERM, SIGHUP));

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
