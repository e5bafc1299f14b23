// Which packages a verb works with, and what their settings are.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/support/Sanitized.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
namespace fs = std::filesystem;

class DiagctlSettings : public Diagctl {
 protected:
  DiagctlSettings() {
    place.addPackage("MIX", {{.name = "Good", .more = "Event=7"}}, {{"Left", "bus/left"}});
    options.environment["XDG_CONFIG_HOME"] = place.path("config");
    options.environment["TMPDIR"] = place.path("temporary");
    fs::create_directories(place.path("config/tarvexdiags/packages.d"));
    fs::create_directories(place.path("temporary"));
  }

  /// Another directory of packages, with one of that name.
  std::string addElsewhere(const std::string& name) {
    place.addPackage(name, {{.name = "Far away"}}, {{"Far", "bus/far" + name}});
    const fs::path elsewhere = place.path("elsewhere-" + name);
    fs::create_directories(elsewhere / "en");
    for (const std::string& file : {name + ".cfg", "lib" + name + ".so", "en/" + name + ".cfg"}) {
      fs::rename(place.path("packages/" + file), elsewhere / file);
    }
    fs::remove(place.path("packages/de/" + name + ".cfg"));
    return elsewhere.string();
  }

  void writeOverlay(const std::string& package, const std::string& text) {
    place.write(overlayOf(package), text);
  }
  std::string overlayOf(const std::string& package) const {
    return place.path("config/tarvexdiags/packages.d/" + package + ".cfg");
  }

  Outcome runBundled(std::vector<std::string> words) {
    words.insert(words.begin(), "--allow-insecure");
    return diagctl(words, options);
  }

  Program::Options options;
};

TEST_F(DiagctlSettings, packages_come_from_the_directories_that_are_named) {
  const std::string one = addElsewhere("ONE");
  const std::string two = addElsewhere("TWO");
  const Outcome both = run({"list", "--packages", one, "--packages", two}, options);
  EXPECT_EQ(both.exitCode, kPassed) << both.err;
  EXPECT_THAT(both.out,
              AllOf(HasSubstr("Package ONE"), HasSubstr("Package TWO"), Not(HasSubstr("MIX")),
                    HasSubstr("Packages:     " + one), HasSubstr("Packages:     " + two)));
  const Outcome ran = run({"run", "-q", "--packages", one}, options);
  EXPECT_EQ(ran.exitCode, kPassed) << ran.out << ran.err;
  EXPECT_THAT(ran.out, HasSubstr("PASSED   Package ONE: Far away on Far"));
  EXPECT_EQ(run({"check", "--packages", one}, options).exitCode, kPassed);
  EXPECT_EQ(run({"list", "--packages", place.path("nowhere")}, options).exitCode, kNoVerdict);
}

TEST_F(DiagctlSettings, the_control_file_may_name_a_list_of_directories) {
  const std::string one = addElsewhere("ONE");
  place.replaceIn(place.controlFile(), "PackDirPath=" + place.path("packages"),
                  "PackDirPath=" + place.path("packages") + ":" + one);
  EXPECT_THAT(run({"list"}, options).out,
              AllOf(HasSubstr("Package MIX"), HasSubstr("Package ONE")));
}

TEST_F(DiagctlSettings, a_setting_of_the_command_line_counts_and_is_gone_afterwards) {
  EXPECT_EQ(run({"run", "-q"}, options).exitCode, kPassed);
  EXPECT_EQ(run({"run", "-q", "--set", "MIX.Behave=fail"}, options).exitCode, kHardwareFailure);
  EXPECT_EQ(run({"run", "-q", "--set", "mix.1.Behave=fail"}, options).exitCode, kHardwareFailure);
  EXPECT_EQ(run({"run", "-q"}, options).exitCode, kPassed);
  EXPECT_TRUE(fs::is_empty(place.path("temporary")));
}

