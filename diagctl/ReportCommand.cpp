#include "diagctl/ReportCommand.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <cerrno>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include "diagctl/ExitStatus.h"
#include "diagctl/JsonlReader.h"
#include "diagctl/Output.h"
#include "diagctl/StepRecord.h"

namespace TarvexDiags::DiagCtl {

namespace {

RunSummary summaryOf(const RunRecord& record) {
  using Outcome = StepRecord::Outcome;
  OutcomeSums sums = record.sums();
  RunSummary summary;
  summary.passed = sums[Outcome::passed];
  summary.failed = sums[Outcome::failed];
  summary.warned = sums[Outcome::warning];
  summary.troubled = sums[Outcome::trouble];
  summary.skipped = sums[Outcome::skipped];
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
  Outputs outputs(options.outputs, options.format, false);
  int code = ExitCode::nothingRan;
  bool hasRun = false;
  for (bool isRead = true; isRead;) {
    RunRecord record;
    isRead = reader.readRun([&](const RunEvent& event) {
      record.handle(event);
      outputs.handle(event);
    });
    if (isRead) {
      hasRun = true;
      code = exitCodeOf(record);
    }
  }
  if (!hasRun) {
    throw std::runtime_error(fmt::format("{}: holds no run", options.log));
  }
  outputs.finish();
  for (const std::string& failure : outputs.failures()) {
    fmt::print(std::cerr, "diagctl: {}\n", failure);
  }
  return outputs.failures().empty() || code != ExitCode::passed ? code : ExitCode::noVerdict;
}

}  // namespace TarvexDiags::DiagCtl
