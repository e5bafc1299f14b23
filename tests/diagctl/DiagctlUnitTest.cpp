// The parts of the front end that need no controller.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "diagctl/check/Check.h"
#include "diagctl/check/CheckRules.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/JsonlReader.h"
#include "diagctl/report/JsonlReporter.h"
#include "diagctl/report/JunitReporter.h"
#include "diagctl/report/Progress.h"
#include "diagctl/report/TapReporter.h"
#include "diagctl/report/TextReporter.h"
#include "diagctl/run/RunPlan.h"
#include "diagctl/session/CodeTable.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/session/Safety.h"
#include "diagctl/session/Selection.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
namespace fs = std::filesystem;

Catalogue oneDeviceCatalogue() {
  PackageItem package;
  package.index = 1;
  package.baseName = "storage";
  package.name = "Storage package";
  package.mnemonic = "STORAGE";
  package.tests = {{.id = 3, .name = "Sequential read"}, {.id = 4, .name = "Random read"}};
  package.devices = {{.id = 1, .name = "Disk A", .tag = "pci0/disk0"}};
  package.pairs = {{{1, 3}, PairState::Enabled}, {{1, 4}, PairState::Disabled}};
  Catalogue catalogue;
  catalogue.packages = {package};
  return catalogue;
}

// ---- Selection -----------------------------------------------------------------------------

TEST(Selection, no_pattern_means_all) {
  EXPECT_EQ(select(oneDeviceCatalogue(), {}).size(), 2U);
}

TEST(Selection, a_device_matches_by_name_number_tag_and_last_component) {
  const DeviceItem device{.id = 12, .name = "Disk A", .tag = "pci0/disk0"};
  for (const char* pattern : {"12", "disk a", "Disk*", "pci0/disk0", "disk0", "disk[0-3]"}) {
    EXPECT_TRUE(matchesDevice(pattern, device)) << pattern;
  }
  for (const char* pattern : {"1", "Disk", "pci0", "disk1"}) {
    EXPECT_FALSE(matchesDevice(pattern, device)) << pattern;
  }
}

TEST(Selection, exclusion_wins) {
  const Catalogue catalogue = oneDeviceCatalogue();
  SelectionPatterns patterns;
  patterns.tests = {"*read"};
  patterns.excludedTests = {"Random*"};
  const auto pairs = select(catalogue, patterns);
  ASSERT_EQ(pairs.size(), 1U);
  EXPECT_EQ(pairs[0].test->id, 3);
}

TEST(Selection, patterns_without_a_match_are_named) {
  SelectionPatterns patterns;
  patterns.packages = {"storage", "memory"};
  patterns.tests = {"*read", "writing"};
  EXPECT_THAT(unmatchedPatterns(oneDeviceCatalogue(), patterns),
              ElementsAre("package 'memory'", "test 'writing'"));
}

TEST(Plan, only_enabled_pairs_are_requests) {
  const Catalogue catalogue = oneDeviceCatalogue();
  const RunPlan plan = makePlan(select(catalogue, {}), {});
  EXPECT_EQ(plan.requests.size(), 1U);
  EXPECT_EQ(plan.skipped.size(), 1U);
}

TEST(Plan, requests_begin_at_pass_1_and_carry_the_seed) {
  RunOptions options;
  options.passes = 5;
  options.seed = 42;
  const Catalogue catalogue = oneDeviceCatalogue();
  const RunPlan plan = makePlan(select(catalogue, {}), options);
  const std::string parameters = parametersOf(options);
  const Diag::DiagnosticSettings settings = settingsOf(plan.requests[0], options, parameters);
  EXPECT_EQ(settings.getPassCount(), 1);
  EXPECT_EQ(settings.getRequestedPassCount(), 5);
  EXPECT_STREQ(static_cast<const char*>(settings.getParameterPointer()), "Seed=42\n");
}

// ---- Exit codes ------------------------------------------------------------------------------

struct ExitCase {
  const char* name;
  RunSummary summary;
  RunConditions conditions;
  int code;
};

class ExitCodes : public ::testing::TestWithParam<ExitCase> {};