TEST_F(DiagctlSettings, the_command_line_goes_before_the_control_file_and_that_before_overlays) {
  writeOverlay("MIX", "[TestID1]\nBehave=fail\n");
  EXPECT_EQ(run({"run", "-q"}, options).exitCode, kHardwareFailure);
  EXPECT_THAT(run({"list"}, options).out, HasSubstr("Settings:     " + overlayOf("MIX")));
  place.write(place.controlFile(),
              contentsOf(place.controlFile()) + "[Settings]\nMIX.Behave=nothing\n");
  EXPECT_EQ(run({"run", "-q"}, options).exitCode, kNoVerdict);
  EXPECT_EQ(run({"run", "-q", "--set", "MIX.Behave=pass"}, options).exitCode, kPassed);
}

TEST_F(DiagctlSettings, settings_that_nobody_reads_are_refused_with_what_is_near) {
  const auto refusalOf = [&](const std::string& setting) {
    const Outcome outcome = runBundled({"run", "--dry-run", "-p", "memory", "--set", setting});
    EXPECT_EQ(outcome.exitCode, kUsage) << setting;
    EXPECT_THAT(outcome.out, IsEmpty()) << setting;
    return outcome.err;
  };
  EXPECT_THAT(refusalOf("memory.Round=3"),
              HasSubstr("memory reads no setting 'Round'; did you mean 'Rounds'"));
  EXPECT_THAT(refusalOf("memry.Rounds=3"),
              HasSubstr("there is no package 'memry' to set 'Rounds' of; did you mean 'memory'?"));
  EXPECT_THAT(refusalOf("memory.Rounds=few"), HasSubstr("memory.Rounds: 'few' is no value of it"));
  EXPECT_THAT(refusalOf("memory"), HasSubstr("'memory' is not PACKAGE.KEY=VALUE"));
}

TEST_F(DiagctlSettings, check_finds_what_is_wrong_with_an_overlay_and_names_it) {
  writeOverlay("MIX",
               "no sense\n[TestID1\nBehave=fail\n[TestID9]\nBehave=fail\n[TestID1]\nNice=99\n");
  writeOverlay("NONE", "[Package]\nNice=3\n");
  const std::string file = overlayOf("MIX");
  const Outcome told = run({"check"}, options);
  EXPECT_EQ(told.exitCode, kNoVerdict);
  EXPECT_THAT(told.out, AllOf(HasSubstr(file + ":1: "), HasSubstr(file + ":2: "),
                              HasSubstr(file + " [TestID9]: the package has no such section"),
                              HasSubstr(file + " [TestID1] Nice: 99 is not"),
                              HasSubstr(overlayOf("NONE") + ": there is no package 'NONE'")));
  EXPECT_THAT(told.out, AllOf(Not(HasSubstr("composed")), Not(HasSubstr("packages/MIX.cfg"))));
  EXPECT_THAT(told.out, HasSubstr(" problems in " + place.controlFile()));
}

TEST_F(DiagctlSettings, a_wrong_overlay_ends_other_verbs_before_they_begin) {
  writeOverlay("MIX", "[TestID1]\nNice=99\n");
  for (const char* verb : {"run", "list", "estimate"}) {
    const Outcome refused = run({verb}, options);
    EXPECT_EQ(refused.exitCode, kNoVerdict) << verb;
    EXPECT_THAT(refused.out, IsEmpty()) << verb;
    EXPECT_THAT(refused.err, AllOf(HasSubstr(overlayOf("MIX") + ":2 [TestID1] Nice: 99 is not"),
                                   HasSubstr("diagctl check --config " + place.controlFile())));
  }
  writeOverlay("MIX", "[TestID1]\nNice=3\n");
  writeOverlay("NONE", "[Package]\nNice=3\n");
  EXPECT_EQ(run({"list"}, options).exitCode, kPassed) << "a package may have gone";
}

TEST_F(DiagctlSettings, a_fault_in_the_control_file_is_told_with_its_place) {
  const std::string before = contentsOf(place.controlFile());
  for (const char* setting : {"MXI.Behave", "Behave"}) {
    place.write(place.controlFile(), before + "[Settings]\n" + setting + "=fail\n");
    const std::string what = std::string(" [Settings] ") + setting + ": ";
    const auto line = std::count(before.begin(), before.end(), '\n') + 2;
    const Outcome refused = run({"list"}, options);
    EXPECT_EQ(refused.exitCode, kNoVerdict);
    EXPECT_THAT(refused.err,
                HasSubstr("diagctl: " + place.controlFile() + ":" + std::to_string(line) + what));
    EXPECT_THAT(run({"check"}, options).out,
                AllOf(HasSubstr(place.controlFile() + what),
                      HasSubstr("\n1 problem in " + place.controlFile())));
    const Outcome told = run({"check", "--format", "json"}, options);
    EXPECT_EQ(told.exitCode, kNoVerdict);
    const auto problems = nlohmann::json::parse(told.out)["problems"];
    ASSERT_EQ(problems.size(), 1U);
    EXPECT_EQ(problems[0]["section"], "Settings");
    EXPECT_EQ(problems[0]["key"], setting);
  }
}

