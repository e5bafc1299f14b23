#include "diagctl/command/ReportCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/JsonlReader.h"
#include "diagctl/report/Output.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

RunSummary summaryOf(const RunRecord& record) {
  using Outcome = StepRecord::Outcome;
  const std::vector<const StepRecord*> steps = record.steps();
  OutcomeSums sums = record.sums();
  RunSummary summary;
  summary.passed = sums[Outcome::Passed];
  summary.failed = sums[Outcome::Failed];
  summary.warned = sums[Outcome::Warning];
  summary.troubled = sums[Outcome::Trouble];
  summary.skipped = sums[Outcome::Skipped];
  summary.aborted = static_cast<std::size_t>(
      std::count_if(steps.begin(), steps.end(), [](const StepRecord* step) {
        return step->isAborted && step->outcome() == Outcome::Skipped;
      }));
  summary.skipped -= summary.aborted;
  return summary;
}

// A run that ended without a result for all, or did not end, has no verdict on what it left out.
int exitCodeOf(const RunRecord& record, const RunSummary& summary, bool isStrict) {
  const int code =
      exitCodeOf(summary, {.failedPackages = record.troubles().size(), .isStrict = isStrict});
  const bool isWhole = record.hasEnded() && record.end().status == RunStatus::Complete;
  return code == ExitCode::kPassed && !isWhole ? ExitCode::kNoVerdict : code;
}

int reportRuns(const ReportCommandOptions& options, RunSummary& summary) {
  errno = 0;
  std::ifstream in(options.log);
  if (!in) {
    throw std::system_error(errno, std::generic_category(), options.log);
  }
  JsonlReader reader(in, options.log);
  Outputs outputs(options.reporting.outputs, formatOf(options.reporting), false);
  std::optional<int> code;
  for (bool isRead = true; isRead;) {
    RunRecord record;
    isRead = reader.readRun([&](const RunEvent& event) {
      record.handle(event);
      outputs.handle(event);
    });
    if (isRead) {
      summary = summaryOf(record);
      code = exitCodeOf(record, summary, options.reporting.isStrict);
    }
  }
  if (!code) {
    throw std::runtime_error(tr("{}: holds no run", options.log));
  }
  return finish(outputs, *code);
}

}  // namespace

int carryOutReport(const ReportCommandOptions& options) {
  return carryOutInStyle(options.reporting,
                         [&](RunSummary& summary) { return reportRuns(options, summary); });
}

}  // namespace TarvexDiags::FrontEnd
