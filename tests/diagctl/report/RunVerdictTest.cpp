// What steps and runs come to, by the record of their stream alone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/SummaryReporter.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::StartsWith;
using Outcome = StepRecord::Outcome;

const std::string kStep = "1";

StepDiagnosis judged(Verdict verdict) {
  return {kStep, verdict, "symptom", "", "", "", 1};
}

/// A run of one step.
RunRecord recordOf(const std::vector<RunEventBody>& told) {
  const auto time = std::chrono::system_clock::time_point();
  RunRecord record;
  record.handle({time, RunStarted{}});
  record.handle({time, StepStarted{kStep, "P", "Disk", "Read", "", 1}});
  for (const RunEventBody& body : told) {
    record.handle({time, body});
  }
  return record;
}

Outcome outcomeOf(const std::vector<RunEventBody>& told) {
  return recordOf(told).find(kStep)->outcome();
}

TEST(StepOutcomes, take_the_weightiest_of_what_was_told) {
  const StepDiagnosis passed = judged(Verdict::Pass);
  const StepDiagnosis failed = judged(Verdict::Fail);
  const StepDiagnosis unusual = judged(Verdict::Unknown);
  const StepTrouble trouble{kStep, "worker-crashed", "", ""};
  const StepMessage warning{kStep, Severity::Warning, "hot", ""};
  const StepEnded complete{kStep, RunStatus::Complete};
  const StepEnded skipped{kStep, RunStatus::Skip};
  EXPECT_EQ(outcomeOf({passed, complete}), Outcome::Passed);
  EXPECT_EQ(outcomeOf({passed, unusual, complete}), Outcome::Warning);
  EXPECT_EQ(outcomeOf({unusual, skipped}), Outcome::Skipped);
  EXPECT_EQ(outcomeOf({StepEnded{kStep, RunStatus::Skip, true}}), Outcome::Aborted);
  EXPECT_EQ(outcomeOf({warning, passed, complete}), Outcome::Warning);
  EXPECT_EQ(outcomeOf({warning, skipped}), Outcome::Skipped);
  EXPECT_EQ(outcomeOf({warning, trouble, StepEnded{kStep, RunStatus::Error}}), Outcome::Trouble);
  EXPECT_EQ(outcomeOf({passed, trouble, skipped}), Outcome::Trouble);
  EXPECT_EQ(outcomeOf({passed, StepEnded{kStep, RunStatus::Error}}), Outcome::Trouble);
  EXPECT_EQ(outcomeOf({passed}), Outcome::Trouble) << "without an end";
  EXPECT_EQ(outcomeOf({failed, trouble, StepEnded{kStep, RunStatus::Error}}), Outcome::Failed);
}

TEST(StepOutcomes, without_an_end_are_failed_where_an_error_was_raised) {
  const StepMessage error{kStep, Severity::Error, "bit 3", "Replace it."};
  const StepTrouble contradiction{kStep, "test-contradicted-itself", "", ""};
  EXPECT_EQ(outcomeOf({error}), Outcome::Failed);
  EXPECT_EQ(outcomeOf({error, StepTrouble{kStep, "cut-off", "", ""}}), Outcome::Failed);
  EXPECT_EQ(recordOf({error}).find(kStep)->headline(), "bit 3");
  EXPECT_EQ(outcomeOf({error, contradiction}), Outcome::Trouble);
  EXPECT_EQ(outcomeOf({error, contradiction, error}), Outcome::Failed) << "of a later pass";
  EXPECT_EQ(outcomeOf({error, StepEnded{kStep, RunStatus::Error}}), Outcome::Trouble)
      << "judged by who ended it";
}

TEST(StepRecords, name_a_failure_and_not_the_trouble_before_it) {
  const StepTrouble trouble{kStep, "worker-crashed", "", ""};
  EXPECT_EQ(recordOf({trouble, judged(Verdict::Fail)}).find(kStep)->symptom, "symptom");
  EXPECT_EQ(recordOf({trouble, judged(Verdict::Unknown)}).find(kStep)->symptom, "worker-crashed");
}

