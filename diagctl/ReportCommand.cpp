#include "diagctl/ReportCommand.h"

#include <fmt/format.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "diagctl/ExitStatus.h"
#include "diagctl/JsonlReader.h"
#include "diagctl/Output.h"
#include "diagctl/StepRecord.h"

namespace TarvexDiags::DiagCtl {

namespace {

RunSummary summaryOf(const RunRecord& record) {
  RunSummary summary;
  for (const StepRecord* step : record.steps()) {
    switch (step->outcome()) {
      case StepRecord::Outcome::passed:
        ++summary.passed;
        break;
      case StepRecord::Outcome::failed:
        ++summary.failed;
        break;
      case StepRecord::Outcome::warning:
        ++summary.warned;
        break;
      case StepRecord::Outcome::trouble:
        ++summary.troubled;
        break;
      case StepRecord::Outcome::skipped:
        ++summary.skipped;
        break;
    }
  }
  return summary;
}

// A run that ended without a result for all, or did not end, has no verdict on what it left out.
int exitCodeOf(const RunRecord& record) {
  const RunSummary summary = summaryOf(record);
  const int code = exitCodeOf(summary, {.failedPackages = record.troubles().size()});
  const bool isWhole = record.hasEnded() && record.end().status == RunStatus::complete;
  return code == ExitCode::passed && !isWhole ? ExitCode::noVerdict : code;
}

}  // namespace

int carryOutReport(const ReportCommandOptions& options) {
  errno = 0;
  std::ifstream in(options.log);
  if (!in) {
    throw std::system_error(errno, std::generic_category(), options.log);
  }
  JsonlReader reader(in, options.log);
  int code = ExitCode::nothingRan;
  bool hasRun = false;
  for (bool isRead = true; isRead;) {
    const auto outputs = openOutputs(options.outputs, options.format, false);
    RunRecord record;
    isRead = reader.readRun([&](const RunEvent& event) {
      record.handle(event);
      for (const auto& output : outputs) {
        output->handle(event);
      }
    });
    if (!isRead) {
      break;
    }
    hasRun = true;
    for (const auto& output : outputs) {
      output->finish();
    }
    code = exitCodeOf(record);
  }
  if (!hasRun) {
    throw std::runtime_error(fmt::format("{}: holds no run", options.log));
  }
  return code;
}

}  // namespace TarvexDiags::DiagCtl