TEST_P(ExitCodes, follow_from_what_became_of_the_tests) {
  EXPECT_EQ(exitCodeOf(GetParam().summary, GetParam().conditions), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    Each, ExitCodes,
    ::testing::Values(
        ExitCase{"passed", {.passed = 2, .skipped = 1}, {}, ExitCode::kPassed},
        ExitCase{"failure_wins", {.failed = 1, .troubled = 1}, {}, ExitCode::kHardwareFailure},
        ExitCase{"trouble", {.passed = 1, .troubled = 1}, {}, ExitCode::kNoVerdict},
        ExitCase{"aborted", {.passed = 1, .aborted = 1}, {}, ExitCode::kNoVerdict},
        ExitCase{"package_lost", {.passed = 1}, {.failedPackages = 1}, ExitCode::kNoVerdict},
        ExitCase{"misspelt", {.passed = 1}, {.hasUnmatchedPattern = true}, ExitCode::kNoVerdict},
        ExitCase{"warned", {.warned = 1}, {}, ExitCode::kPassed},
        ExitCase{"warned_strictly", {.warned = 1}, {.isStrict = true}, ExitCode::kNoVerdict},
        ExitCase{"all_skipped", {.skipped = 3}, {}, ExitCode::kNothingRan},
        ExitCase{"nothing", {}, {.hasUnmatchedPattern = true}, ExitCode::kNothingRan}),
    [](const auto& each) { return each.param.name; });

TEST(ExitStyles, keep_what_they_cannot_tell_apart_on_the_safe_side) {
  EXPECT_EQ(translate(ExitCode::kNothingRan, {}, ExitStyle::Nagios), 3);
  EXPECT_EQ(translate(ExitCode::kNothingRan, {}, ExitStyle::Npd), 2);
  EXPECT_EQ(translate(ExitCode::kNothingRan, {}, ExitStyle::Plain), 3);
  EXPECT_EQ(translate(ExitCode::kPassed, {.warned = 1}, ExitStyle::Npd), 0);
  EXPECT_EQ(translate(ExitCode::kSignalBase + 15, {}, ExitStyle::Nagios), 3);
  EXPECT_EQ(translate(ExitCode::kSignalBase + 15, {}, ExitStyle::Npd), 2);
  EXPECT_EQ(translate(ExitCode::kSignalBase + 15, {}, ExitStyle::Plain), 143);
}

// ---- The log ---------------------------------------------------------------------------------

std::vector<RunEvent> wholeRun() {
  const auto time = std::chrono::system_clock::time_point(std::chrono::milliseconds(1234567890123));
  RunStarted start;
  start.name = "diagctl";
  start.version = "1";
  start.commandLine = "diagctl run";
  start.parameters = {{"passes", "2"}};
  start.machineId = "id";
  start.machineName = "name";
  start.platforms = {"Linux"};
  start.hardware = {{"1-1", "Disk", "pci0/disk0"}};
  start.software = {{"storage", "Storage", "1.0"}};
  return {{time, start},
          {time, StepStarted{"1", "Storage", "Disk on a shelf", "Read: fast", "1-1", 1}},
          {time, StepMeasurement{"1", "speed", 1.5, "GB/s", "1-1"}},
          {time, StepMessage{"1", Severity::Warning, "It is \"warm\".\nVery.", "Cool it."}},
          {time, StepTrouble{"1", "worker-crashed", "It crashed.", "Run it again."}},
          {time, StepDiagnosis{"1", Verdict::Fail, "bit-flip", "A: b", "Replace it.", "1-1", 2}},
          {time, StepEnded{"1", RunStatus::Error}},
          {time, StepStarted{"2", "Storage", "Disk", "Write", "1-1", 1}},
          {time, StepEnded{"2", RunStatus::Skip, true}},
          {time, RunMessage{Severity::Information, "all told"}},
          {time, RunTrouble{"package-not-loaded", "lost"}},
          {time, RunEnded{RunStatus::Complete, RunResult::Fail}}};
}

std::string toLog(const std::vector<RunEvent>& events) {
  std::ostringstream out;
  Printer printer(out);
  JsonlReporter reporter(printer);
  for (const RunEvent& event : events) {
    reporter.handle(event);
  }
  return out.str();
}

std::vector<RunEvent> fromLog(const std::string& log) {
  std::istringstream in(log);
  std::vector<RunEvent> events;
  JsonlReader(in, "log").readRun([&](const RunEvent& event) { events.push_back(event); });
  return events;
}

TEST(Log, reads_back_as_it_was_written) {
  const std::string log = toLog(wholeRun());
  EXPECT_EQ(fromLog(log).size(), wholeRun().size());
  EXPECT_EQ(toLog(fromLog(log)), log);
  const auto diagnosis = std::get<StepDiagnosis>(fromLog(log)[5].body);
  EXPECT_EQ(diagnosis.action, "Replace it.");
  EXPECT_EQ(diagnosis.pass, 2);
  EXPECT_FALSE(std::get<StepEnded>(fromLog(log)[6].body).isAborted);
  EXPECT_TRUE(std::get<StepEnded>(fromLog(log)[8].body).isAborted);
}

TEST(Log, stays_valid_whatever_bytes_a_package_writes) {
  const auto time = std::chrono::system_clock::time_point();
  const std::string log = toLog({{time, RunMessage{Severity::Error, "\xff\xfe \x01 end"}}});
  EXPECT_THAT(std::get<RunMessage>(fromLog(log).at(0).body).text, HasSubstr("end"));
}

TEST(Log, may_break_off_in_its_last_line) {
  const std::string log = toLog(wholeRun());
  const auto events = fromLog(log.substr(0, log.size() - 20));
  EXPECT_EQ(events.size(), wholeRun().size() - 1);
}

// ---- Safety ------------------------------------------------------------------------------------

TEST(Safety, finds_foreign_owners_and_writers_of_the_file_and_of_what_lies_above) {
  const TestSupport::TemporaryDirectory place;
  const std::string directory = place.makeDirectory("packages");
  const std::string file = directory + "/a.cfg";
  std::ofstream(file) << "x";
  fs::permissions(place.path(), fs::perms(0755));
  fs::permissions(directory, fs::perms(0777));
  fs::permissions(file, fs::perms(0664));
  const auto findings = findInsecurePaths(file);
  EXPECT_THAT(findings, ::testing::Contains(HasSubstr(file + ": may be written by others")));
  EXPECT_THAT(findings, ::testing::Contains(HasSubstr(directory + ": may be written by others")));
  fs::permissions(directory, fs::perms(0755));
  fs::permissions(file, fs::perms(0644));
  for (const std::string& finding : findInsecurePaths(file)) {
    EXPECT_THAT(finding, Not(HasSubstr("written")));
    EXPECT_NE(geteuid(), 0U) << finding;
  }
}

TEST(Safety, trusts_sticky_directories_for_what_lies_in_them) {
  for (const std::string& finding : findInsecurePaths("/tmp/nothing")) {
    EXPECT_THAT(finding, Not(HasSubstr("/tmp: may be written")));
  }
}

TEST(Safety, trusts_no_sticky_directory_to_hold_only_what_is_meant) {
  const TestSupport::TemporaryDirectory place;
  fs::permissions(place.path(), fs::perms(01777));
  EXPECT_THAT(findInsecurePaths(place.path()),
              ::testing::Contains(HasSubstr(place.path() + ": may be written by others")));
}

TEST(Safety, looks_at_the_way_over_symbolic_links_too) {
  const TestSupport::TemporaryDirectory place;
  const std::string open = place.makeDirectory("open");
  fs::permissions(open, fs::perms(0777));
  fs::create_symlink("/etc/passwd", open + "/link");
  EXPECT_THAT(findInsecurePaths(open + "/link"),
              ::testing::Contains(HasSubstr(open + ": may be written by others")));
}

TEST(Safety, looks_at_shared_objects_that_a_description_needs) {
  const TestSupport::TemporaryDirectory place;
  const std::string packages = place.makeDirectory("packages");
  const std::string helper = place.file("helper.so.1");
  std::ofstream(packages + "/a.cfg") << "[Package]\nSODependencies=../helper.so.1\n";
  std::ofstream(helper) << "x";
  fs::permissions(helper, fs::perms(0666));
  EXPECT_THAT(findInsecureFiles("/etc/passwd", packages),
              ::testing::Contains(HasSubstr(helper + ": may be written by others")));
}

// ---- Where the control file comes from ---------------------------------------------------------

TEST(ControlFile, comes_from_the_option_then_the_user_then_the_system) {
  const TestSupport::TemporaryDirectory place;
  const auto add = [&](const std::string& directory) {
    place.makeDirectory(directory + "/tarvexdiags");
    std::ofstream(place.file(directory + "/tarvexdiags/control.cfg")) << "x";
    return place.file(directory + "/tarvexdiags/control.cfg");
  };
  setenv("XDG_CONFIG_HOME", place.file("user").c_str(), 1);
  const auto found = [&] { return Configuration::find(std::nullopt, place.file("etc")).path(); };
  const std::string ofSystem = add("etc");
  EXPECT_EQ(found(), ofSystem);
  const std::string ofUser = add("user");
  EXPECT_EQ(found(), ofUser);
  EXPECT_EQ(Configuration::find("named", place.file("etc")).path(), "named");
  unsetenv("XDG_CONFIG_HOME");
  setenv("HOME", place.file("home").c_str(), 1);
  EXPECT_EQ(found(), ofSystem);
  const std::string ofHome = add("home/.config");
  EXPECT_EQ(found(), ofHome);
}

TEST(ConfigurationDeathTest, nothing_of_a_made_one_is_left_when_a_signal_ends_the_program) {
  const TestSupport::TemporaryDirectory place;
  ASSERT_EQ(setenv("TMPDIR", place.path().c_str(), 1), 0);
  const auto makeAndEnd = [](int number) {
    signal(number, SIG_DFL);
    const Configuration made = Configuration::make("/packages");
    raise(number);
  };
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    EXPECT_EXIT(makeAndEnd(number), ::testing::ExitedWithCode(128 + number), "");
    EXPECT_TRUE(fs::is_empty(place.path())) << number;
  }
}