TEST(StepRecords, that_only_end_take_no_time) {
  const auto time = std::chrono::system_clock::now();
  RunRecord record;
  record.handle({time, RunStarted{}});
  record.handle({time, StepEnded{kStep, RunStatus::Error}});
  EXPECT_EQ(record.find(kStep)->seconds(), 0);
  EXPECT_EQ(record.find(kStep)->start.test, kStep) << "the only name there is";
}

// Else two reports of one log would not come to the same.
TEST(StepRecords, come_to_the_same_whether_they_are_held_or_not) {
  const StepStarted start{kStep, "P", "Disk", "Read", "", 1};
  const StepStarted watch{kMachineStep, "diagctl", "", "machine-watch", "", 1};
  const StepEnded end{kStep, RunStatus::Complete};
  const StepMeasurement figure{kStep, "duration", 0.5, "s", ""};
  const StepMeasurement sensed{kMachineStep, "temperature", 40.0, "", ""};
  const StepMessage warning{kStep, Severity::Warning, "hot", ""};
  const StepTrouble trouble{kStep, "worker-crashed", "", ""};
  const OutcomeSums passed = {{Outcome::Passed, 1}};
  const std::string likeOneSetAside = kStep + '\0' + "2";
  const std::vector<std::pair<std::vector<RunEventBody>, OutcomeSums>> told = {
      {{watch, StepEnded{kMachineStep, RunStatus::Complete}, sensed}, {}},
      {{start, end, figure, warning, judged(Verdict::Pass), end}, passed},
      {{figure, judged(Verdict::Pass), end}, {}},
      {{start, end, start, end}, {{Outcome::Passed, 2}}},
      {{start, end, start}, {{Outcome::Passed, 1}, {Outcome::Trouble, 1}}},
      {{StepStarted{likeOneSetAside, "P", "Disk", "Read", "", 1}, start, end, start, end},
       {{Outcome::Passed, 2}, {Outcome::Trouble, 1}}},
      {{start, end, trouble}, {{Outcome::Passed, 1}, {Outcome::Trouble, 1}}},
      {{start, end, judged(Verdict::Fail)}, {{Outcome::Passed, 1}, {Outcome::Failed, 1}}},
      {{judged(Verdict::Unknown), end}, {{Outcome::Warning, 1}}},
      {{StepEnded{kStep, RunStatus::Error}}, {{Outcome::Trouble, 1}}},
  };
  for (const auto& [events, sums] : told) {
    for (const RunRecord::Ended ended : {RunRecord::Ended::Held, RunRecord::Ended::Dropped}) {
      RunRecord record(ended, RunRecord::kUnbounded);
      for (const RunEventBody& body : events) {
        record.handle({{}, body});
      }
      EXPECT_EQ(record.sums(), sums);
      std::size_t counted = 0;
      for (const auto& [outcome, count] : sums) {
        counted += count;
      }
      EXPECT_EQ(record.begun(), counted);
    }
  }
}

TEST(StepRecords, take_the_time_of_the_test_itself) {
  const StepEnded end{kStep, RunStatus::Complete};
  EXPECT_EQ(recordOf({end}).find(kStep)->seconds(), 0) << "nobody told it";
  const StepMeasurement first{kStep, "duration", 0.5, "s", ""};
  const StepMeasurement second{kStep, "duration", 1.25, "s", ""};
  EXPECT_EQ(recordOf({first, second, end}).find(kStep)->seconds(), 1.25);
}

TEST(RunSummaries, tell_what_was_aborted_from_what_was_not_possible) {
  const RunSummary aborted = summaryOf(recordOf({StepEnded{kStep, RunStatus::Skip, true}}));
  EXPECT_EQ(aborted.aborted, 1U);
  EXPECT_EQ(aborted.skipped, 0U);
  const RunSummary skipped = summaryOf(recordOf({StepEnded{kStep, RunStatus::Skip}}));
  EXPECT_EQ(skipped.aborted, 0U);
  EXPECT_EQ(skipped.skipped, 1U);
}

