// What holds for reports of each format.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "diagctl/report/Formats.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

std::string reportOf(const Format& format) {
  std::ostringstream out;
  Printer printer(out);
  const auto reporter = format.makeReporter(printer, {});
  for (RunEvent event : wholeRun()) {
    if (auto* started = std::get_if<StepStarted>(&event.body)) {
      started->device = "Disk \xff\x1b[2J";
    }
    reporter->handle(event);
  }
  reporter->finish();
  return out.str();
}

TEST(PrintableTexts, are_all_that_reports_hold) {
  for (const Format& format : formats()) {
    const std::string report = reportOf(format);
    EXPECT_THAT(report, HasSubstr("Disk ")) << format.name;
    EXPECT_THAT(report, HasSubstr("[2J")) << format.name;
    EXPECT_THAT(report, Not(HasSubstr("\x1b"))) << format.name;
    EXPECT_EQ(toUtf8(report), report) << format.name;
  }
}

/// A run whose one test has passed, with more beside it.
std::string reportOf(const char* format, const std::vector<RunEventBody>& more,
                     bool begins = true) {
  std::ostringstream out;
  Printer printer(out);
  const auto reporter = formatNamed(format).makeReporter(printer, {});
  std::vector<RunEventBody> bodies = {StepStarted{"1", "P", "Disk", "Read", "", 1},
                                      StepDiagnosis{"1", Verdict::Pass, "PASSED", "", "", "", 1},
                                      StepEnded{"1", RunStatus::Complete}};
  if (begins) {
    bodies.insert(bodies.begin(), RunStarted{});
  }
  bodies.insert(bodies.end(), more.begin(), more.end());
  for (const RunEventBody& body : bodies) {
    reporter->handle({std::chrono::system_clock::time_point(), body});
  }
  reporter->finish();
  return out.str();
}

const RunEnded kSaysPassed{RunStatus::Complete, RunResult::Pass};

TEST(ReportsForMachines, tell_trouble_of_a_run_that_has_no_words_for_it) {
  const std::vector<RunEventBody> run = {RunTrouble{"", ""}, kSaysPassed};
  EXPECT_THAT(reportOf("junit", run), HasSubstr("<error type=\"run-trouble\""));
  EXPECT_THAT(reportOf("junit", run), HasSubstr("errors=\"1\""));
  EXPECT_THAT(reportOf("tap", run), HasSubstr("not ok 2"));
}

TEST(ReportsForMachines, tell_the_verdict_of_a_run_that_none_of_its_tests_tells) {
  const std::vector<RunEventBody> failed = {RunEnded{RunStatus::Complete, RunResult::Fail}};
  EXPECT_THAT(reportOf("junit", failed), HasSubstr("<failure type=\"run-failure\""));
  EXPECT_THAT(reportOf("junit", failed), HasSubstr("failures=\"1\""));
  EXPECT_THAT(reportOf("tap", failed), HasSubstr("not ok 2"));
  const std::vector<RunEventBody> troubled = {RunEnded{RunStatus::Error, RunResult::NotApplicable}};
  EXPECT_THAT(reportOf("junit", troubled), HasSubstr("<error type=\"run-trouble\""));
  EXPECT_THAT(reportOf("tap", troubled), HasSubstr("not ok 2"));
  EXPECT_THAT(reportOf("junit", {kSaysPassed}), Not(HasSubstr("the run as a whole")));
}

TEST(ReportsForMachines, fail_for_a_finding_of_a_test_that_never_began) {
  const std::vector<RunEventBody> run = {
      StepDiagnosis{"7", Verdict::Fail, "bad", "Sector 9 is lost.", "", "", 1}, kSaysPassed};
  EXPECT_THAT(reportOf("junit", run), HasSubstr("<failure"));
  EXPECT_THAT(reportOf("tap", run), HasSubstr("not ok"));
}

TEST(TapReport, begins_with_its_version_where_a_log_has_lost_its_beginning) {
  EXPECT_TRUE(reportOf("tap", {}, false).starts_with("TAP version 13\n"));
  EXPECT_THAT(reportOf("tap", {}, false), HasSubstr("not ok 2")) << "it has no end either";
}

TEST(TapReport, says_skip_of_what_is_not_possible_here_and_todo_of_what_could_be_tested) {
  const std::vector<std::pair<SkipKind, const char*>> lines = {
      {SkipKind::NotPossible, "\nok 2 - Q: Write on Disk # SKIP why\n"},
      {SkipKind::NeedsPrivilege, "\nnot ok 2 - Q: Write on Disk # TODO why\n"},
      {SkipKind::NotInThisMode, "\nnot ok 2 - Q: Write on Disk # TODO why\n"},
      {SkipKind::NotRun, "\nnot ok 2 - Q: Write on Disk\n"}};
  for (const auto& [kind, line] : lines) {
    const std::vector<RunEventBody> run = {StepStarted{"2", "Q", "Disk", "Write", "", 1},
                                           StepMessage{"2", Severity::Information, "why", ""},
                                           StepEnded{"2", RunStatus::Skip, false, kind},
                                           kSaysPassed};
    EXPECT_THAT(reportOf("tap", run), HasSubstr(line));
  }
}

std::string textOfWidth(std::size_t width, const std::string& finding) {
  std::ostringstream out;
  Printer printer(out);
  const auto reporter = findFormat(kTextFormat)->makeReporter(printer, {.lineWidth = width});
  for (RunEvent event : wholeRun()) {
    if (auto* diagnosis = std::get_if<StepDiagnosis>(&event.body)) {
      diagnosis->message = finding;
    }
    reporter->handle(event);
  }
  reporter->finish();
  return out.str();
}