// ---- Texts from anywhere -----------------------------------------------------------------------

TEST(PrintableTexts, hold_no_control_characters_and_are_always_utf_8) {
  EXPECT_EQ(toPrintable("Gr\xc3\xb6\xc3\x9f"
                        "e \x1b[2Jcleared\a\x7f"),
            "Gr\xc3\xb6\xc3\x9f"
            "e  [2Jcleared  ");
  EXPECT_EQ(toPrintable("one\ntwo", "\n  "), "one\n  two");
  EXPECT_EQ(toUtf8("disk \xff\n"), "disk \xef\xbf\xbd\n");
}

std::string reportOf(Reporter& reporter, const std::ostringstream& out) {
  for (RunEvent event : wholeRun()) {
    if (auto* started = std::get_if<StepStarted>(&event.body)) {
      started->device = "Disk \xff\x1b[2J";
    }
    reporter.handle(event);
  }
  reporter.finish();
  return out.str();
}

TEST(PrintableTexts, are_all_that_reports_for_people_and_machines_hold) {
  std::ostringstream text;
  Printer textPrinter(text);
  TextReporter textReporter(textPrinter, false);
  std::ostringstream tap;
  Printer tapPrinter(tap);
  TapReporter tapReporter(tapPrinter);
  std::ostringstream junit;
  Printer junitPrinter(junit);
  JunitReporter junitReporter(junitPrinter);
  for (const std::string& report :
       {reportOf(textReporter, text), reportOf(tapReporter, tap), reportOf(junitReporter, junit)}) {
    EXPECT_THAT(report, HasSubstr("Disk \xef\xbf\xbd"));
    EXPECT_THAT(report, Not(HasSubstr("\x1b")));
    EXPECT_EQ(toUtf8(report), report);
  }
}

