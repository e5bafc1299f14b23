#include "diagctl/report/RunVerdict.h"

#include <algorithm>

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

RunSummary& RunSummary::operator+=(const RunSummary& other) {
  passed += other.passed;
  failed += other.failed;
  warned += other.warned;
  troubled += other.troubled;
  aborted += other.aborted;
  notRun += other.notRun;
  skipped += other.skipped;
  skippedForPrivilege += other.skippedForPrivilege;
  return *this;
}

RunSummary summaryOf(const RunRecord& record) {
  using Outcome = StepRecord::Outcome;
  OutcomeSums sums = record.sums();
  RunSummary summary;
  summary.passed = sums[Outcome::Passed];
  summary.failed = sums[Outcome::Failed];
  summary.warned = sums[Outcome::Warning];
  summary.troubled = sums[Outcome::Trouble];
  summary.aborted = sums[Outcome::Aborted];
  summary.notRun = sums[Outcome::NotRun];
  summary.skippedForPrivilege = sums[Outcome::SkippedForPrivilege];
  summary.skipped =
      sums[Outcome::Skipped] + sums[Outcome::SkippedForMode] + summary.skippedForPrivilege;
  return summary;
}

RunVerdict verdictOf(const RunSummary& summary, std::size_t lostPackages) {
  if (summary.failed > 0) {
    return RunVerdict::Failed;
  }
  if (summary.troubled > 0 || lostPackages > 0) {
    return RunVerdict::Troubled;
  }
  if (summary.aborted > 0 || summary.notRun > 0) {
    return RunVerdict::Aborted;
  }
  if (summary.ran() == 0) {
    return RunVerdict::NothingRan;
  }
  return summary.warned > 0 ? RunVerdict::Warned : RunVerdict::Passed;
}

RunVerdict verdictOf(const RunRecord& record) {
  const RunVerdict verdict = verdictOf(summaryOf(record), record.troubleCount());
  const bool saysFailed = record.hasEnded() && record.end().result == RunResult::Fail;
  if (verdict == RunVerdict::Failed || saysFailed) {
    return RunVerdict::Failed;
  }
  if (!record.hasEnded() || record.end().status == RunStatus::Error) {
    return RunVerdict::Troubled;
  }
  const bool hasPassed = verdict == RunVerdict::Passed || verdict == RunVerdict::Warned;
  return hasPassed && record.end().status != RunStatus::Complete ? RunVerdict::Troubled : verdict;
}

RunVerdict worseOf(RunVerdict one, RunVerdict other) {
  return std::min(one, other);
}

std::string toText(RunVerdict verdict) {
  switch (verdict) {
    case RunVerdict::Failed:
      return tr("FAILED: the hardware is at fault");
    case RunVerdict::Troubled:
      return tr("ERROR: no verdict on all of it");
    case RunVerdict::Aborted:
      return tr("ABORTED: no verdict on all of it");
    case RunVerdict::NothingRan:
      return tr("SKIPPED: nothing ran");
    case RunVerdict::Warned:
      return tr("WARNING: passed, with a warning");
    case RunVerdict::Passed:
      break;
  }
  return tr("PASSED");
}

RunEnded endOf(RunVerdict verdict) {
  switch (verdict) {
    case RunVerdict::Failed:
      return {RunStatus::Complete, RunResult::Fail};
    case RunVerdict::Troubled:
      return {RunStatus::Error, RunResult::NotApplicable};
    case RunVerdict::Aborted:
    case RunVerdict::NothingRan:
      return {RunStatus::Skip, RunResult::NotApplicable};
    case RunVerdict::Warned:
    case RunVerdict::Passed:
      break;
  }
  return {RunStatus::Complete, RunResult::Pass};
}

}  // namespace TarvexDiags::FrontEnd