TEST_F(DiagctlSettings, a_fault_is_told_of_the_file_that_somebody_wrote_and_of_its_line) {
  const std::string before = contentsOf(place.controlFile());
  const auto lines = std::count(before.begin(), before.end(), '\n');
  place.replaceIn(place.controlFile(), "RunMode=PARALLEL", "RunMode=ALL");
  place.write(place.controlFile(), contentsOf(place.controlFile()) + "no value\n");
  const Outcome refused = run({"list", "--set", "MIX.Behave=pass"}, options);
  EXPECT_EQ(refused.exitCode, kNoVerdict);
  EXPECT_THAT(refused.err,
              AllOf(HasSubstr("starting with the control file " + place.controlFile()),
                    HasSubstr(place.controlFile() + ":" + std::to_string(lines + 1)),
                    ContainsRegex(place.controlFile() + ":[0-9]+ .GlobalSettings. RunMode: "),
                    Not(HasSubstr("composed"))));
}

TEST_F(DiagctlSettings, a_package_that_cannot_be_loaded_is_told_by_the_path_that_was_named) {
  const std::string one = addElsewhere("ONE");
  fs::remove(one + "/libONE.so");
  place.write(one + "/libONE.so", "no library");
  for (const char* const verb : {"list", "check"}) {
    const Outcome told = run({verb, "--packages", one}, options);
    EXPECT_THAT(told.out + told.err,
                AllOf(HasSubstr(one + "/libONE.so"), Not(HasSubstr("composed"))))
        << verb;
  }
}

TEST_F(DiagctlSettings, too_few_open_files_are_named_and_leave_nothing_behind) {
  const std::string one = addElsewhere("ONE");
  for (unsigned long files = 5; files <= 8 && !TestSupport::kIsSanitized; ++files) {
    Program::Options few = options;
    few.openFiles = files;
    EXPECT_THAT(run({"list", "--packages", one}, few).err, HasSubstr("see \"ulimit -n\"")) << files;
    EXPECT_TRUE(fs::is_empty(place.path("temporary"))) << files;
  }
}

TEST_F(DiagctlSettings, a_missing_folder_for_temporary_files_is_told_in_plain_words) {
  options.environment["TMPDIR"] = place.path("none");
  const Outcome outcome = run({"list", "--set", "MIX.Behave=pass"}, options);
  EXPECT_EQ(outcome.exitCode, kNoVerdict);
  EXPECT_EQ(outcome.err, "diagctl: TMPDIR: No such file or directory\n");
}

class DiagctlPlans : public DiagctlSettings {
 protected:
  DiagctlPlans() {
    place.addPackage("TWO", {{.name = "Fair"}, {.name = "Bad", .behaviour = "fail"}},
                     {{"Right", "bus/right"}});
    fs::create_directories(place.path("config/tarvexdiags/plans"));
  }

  std::string writePlan(const std::string& text) {
    const std::string file = place.path("config/tarvexdiags/plans/night.cfg");
    place.write(file, text);
    return file;
  }

  Outcome runPlan(const std::vector<std::string>& more = {}) {
    std::vector<std::string> words = {"run", "-q", "--profile", "night"};
    words.insert(words.end(), more.begin(), more.end());
    return run(words, options);
  }
};