// ---- Rules of the check ------------------------------------------------------------------------

TEST(Rules, tell_what_is_wrong_with_a_value) {
  EXPECT_EQ(findFault(ValueKind::Truth, "true"), "");
  EXPECT_EQ(findFault(ValueKind::Truth, "yes"), "'yes' is none of TRUE, FALSE");
  EXPECT_EQ(findFault(ValueKind::Number, "-3"), "");
  EXPECT_EQ(findFault(ValueKind::Number, "3x"), "'3x' is no whole number");
  EXPECT_EQ(findFault(ValueKind::Number, "99999999999"), "'99999999999' is no whole number");
  EXPECT_EQ(findFault(ValueKind::PositiveNumber, "0"), "0 is not above 0");
  EXPECT_EQ(findFault(ValueKind::Niceness, "0"), "");
  EXPECT_EQ(findFault(ValueKind::Niceness, "19"), "");
  EXPECT_EQ(findFault(ValueKind::Niceness, "20"), "20 is not between 0 and 19");
  EXPECT_EQ(findFault(ValueKind::Niceness, "-1"), "-1 is not between 0 and 19");
  EXPECT_EQ(findFault(ValueKind::Niceness, "low"), "'low' is no whole number");
  EXPECT_EQ(findFault(ValueKind::MachineId, "0xffff"), "");
  EXPECT_EQ(findFault(ValueKind::MachineId, "65536"), "65536 is not between 0 and 65535");
  EXPECT_EQ(findFault(ValueKind::MachineId, "0xfg"),
            "'0xfg' is no whole number, decimal or hexadecimal");
  EXPECT_EQ(findFault(ValueKind::Directory, "/nowhere"), "'/nowhere' does not exist");
  EXPECT_EQ(findFault(ValueKind::Directory, "/etc/passwd"), "'/etc/passwd' is no directory");
  EXPECT_EQ(findFault(ValueKind::DiagMode, "factory"), "");
}

