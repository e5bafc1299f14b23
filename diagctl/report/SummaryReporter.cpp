#include "diagctl/report/SummaryReporter.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <variant>

#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Outcome = StepRecord::Outcome;

struct State {
  Outcome outcome;
  const char* word;
};

// The first that occurs is the state of the whole.
constexpr State kStates[] = {{Outcome::Failed, "CRITICAL"},
                             {Outcome::Trouble, "UNKNOWN"},
                             {Outcome::Warning, "WARNING"},
                             {Outcome::Passed, "OK"}};

std::string firstFinding(const RunRecord& record, Outcome outcome) {
  for (const StepRecord* step : record.steps()) {
    if (step->outcome() == outcome && !step->findings.empty()) {
      return tr(" - {} on {}: {}", step->start.test, step->start.device, step->findings.front());
    }
  }
  return {};
}

}  // namespace

void SummaryReporter::handle(const RunEvent& event) {
  if (std::holds_alternative<RunStarted>(event.body)) {
    m_record = RunRecord();
  }
  m_record.handle(event);
}

void SummaryReporter::finish() {
  const OutcomeSums sums = m_record.sums();
  const std::string counts = toText(sums);
  const char* word = "UNKNOWN";
  std::string finding = m_record.troubles().empty() ? "" : " - " + m_record.troubles().front();
  for (const State& state : kStates) {
    if (sums.contains(state.outcome)) {
      const bool isPassed = state.outcome == Outcome::Passed;
      word = isPassed && m_record.end().result != RunResult::Pass ? "UNKNOWN" : state.word;
      finding = isPassed ? finding : firstFinding(m_record, state.outcome);
      break;
    }
  }
  std::string line =
      fmt::format("DIAGCTL {}: {}{}", word, counts.empty() ? tr("nothing ran") : counts, finding);
  std::replace(line.begin(), line.end(), '|', ' ');  // begins figures
  m_out.print("{}\n", toPrintable(line));
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
