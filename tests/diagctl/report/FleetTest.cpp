// What many runs came to: by machine and by test, and in little memory.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include "diagctl/report/Fleet.h"
#include "diagctl/report/FleetText.h"
#include "diagctl/report/NodeNames.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Outcome = StepRecord::Outcome;

TEST(NodeNames, are_folded_as_those_who_have_many_write_them) {
  EXPECT_EQ(foldedNames({"n3", "n1", "n2", "n7", "login", "n2"}), "login, n[1-3,7]");
  EXPECT_EQ(foldedNames({"r01n9", "r01n10", "r02n1"}), "r01n[9-10], r02n1");
  EXPECT_EQ(foldedNames({"n007", "n008", "n8"}), "n8, n[007-008]");
  EXPECT_EQ(foldedNames({"n1.lab2", "n2.lab2"}), "n[1-2].lab2");
  EXPECT_EQ(foldedNames({"n[1", "9", "10", "x99999999999999999999"}),
            "[9-10], n[1, x99999999999999999999");
  EXPECT_EQ(foldedNames({}), "");
}

/// A run of one test.
struct SampleRun {
  std::string machine;
  std::string id = "id";
  std::vector<RunEventBody> told = {};  ///< by the step "1"
  RunStatus status = RunStatus::Complete;
  RunResult result = RunResult::Pass;
  bool isCut = false;
  bool isAborted = false;
};

const StepDiagnosis kPass{"1", Verdict::Pass, "passed", "", "", "", 1};
const StepDiagnosis kFail{"1", Verdict::Fail, "flip", "3 bits differ.", "Replace it.", "", 1};
const StepDiagnosis kUnusual{"1", Verdict::Unknown, "slow", "It is slow.", "", "", 1};

