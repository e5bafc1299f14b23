#include "diagctl/report/SummaryReporter.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <variant>

#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Outcome = StepRecord::Outcome;

// The states of a monitor, by the exit code in its style.
constexpr const char* kStates[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};

// The first of the weightiest kind, then what belongs to no step.
std::string firstFinding(const RunRecord& record) {
  for (const Outcome outcome : {Outcome::Failed, Outcome::Trouble, Outcome::Warning}) {
    for (const StepRecord* step : record.steps()) {
      if (step->outcome() == outcome && !step->headline().empty()) {
        return english(" - {} on {}: {}", step->start.test, step->start.device,
                       withoutDevice(headOf(*step), step->start));
      }
    }
  }
  return record.troubles().empty() ? "" : " - " + record.troubles().front();
}

}  // namespace

void writeMonitorLine(Printer& out, int code, const RunSummary& summary, const std::string& text) {
  std::string line =
      fmt::format("DIAGCTL {}: {}", kStates[translate(code, summary, ExitStyle::Nagios)], text);
  std::replace(line.begin(), line.end(), '|', ' ');  // begins figures
  out.print("{}\n", toPrintable(line, " "));
  out.flush();
}

void SummaryReporter::handle(const RunEvent& event) {
  if (std::holds_alternative<RunStarted>(event.body)) {
    m_record.clear();
  }
  m_record.handle(event);
}

void SummaryReporter::finish() {
  const std::string counts = toEnglish(m_record.sums());
  writeMonitorLine(m_out, exitCodeOf(m_record, m_conditions), summaryOf(m_record),
                   (counts.empty() ? english("nothing ran") : counts) + firstFinding(m_record));
}

}  // namespace TarvexDiags::FrontEnd