TEST_F(DiagctlPlans, are_run_by_their_names) {
  writePlan(
      "[Plan]\ntest=Good,Fair\npasses=2\nserial=TRUE\nquiet=FALSE\n"
      "[Settings]\nMIX.Behave=fail\n");
  const Outcome ran = runPlan();
  EXPECT_EQ(ran.exitCode, kHardwareFailure) << ran.err;
  EXPECT_THAT(ran.out, AllOf(HasSubstr("Good on Left"), HasSubstr("Fair on Right"),
                             Not(HasSubstr("Bad on Right"))));
  EXPECT_THAT(linesOf(run({"run", "--dry-run", "--prof", "nig"}, options).out),
              ::testing::SizeIs(2))
      << "by the beginning of its name, too";
  EXPECT_THAT(run({"estimate", "--profile", "night"}, options).out, HasSubstr("Fair on Right"));
}

TEST_F(DiagctlPlans, stand_behind_the_command_line) {
  writePlan("[Plan]\ntest=Good,Fair\n[Settings]\nMIX.Behave=fail\n");
  EXPECT_EQ(runPlan({"--set", "MIX.Behave=pass"}).exitCode, kPassed);
  const Outcome other = runPlan({"-t", "Fair"});
  EXPECT_EQ(other.exitCode, kPassed) << other.err;
  EXPECT_THAT(other.out, Not(HasSubstr("Good on Left")));
}

TEST_F(DiagctlPlans, that_say_what_cannot_be_meant_run_nothing) {
  const auto refusalOf = [&](const std::string& text) {
    const std::string file = writePlan(text);
    const Outcome refused = runPlan();
    EXPECT_EQ(refused.exitCode, kNoVerdict) << text;
    EXPECT_THAT(refused.out, IsEmpty()) << text;
    EXPECT_THAT(refused.err, HasSubstr(file)) << text;
    return refused.err;
  };
  EXPECT_THAT(refusalOf("[Plan]\npases=2\n"), HasSubstr("[Plan] pases: there is no such option"));
  EXPECT_THAT(refusalOf("[Plan]\nserial=yes\n"), HasSubstr("[Plan] serial: 'yes' is none of"));
  EXPECT_THAT(refusalOf("[Plan]\ntest=--dry-run\n"), HasSubstr("[Plan] test: "));
  EXPECT_THAT(refusalOf("[Plan]\npasses=many\n"),
              HasSubstr("night.cfg [Plan] passes: 'many' is no whole number from 1 to "));
  EXPECT_THAT(refusalOf("[Plan]\ntime=soon\n"), HasSubstr("[Plan] time: 'soon' is no time"));
  EXPECT_THAT(refusalOf("[Plan]\nmode=fctory\n"),
              HasSubstr("[Plan] mode: 'fctory' is none of customer, factory, bringup"));
  EXPECT_THAT(refusalOf("[Plan\ntest=Good\n"), HasSubstr("night.cfg:1: "));
  EXPECT_THAT(refusalOf("[Plans]\ntest=Good\n"), HasSubstr("[Plans]: a plan has no such section"));
  EXPECT_THAT(refusalOf("[Settings]\nMIXX.Behave=fail\n"),
              HasSubstr("[Settings] MIXX.Behave: there is no package 'MIXX' to set 'Behave' of"));
  EXPECT_THAT(refusalOf("[Settings]\nBehave=fail\n"),
              HasSubstr("[Settings] Behave: 'Behave=fail' "));
  EXPECT_THAT(refusalOf("[Settings]\nwatch.Interval=soon\n"),
              HasSubstr("night.cfg:2 [Settings] Interval: 'soon' is no time"));
  const Outcome unknown = run({"run", "--profile", "nigt"}, options);
  EXPECT_EQ(unknown.exitCode, kUsage);
  EXPECT_THAT(unknown.err, HasSubstr("did you mean 'night'?"));
}

TEST_F(DiagctlPlans, that_set_what_nobody_reads_run_nothing) {
  const auto refusalOf = [&](const std::string& setting) {
    const std::string file = writePlan("[Settings]\n" + setting + "\n");
    const Outcome refused = runBundled({"run", "--dry-run", "-p", "memory", "--profile", "night"});
    EXPECT_EQ(refused.exitCode, kNoVerdict) << setting;
    EXPECT_THAT(refused.out, IsEmpty()) << setting;
    EXPECT_THAT(refused.err, HasSubstr(file + ":2 [Settings] memory.")) << setting;
    return refused.err;
  };
  EXPECT_THAT(refusalOf("memory.Round=3"),
              HasSubstr("memory.Round: memory reads no setting 'Round'; did you mean 'Rounds'"));
  EXPECT_THAT(refusalOf("memory.Rounds=few"),
              HasSubstr("memory.Rounds: memory.Rounds: 'few' is no value of it"));
  writePlan("[Settings]\nmemory.Rounds=3\n");
  const Outcome sound = runBundled({"run", "--dry-run", "-p", "memory", "--profile", "night"});
  EXPECT_EQ(sound.exitCode, kPassed) << sound.err;
}