void add(Fleet& fleet, const SampleRun& run) {
  const std::chrono::system_clock::time_point time{std::chrono::seconds(1'234'567'890)};
  RunRecord record(RunRecord::Ended::Dropped, RunRecord::kUnbounded);
  const auto tell = [&](const RunEventBody& body) {
    if (const StepRecord* ended = record.handle({time, body})) {
      fleet.take(*ended);
    }
  };
  RunStarted start;
  start.machineName = run.machine;
  start.machineId = run.id;
  fleet.beginRun(run.machine + ".jsonl");
  fleet.take(start);
  tell(start);
  if (!run.told.empty()) {
    tell(StepStarted{"1", "Memory", "Node 0", "Walking ones", "", 1});
    for (const RunEventBody& body : run.told) {
      tell(body);
    }
    tell(StepEnded{"1", run.status, run.isAborted});
  }
  if (!run.isCut) {
    tell(RunEnded{run.status, run.result});
  }
  fleet.endRun(record);
}

std::string textOf(const Fleet& fleet, bool onlyProblems = false) {
  std::ostringstream out;
  Printer printer(out);
  writeFleet(printer, fleet, onlyProblems);
  return out.str();
}

TEST(Fleet, tells_the_worst_machine_first_with_its_finding_and_the_others_by_name) {
  Fleet fleet({});
  for (const char* const name : {"n1", "n2", "n3"}) {
    add(fleet, {.machine = name, .told = {kPass}});
  }
  add(fleet, {.machine = "n5", .told = {kUnusual}});
  add(fleet, {.machine = "n4", .told = {kFail}, .result = RunResult::Fail});
  const std::string text = textOf(fleet);
  EXPECT_EQ(text.find("FAILED   n4   1 run, 1 failed"), 0U) << text;
  EXPECT_THAT(text, HasSubstr("         FAILED   Memory: Walking ones on Node 0\n"
                              "                  3 bits differ.\n"
                              "                  -> Replace it.\n"
                              "WARNING  n5"));
  EXPECT_THAT(text, HasSubstr("PASSED   3 machines: n[1-3]\n"));
  EXPECT_THAT(
      text,
      HasSubstr("FAILED   Memory: Walking ones   3 passed, 1 failed, 1 with a warning   n4\n"));
  EXPECT_THAT(text, HasSubstr("5 runs of 5 machines: 3 passed, 1 failed, 1 with a warning\n"
                              "Verdict: FAILED: the hardware is at fault\n"));
  EXPECT_EQ(fleet.exitCode(), ExitCode::kHardwareFailure);
  EXPECT_THAT(textOf(fleet, true), AllOf(HasSubstr("n4"), Not(HasSubstr("n[1-3]"))));
}

TEST(Fleet, ends_with_the_worst_of_all_runs) {
  const auto codeWith = [](const SampleRun& run) {
    Fleet fleet({});
    add(fleet, {.machine = "n1", .told = {kPass}});
    add(fleet, run);
    add(fleet, {.machine = "n2", .told = {kPass}});
    return fleet.exitCode();
  };
  EXPECT_EQ(codeWith({.machine = "n1", .told = {kPass}}), ExitCode::kPassed);
  EXPECT_EQ(codeWith({.machine = "n1", .told = {kFail}, .result = RunResult::Fail}),
            ExitCode::kHardwareFailure)
      << "though the machine passed once, and another did behind it";
  EXPECT_EQ(codeWith({.machine = "n3", .told = {kPass}, .isCut = true}), ExitCode::kNoVerdict);
  EXPECT_EQ(codeWith({.machine = "n3", .status = RunStatus::Skip}), ExitCode::kNothingRan);
}

TEST(Fleet, comes_to_what_its_worst_run_came_to) {
  Fleet fleet({});
  EXPECT_EQ(fleet.verdict(), RunVerdict::NothingRan) << "of no run at all";
  add(fleet, {.machine = "n1", .told = {kPass}});
  EXPECT_EQ(fleet.verdict(), RunVerdict::Passed);
  add(fleet, {.machine = "n2", .told = {kUnusual}});
  EXPECT_EQ(fleet.verdict(), RunVerdict::Warned);
  add(fleet, {.machine = "n3", .told = {kUnusual}, .status = RunStatus::Skip, .isAborted = true});
  EXPECT_EQ(fleet.verdict(), RunVerdict::Aborted) << "which is no trouble of the tool";
  EXPECT_THAT(textOf(fleet), HasSubstr("Verdict: ABORTED"));
  add(fleet, {.machine = "n4", .told = {kPass}, .isCut = true});
  EXPECT_EQ(fleet.verdict(), RunVerdict::Troubled);
}

TEST(Fleet, has_no_verdict_where_a_warning_counts_as_none) {
  Fleet fleet({.isStrict = true});
  add(fleet, {.machine = "n1", .told = {kUnusual}});
  EXPECT_EQ(fleet.verdict(), RunVerdict::Troubled);
  EXPECT_EQ(fleet.exitCode(), ExitCode::kNoVerdict);
  EXPECT_THAT(textOf(fleet), HasSubstr("ERROR    n1"));
}

TEST(Fleet, is_never_green_when_a_log_could_not_be_read) {
  Fleet fleet({});
  add(fleet, {.machine = "n1", .told = {kPass}});
  fleet.addUnread("n2.jsonl: holds no run");
  EXPECT_EQ(fleet.exitCode(), ExitCode::kNoVerdict);
  EXPECT_THAT(textOf(fleet, true), HasSubstr("Not read:\nERROR    n2.jsonl: holds no run\n"));
  EXPECT_THAT(lineOf(fleet), HasSubstr("1 machine: 1 passed, 1 log not read"));
  add(fleet, {.machine = "n3", .told = {kFail}, .result = RunResult::Fail});
  EXPECT_EQ(fleet.exitCode(), ExitCode::kHardwareFailure);
}

TEST(Fleet, tells_two_machines_of_one_name_apart) {
  Fleet fleet({});
  add(fleet, {.machine = "web", .id = "a", .told = {kPass}});
  add(fleet, {.machine = "web", .id = "b", .told = {kFail}, .result = RunResult::Fail});
  EXPECT_EQ(fleet.machineCount(), 2U);
  EXPECT_THAT(textOf(fleet), AllOf(HasSubstr("FAILED   web (id b)"), HasSubstr("web (id a)")));
}

TEST(Fleet, keeps_the_weightiest_findings_of_a_machine_and_counts_the_others) {
  Fleet fleet({});
  for (int run = 0; run < 8; ++run) {
    add(fleet, {.machine = "n1", .told = {kUnusual}});
  }
  add(fleet, {.machine = "n1", .told = {kFail}, .result = RunResult::Fail});
  const Fleet::Machine& machine = *fleet.machines().front();
  EXPECT_EQ(machine.runs, 9U);
  EXPECT_EQ(machine.findings.size() + machine.furtherFindings, 9U);
  EXPECT_EQ(machine.findings.front().outcome, Outcome::Failed);
  EXPECT_THAT(textOf(fleet), HasSubstr("         and 4 more\n"));
}

TEST(Fleet, sums_up_what_is_beyond_what_it_holds) {
  Fleet fleet({});
  for (int number = 0; number < 20'003; ++number) {
    add(fleet, {.machine = "n" + std::to_string(number)});
  }
  add(fleet, {.machine = "last", .told = {kFail}, .result = RunResult::Fail});
  EXPECT_EQ(fleet.machineCount(), 20'000U);
  EXPECT_EQ(fleet.runs(), 20'004U);
  EXPECT_EQ(fleet.furtherRuns().at(Outcome::Failed), 1U);
  EXPECT_EQ(fleet.exitCode(), ExitCode::kHardwareFailure);
  EXPECT_THAT(textOf(fleet), HasSubstr("Further machines: 1 failed, 3 skipped\n"));
}

TEST(Fleet, lets_nothing_of_a_log_begin_a_line) {
  Fleet fleet({});
  StepDiagnosis evil = kFail;
  evil.message = "a\nVerdict: PASSED\x1b[2J";
  add(fleet, {.machine = "n1\nPASSED", .told = {evil}, .result = RunResult::Fail});
  EXPECT_THAT(textOf(fleet), AllOf(Not(HasSubstr("\nVerdict: PASSED")), Not(HasSubstr("\nPASSED")),
                                   Not(HasSubstr("\x1b"))));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
