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
      case StepRecord::Outcome::aborted:
        ++summary.aborted;
        break;
    }
  }
  return summary;
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
    std::vector<std::unique_ptr<Output>> outputs;
    for (const std::string& specification : options.outputs) {
      outputs.push_back(Output::toFile(specification));
    }
    if (outputs.empty()) {
      outputs.push_back(Output::toStandardOutput(options.format, false));
    }
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
    code = exitCodeOf(summaryOf(record), record.troubles().size(), false, false);
  }
  if (!hasRun) {
    throw std::runtime_error(fmt::format("{}: holds no run", options.log));
  }
  return code;
}

}  // namespace TarvexDiags::DiagCtl