TEST(Rules, tell_what_a_file_holds_and_nobody_reads) {
  const TestSupport::TemporaryDirectory place;
  const std::string file = place.file("a.cfg");
  std::ofstream(file) << "early=1\n[A]\nkey=1\nkey=2\nnot a key\n[B\nlost=3\n";
  const auto text = ConfigurationText::read(file);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->value("A", "key"), "1");
  std::vector<Problem> problems;
  checkRemarks(*text, "a.cfg", problems);
  std::vector<std::string> told;
  for (const Problem& problem : problems) {
    told.push_back(toText(problem));
  }
  EXPECT_THAT(told, ElementsAre(HasSubstr("a.cfg:1 early: "), HasSubstr("a.cfg:4 [A] key: "),
                                HasSubstr("a.cfg:5 [A]: "), HasSubstr("a.cfg:6: "),
                                HasSubstr("a.cfg:7 lost: ")));
}

// ---- Codes -------------------------------------------------------------------------------------

TEST(Codes, every_entry_has_a_meaning_and_an_action) {
  for (const CodeEntry& entry : codeTable()) {
    EXPECT_FALSE(entry.meaning.empty()) << entry.name;
    EXPECT_FALSE(entry.nextAction.empty()) << entry.name;
    EXPECT_TRUE(entry.resultNumber || entry.eventNumber) << entry.name;
  }
}

TEST(Codes, are_all_there_and_no_other) {
  for (unsigned int number = 0; number <= 100; ++number) {
    const bool isCode = number >= 1 && number != 6;
    EXPECT_EQ(findResult(number) != nullptr, isCode && number <= 61) << number;
    EXPECT_EQ(findEvent(number) != nullptr, isCode && number <= 68) << number;
  }
}

TEST(Codes, are_found_by_number_in_either_enumeration) {
  for (const CodeEntry& entry : codeTable()) {
    if (entry.resultNumber) {
      EXPECT_EQ(findResult(*entry.resultNumber), &entry);
    }
    if (entry.eventNumber) {
      EXPECT_EQ(findEvent(*entry.eventNumber), &entry);
    }
  }
}

// ---- Progress ----------------------------------------------------------------------------------

TEST(ProgressLines, tell_elapsed_and_remaining_time) {
  std::ostringstream out;
  Printer printer(out);
  Progress progress(printer, true, 2);
  const auto begin = std::chrono::system_clock::time_point();
  progress.handle({begin, RunStarted{}});
  progress.handle({begin, StepStarted{"1", "P", "Disk", "Read", "", 1}});
  progress.handle({begin + std::chrono::seconds(30), StepProgress{"1", 50, 1, 1}});
  EXPECT_THAT(out.str(), HasSubstr("[##########..........]  50% 0:30 left 0:30  Read on Disk"));
  EXPECT_THAT(out.str(), HasSubstr("0 of 2 ended, 0:30 left 1:30"));
  EXPECT_EQ(progress.firstRunning(), 1U);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
