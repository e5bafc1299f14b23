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
#include "diagctl/report/Formats.h"
#include "diagctl/report/JsonlReader.h"
#include "diagctl/report/Output.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/report/Vanished.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

// A log may come from anywhere. Each report holds what it needs of a run, and so does what judges.
constexpr std::size_t kMostHeld = 30UL << 20U;  ///< bytes, by all of them together

/// Those of the outputs and standard output, and what judges.
std::size_t mostHeldByEach(const ReportingOptions& reporting) {
  return kMostHeld / (reporting.outputs.size() + 2);
}

/// Hands the runs of a log on: judged anew, and each step with an end.
class Reports {
 public:
  /// @param mostHeld bytes of a run, by each report.
  Reports(const std::string& log, std::optional<VanishedAs> vanished, Outputs& outputs,
          std::size_t mostHeld)
      : m_log(log),
        m_judge(vanished),
        m_outputs(outputs),
        m_mostHeld(mostHeld),
        m_record(RunRecord::Ended::Dropped, mostHeld / 2) {}

  void take(const RunEvent& written) {
    if (std::holds_alternative<RunEnded>(written.body)) {
      closeRun();  // its end tells of them all
    }
    tell({written.time, m_judge.judge(written.body, m_record)});
    // Ended steps are dropped, so all that can come to that much is steps without an end.
    if (m_record.size() > m_mostHeld) {
      throw std::runtime_error(
          tr("{}: more tests are under way at once than a report can hold", m_log));
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

  void beginNext() { m_record.clear(); }

 private:
  void tell(const RunEvent& event) {
    m_record.handle(event);
    m_outputs.handle(event);
  }

  const std::string& m_log;
  const VanishedJudge m_judge;
  Outputs& m_outputs;
  const std::size_t m_mostHeld;
  RunRecord m_record;
};

constexpr const char* kStandardInput = "-";

/// A log, open to be read.
class Log {
 public:
  explicit Log(const std::string& path)
      : m_isStandardInput(path == kStandardInput),
        m_name(m_isStandardInput ? tr("standard input") : path) {
    if (!m_isStandardInput) {
      errno = 0;
      m_file.open(path);
      if (!m_file) {
        throw std::system_error(errno, std::generic_category(), path);
      }
    }
    requireLog();
  }

  std::istream& stream() { return m_isStandardInput ? standardInput() : m_file; }
  const std::string& name() const { return m_name; }

 private:
  // Each line of a log is an object. What cannot be read at all is told by whoever reads on.
  void requireLog() {
    try {
      const int first = stream().peek();
      if (first != std::istream::traits_type::eof() && first != '{' && first != '\n') {
        throw std::runtime_error(
            tr("{}: is no log; run writes one with -o {}=FILE", m_name, kLogFormat));
      }
      stream().clear();
    } catch (const std::ios_base::failure& failure) {
      throw std::runtime_error(fmt::format("{}: {}", m_name, failure.code().message()));
    }
  }

  const bool m_isStandardInput;
  const std::string m_name;
  std::ifstream m_file;
};

int reportRuns(const ReportCommandOptions& options, RunSummary& summary) {
  Log log(options.log);
  JsonlReader reader(log.stream(), log.name());
  const RunConditions conditions{.isStrict = options.reporting.isStrict,
                                 .failOnSkip = options.reporting.failOnSkip};
  const std::size_t mostHeld = mostHeldByEach(options.reporting);
  Outputs outputs(options.reporting.outputs, formatOf(options.reporting),
                  {false, conditions, mostHeld, lineWidthOfOutput(), options.reporting.onlyProblems,
                   options.reporting.verbosity});
  Reports reports(log.name(), vanishedOf(options.reporting), outputs, mostHeld);
  std::optional<int> code;
  while (reader.readRun([&](const RunEvent& written) { reports.take(written); })) {
    reports.closeRun();
    summary = summaryOf(reports.record());
    code = exitCodeOf(reports.record(), conditions);
    reports.beginNext();
  }
  if (!code) {
    throw std::runtime_error(tr("{}: holds no run", log.name()));
  }
  return finish(outputs, *code);
}

}  // namespace

int carryOutReport(const ReportCommandOptions& options) {
  return carryOutInStyle(options.reporting,
                         [&](RunSummary& summary) { return reportRuns(options, summary); });
}

}  // namespace TarvexDiags::FrontEnd