TEST(TextReport, breaks_findings_at_the_width_of_the_window) {
  const std::string finding = "The disk  returned other bytes than were written to block 1,234.";
  EXPECT_THAT(textOfWidth(40, finding), HasSubstr("         The disk returned other bytes\n"
                                                  "         than were written to block\n"
                                                  "         1,234.\n"));
}

TEST(TextReport, leaves_findings_as_they_are_where_there_is_no_window_or_room_enough) {
  const std::string finding = "The disk  returned other bytes than were written.\n  Twice.";
  for (const std::size_t width : {0UL, 10UL, 100UL}) {
    EXPECT_THAT(textOfWidth(width, finding),
                HasSubstr("         The disk  returned other bytes than were written.\n"
                          "           Twice.\n"))
        << width;
  }
}

std::string textOf(const std::vector<RunEventBody>& bodies, const ReportSettings& settings = {}) {
  std::ostringstream out;
  Printer printer(out);
  const auto reporter = findFormat(kTextFormat)->makeReporter(printer, settings);
  for (const RunEventBody& body : bodies) {
    reporter->handle({std::chrono::system_clock::time_point(), body});
  }
  reporter->finish();
  return out.str();
}

/// A step that has failed by two words of its device, beside a warning.
std::vector<RunEventBody> twoWrongWords() {
  const std::string advice = "Replace the module.";
  return {StepStarted{"1", "Memory", "Node 0", "Walk", "", 1},
          StepMessage{"1", Severity::Warning, "Node 0: slow.", "Cool it."},
          StepMessage{"1", Severity::Error, "Node 0: bit 3 is stuck.", advice},
          StepMessage{"1", Severity::Error, "Node 0: bit 4 is stuck.", advice},
          StepDiagnosis{"1", Verdict::Fail, "stuck", "Node 0: bit 3 is stuck.", advice, "", 1},
          StepEnded{"1", RunStatus::Complete},
          RunEnded{RunStatus::Complete, RunResult::Fail}};
}

TEST(TextReport, tells_findings_and_advice_again_at_the_end_of_a_run_of_one_test) {
  const std::string text = textOf(twoWrongWords());
  const std::size_t end = text.find("To look at:");
  ASSERT_NE(end, std::string::npos) << text;
  EXPECT_THAT(text.substr(end), HasSubstr("  FAILED   Memory: Walk on Node 0\n"
                                          "           slow.\n"
                                          "           -> Cool it.\n"
                                          "           bit 3 is stuck.\n"
                                          "           bit 4 is stuck.\n"
                                          "           -> Replace the module.\n"));
  EXPECT_THAT(text.substr(0, end), Not(HasSubstr("Node 0: ")))
      << "the device stands in the line above";
}

TEST(TextReport, tells_a_package_that_was_left_out_again_at_the_end) {
  const std::string text = textOf({RunTrouble{"package-not-loaded", "libx.so is no library."},
                                   RunEnded{RunStatus::Error, RunResult::NotApplicable}});
  EXPECT_TRUE(text.starts_with("ERROR    libx.so is no library.\n")) << "as soon as it is known";
  EXPECT_THAT(text, HasSubstr("To look at:\n  ERROR    libx.so is no library.\n"));
}

TEST(TextReport, is_nowhere_wider_than_the_window) {
  RunStarted start;
  start.name = "diagctl";
  start.machineName = "a-machine-of-a-long-name.in-a-domain";
  start.platforms = {"Linux 6.1 on a board whose name is long enough for two lines"};
  start.parameters = {{"selection", "-p memory -t Walking\\ ones -d host/node0 -d host/node1"}};
  std::vector<RunEventBody> run = twoWrongWords();
  run.insert(run.begin(), start);
  run.insert(run.begin() + 2, StepMeasurement{"1", "verifiedRate", 2.6, "GB/s", ""});
  run.insert(run.begin() + 2, StepMeasurement{"1", "seed", "1234567890123456789", "", ""});
  for (const std::size_t width : {50UL, 60UL}) {
    std::istringstream lines(textOf(run, {.lineWidth = width}));
    for (std::string line; std::getline(lines, line);) {
      EXPECT_LE(line.size(), width) << line;
    }
  }
}

TEST(TextReport, tells_in_detail_what_each_pass_told_and_a_reason_once) {
  const StepMessage compared{"1", Severity::Information, "16 MiB were compared.", ""};
  const std::string twice = textOf({StepStarted{"1", "Memory", "Node 0", "Walk", "", 2}, compared,
                                    compared, StepEnded{"1", RunStatus::Complete}},
                                   {.verbosity = 1});
  const std::string line = "         . 16 MiB were compared.\n";
  EXPECT_THAT(twice, HasSubstr(line + line));
  const std::string skipped =
      textOf({StepStarted{"1", "Memory", "Node 0", "Walk", "", 1},
              StepMessage{"1", Severity::Information, "No CPU is allowed.", ""},
              StepEnded{"1", RunStatus::Skip}},
             {.verbosity = 1});
  EXPECT_THAT(skipped.substr(0, skipped.find("To look at")),
              AllOf(HasSubstr("         No CPU is allowed.\n"), Not(HasSubstr(". No CPU"))));
}

TEST(ReportsForMachines, begin_with_the_first_finding_and_how_many_more_there_are) {
  std::vector<RunEventBody> run = twoWrongWords();
  for (const char* const format : {"tap", "junit"}) {
    std::ostringstream out;
    Printer printer(out);
    const auto reporter = formatNamed(format).makeReporter(printer, {});
    for (const RunEventBody& body : run) {
      reporter->handle({std::chrono::system_clock::time_point(), body});
    }
    reporter->finish();
    EXPECT_THAT(out.str(), HasSubstr("\"Node 0: bit 3 is stuck. (and 1 more)\"")) << format;
  }
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