TEST(RunRecords, take_no_time_where_the_clock_was_set_back) {
  using Time = std::chrono::system_clock::time_point;
  RunRecord record;
  record.handle({Time(std::chrono::hours(5)), RunStarted()});
  record.handle({Time(std::chrono::hours(2)), RunEnded()});
  EXPECT_EQ(record.seconds(), 0);
}

TEST(RunVerdicts, have_one_order_of_precedence) {
  RunSummary summary;
  EXPECT_EQ(verdictOf(summary, 0), RunVerdict::NothingRan);
  summary.passed = 1;
  EXPECT_EQ(verdictOf(summary, 0), RunVerdict::Passed);
  summary.warned = 1;
  EXPECT_EQ(verdictOf(summary, 0), RunVerdict::Warned);
  summary.aborted = 1;
  EXPECT_EQ(verdictOf(summary, 0), RunVerdict::Aborted);
  EXPECT_EQ(verdictOf(summary, 1), RunVerdict::Troubled) << "with a package lost";
  summary.troubled = 1;
  EXPECT_EQ(verdictOf(summary, 0), RunVerdict::Troubled);
  summary.failed = 1;
  EXPECT_EQ(verdictOf(summary, 1), RunVerdict::Failed);
}

TEST(RunVerdicts, of_a_record_that_has_no_end_are_no_pass) {
  RunRecord record = recordOf({judged(Verdict::Pass), StepEnded{kStep, RunStatus::Complete}});
  EXPECT_EQ(exitCodeOf(record, {}), ExitCode::kNoVerdict);
  record.handle({std::chrono::system_clock::time_point(), endOf(RunVerdict::Passed)});
  EXPECT_EQ(exitCodeOf(record, {}), ExitCode::kPassed);
}

TEST(RunVerdicts, count_the_packages_that_the_stream_calls_lost) {
  RunRecord record = recordOf({judged(Verdict::Pass), StepEnded{kStep, RunStatus::Complete},
                               RunTrouble{"package-not-loaded", "lost"}});
  record.handle({std::chrono::system_clock::time_point(), endOf(RunVerdict::Troubled)});
  EXPECT_EQ(exitCodeOf(record, {}), ExitCode::kNoVerdict);
}

TEST(RunVerdicts, are_no_better_than_what_the_run_says_of_itself) {
  const auto codeOf = [](const RunEnded& end, bool hasRun) {
    RunRecord record =
        hasRun ? recordOf({judged(Verdict::Pass), StepEnded{kStep, RunStatus::Complete}})
               : RunRecord();
    record.handle({std::chrono::system_clock::time_point(), end});
    return exitCodeOf(record, {});
  };
  const RunEnded failed{RunStatus::Complete, RunResult::Fail};
  const RunEnded troubled{RunStatus::Error, RunResult::NotApplicable};
  const RunEnded skipped{RunStatus::Skip, RunResult::NotApplicable};
  for (const bool hasRun : {false, true}) {
    EXPECT_EQ(codeOf(failed, hasRun), ExitCode::kHardwareFailure);
    EXPECT_EQ(codeOf(troubled, hasRun), ExitCode::kNoVerdict);
  }
  EXPECT_EQ(codeOf(skipped, true), ExitCode::kNoVerdict);
  EXPECT_EQ(codeOf(skipped, false), ExitCode::kNothingRan);
}

