#include "diagctl/command/ReportCommand.h"

#include <fmt/format.h>

#include <cerrno>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/JsonlReader.h"
#include "diagctl/report/Output.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/report/Vanished.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

int reportRuns(const ReportCommandOptions& options, RunSummary& summary) {
  errno = 0;
  std::ifstream in(options.log);
  if (!in) {
    throw std::system_error(errno, std::generic_category(), options.log);
  }
  JsonlReader reader(in, options.log);
  const RunConditions conditions{.isStrict = options.reporting.isStrict,
                                 .failsOnSkip = options.reporting.failsOnSkip};
  Outputs outputs(options.reporting.outputs, formatOf(options.reporting), {false, conditions});
  const VanishedJudge judge(vanishedOf(options.reporting));
  std::optional<int> code;
  for (bool isRead = true; isRead;) {
    RunRecord record;
    isRead = reader.readRun([&](const RunEvent& written) {
      const RunEvent event{written.time, judge.judge(written.body, record)};
      record.handle(event);
      outputs.handle(event);
    });
    if (isRead) {
      summary = summaryOf(record);
      code = exitCodeOf(record, conditions);
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
