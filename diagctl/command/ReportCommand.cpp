#include "diagctl/command/ReportCommand.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstddef>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <variant>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/JsonlReader.h"
#include "diagctl/report/Output.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/report/Vanished.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

// A log may come from anywhere. Each report holds the run that it tells of, and so does what
// judges.
constexpr std::size_t kMostHeld = 30UL << 20U;  ///< bytes, by all of them together

/// Hands the runs of a log on: judged anew, and each step with an end.
class Reports {
 public:
  Reports(const std::string& log, std::optional<VanishedAs> vanished, Outputs& outputs)
      : m_log(log), m_judge(vanished), m_outputs(outputs) {}

  void take(const RunEvent& written) {
    // Reporters begin a new record there; a log without beginnings is one run to them.
    if (std::holds_alternative<RunStarted>(written.body)) {
      m_heldBefore = 0;
    }
    tell({written.time, m_judge.judge(written.body, m_record)});
    if (m_heldBefore + m_record.size() > kMostHeld / (m_outputs.count() + 1)) {
      throw std::runtime_error(tr("{}: a run tells more than a report can hold", m_log));
    }
  }

  /// What was under way when the run ended by a crash, a kill or a lost machine.
  void closeRun() {
    for (const std::string& step : m_record.openSteps()) {
      tell({m_record.last(),
            StepTrouble{step, "cut-off", tr("It was cut off: the run ended before the test did."),
                        tr("Run the test again.")}});
      tell({m_record.last(), StepEnded{step, RunStatus::Error}});
    }
  }

  const RunRecord& record() const { return m_record; }

  void beginNext() {
    m_heldBefore += m_record.size();
    m_record = RunRecord();
  }

 private:
  void tell(const RunEvent& event) {
    m_record.handle(event);
    m_outputs.handle(event);
  }

  const std::string& m_log;
  const VanishedJudge m_judge;
  Outputs& m_outputs;
  RunRecord m_record;
  std::size_t m_heldBefore = 0;
};

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
  Reports reports(options.log, vanishedOf(options.reporting), outputs);
  std::optional<int> code;
  while (reader.readRun([&](const RunEvent& written) { reports.take(written); })) {
    reports.closeRun();
    summary = summaryOf(reports.record());
    code = exitCodeOf(reports.record(), conditions);
    reports.beginNext();
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