TEST(RunVerdicts, are_no_better_than_any_of_several_ends) {
  const RunEnded passed{RunStatus::Complete, RunResult::Pass};
  const auto verdictWith = [&](const RunEnded& bad) {
    const StepDiagnosis diagnosis = judged(Verdict::Pass);
    const StepEnded complete{kStep, RunStatus::Complete};
    const RunVerdict verdict = verdictOf(recordOf({diagnosis, complete, bad, passed}));
    EXPECT_EQ(verdictOf(recordOf({diagnosis, complete, passed, bad})), verdict);
    return verdict;
  };
  EXPECT_EQ(verdictWith({RunStatus::Complete, RunResult::Fail}), RunVerdict::Failed);
  EXPECT_EQ(verdictWith({RunStatus::Error, RunResult::NotApplicable}), RunVerdict::Troubled);
  EXPECT_EQ(verdictWith({RunStatus::Skip, RunResult::NotApplicable}), RunVerdict::Troubled);
  EXPECT_EQ(verdictWith(passed), RunVerdict::Passed);
}

TEST(RunVerdicts, count_a_step_whose_id_is_empty) {
  RunRecord record;
  const auto time = std::chrono::system_clock::time_point();
  record.handle({time, StepStarted{"", "P", "Disk", "Read", "", 1}});
  record.handle({time, StepDiagnosis{"", Verdict::Fail, "", "", "", "", 1}});
  record.handle({time, StepEnded{"", RunStatus::Complete}});
  record.handle({time, endOf(RunVerdict::Passed)});
  EXPECT_EQ(exitCodeOf(record, {}), ExitCode::kHardwareFailure);
}

/// The line for monitors on a run of one test, and of one more that ended so.
std::string lineOf(const StepDiagnosis& diagnosis, const StepEnded& other, RunVerdict verdict) {
  const auto time = std::chrono::system_clock::time_point();
  std::ostringstream text;
  Printer out(text);
  SummaryReporter reporter(out);
  reporter.handle({time, RunStarted{}});
  reporter.handle({time, StepStarted{kStep, "P", "Disk", "Read", "", 1}});
  reporter.handle({time, diagnosis});
  reporter.handle({time, StepEnded{kStep, RunStatus::Complete}});
  reporter.handle({time, StepStarted{other.stepId, "P", "Disk", "Write", "", 1}});
  reporter.handle({time, other});
  reporter.handle({time, endOf(verdict)});
  reporter.finish();
  return text.str();
}

TEST(MonitorLines, say_what_the_exit_code_says) {
  const StepEnded aborted{"2", RunStatus::Skip, true};
  const StepEnded notPossible{"2", RunStatus::Skip};
  EXPECT_THAT(lineOf(judged(Verdict::Unknown), aborted, RunVerdict::Aborted),
              StartsWith("DIAGCTL UNKNOWN: "))
      << "a warning beside a test that has no verdict";
  EXPECT_THAT(lineOf(judged(Verdict::Unknown), notPossible, RunVerdict::Warned),
              StartsWith("DIAGCTL WARNING: "));
  EXPECT_THAT(lineOf(judged(Verdict::Fail), aborted, RunVerdict::Failed),
              StartsWith("DIAGCTL CRITICAL: "));
  EXPECT_THAT(lineOf(judged(Verdict::Pass), notPossible, RunVerdict::Passed),
              StartsWith("DIAGCTL OK: "));
}

TEST(RunVerdicts, of_a_run_without_its_end_are_never_good) {
  const StepDiagnosis passed = judged(Verdict::Pass);
  const StepEnded complete{kStep, RunStatus::Complete};
  const RunEnded whole{RunStatus::Complete, RunResult::Pass};
  EXPECT_EQ(verdictOf(recordOf({passed, complete, whole})), RunVerdict::Passed);
  EXPECT_EQ(verdictOf(recordOf({passed, complete})), RunVerdict::Troubled);
  EXPECT_EQ(verdictOf(recordOf({passed, complete, RunEnded{RunStatus::Error}})),
            RunVerdict::Troubled)
      << "it says of itself that it has no result for all";
  EXPECT_EQ(verdictOf(recordOf({judged(Verdict::Fail)})), RunVerdict::Failed)
      << "what was found stays found";
  EXPECT_EQ(verdictOf(recordOf({StepEnded{kStep, RunStatus::Skip, true},
                                RunEnded{RunStatus::Skip, RunResult::NotApplicable}})),
            RunVerdict::Aborted);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