TEST_F(DiagctlPlans, of_others_are_refused_to_root) {
  if (geteuid() != 0 || !isBuildTrusted()) {
    GTEST_SKIP() << "only root is refused";
  }
  const std::string file = writePlan("[Plan]\ntest=Good\n");
  ASSERT_EQ(chown(file.c_str(), 61234, 61234), 0);
  const Outcome refused = runPlan();
  EXPECT_EQ(refused.exitCode, kNoVerdict);
  EXPECT_THAT(refused.err, HasSubstr(file + ": is owned by user 61234 and not by root"));
}

TEST_F(DiagctlSettings, show_tells_the_settings_that_count) {
  const Outcome outcome = runBundled({"show", "Walking ones", "--set", "memory.Rounds=7", "--set",
                                      "Memory.QuickMaximumMegabytes=64"});
  EXPECT_THAT(outcome.out, AllOf(::testing::ContainsRegex("\n  Rounds +7 "),
                                 ::testing::ContainsRegex("QuickMaximumMegabytes +64 ")))
      << outcome.err;
}

TEST_F(DiagctlSettings, estimates_go_by_the_settings_that_count) {
  EXPECT_THAT(run({"estimate", "--passes", "2", "--set", "MIX.1.Estimate=25"}, options).out,
              HasSubstr("50 s  Package MIX: Good on Left"));
}

TEST_F(DiagctlSettings, a_bundled_test_runs_with_settings_of_the_command_line) {
  const Outcome outcome = runBundled({"run", "-q", "--quick", "-p", "memory", "-t", "Block move",
                                      "--set", "memory.QuickMaximumMegabytes=16"});
  EXPECT_EQ(outcome.exitCode, kPassed) << outcome.out << outcome.err;
}

TEST_F(DiagctlSettings, root_trusts_an_overlay_and_a_directory_as_it_does_the_control_file) {
  if (geteuid() != 0 || !isBuildTrusted()) {
    GTEST_SKIP() << "only root is refused";
  }
  const std::string one = addElsewhere("ONE");
  const std::string overlay = overlayOf("MIX");
  writeOverlay("MIX", "[TestID1]\nBehave=pass\n");
  EXPECT_EQ(run({"list"}, options).exitCode, kPassed);
  ASSERT_EQ(chown(overlay.c_str(), 61234, 61234), 0);
  const Outcome refused = run({"run"}, options);
  EXPECT_EQ(refused.exitCode, kNoVerdict);
  EXPECT_THAT(refused.err, AllOf(HasSubstr(overlay + ": is owned by user 61234 and not by root"),
                                 HasSubstr("--allow-insecure")));
  EXPECT_EQ(run({"run", "-q", "--allow-insecure"}, options).exitCode, kPassed);
  fs::remove(overlay);
  ASSERT_EQ(chown((one + "/libONE.so").c_str(), 61234, 61234), 0);
  EXPECT_THAT(run({"list", "--packages", one}, options).err,
              HasSubstr("/libONE.so: is owned by user 61234 and not by root"));
  ASSERT_EQ(chown(one.c_str(), 61234, 61234), 0);
  EXPECT_THAT(run({"list", "--packages", one}, options).err,
              HasSubstr(one + ": is owned by user 61234 and not by root"));
}

TEST_F(DiagctlSettings, root_sets_what_a_bundled_package_reads_among_everybodys_temporary_files) {
  if (geteuid() != 0 || !isBuildTrusted()) {
    GTEST_SKIP() << "only root is refused";
  }
  options.environment["TMPDIR"] = "/tmp";
  const Outcome told = diagctl({"estimate", "-p", "memory", "--set", "memory.Rounds=3"}, options);
  EXPECT_EQ(told.exitCode, kPassed) << told.err;
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
