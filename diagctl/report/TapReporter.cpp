#include "diagctl/report/TapReporter.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <string>
#include <utility>

#include "diagctl/terminal/Printable.h"

namespace TarvexDiags::FrontEnd {

namespace {

// "#" begins a directive and a line break the next line.
std::string plain(const std::string& text) {
  std::string printable = toPrintable(text);
  std::replace(printable.begin(), printable.end(), '#', ' ');
  return printable;
}

std::string directiveOf(const StepRecord& step) {
  switch (step.outcome()) {
    case StepRecord::Outcome::trouble:
      return " # TODO no verdict: " + plain(step.symptom);
    case StepRecord::Outcome::skipped:
      return " # SKIP " + (step.findings.empty() ? "" : plain(step.findings.front()));
    default:
      return {};
  }
}

}  // namespace

void TapReporter::handle(const RunEvent& event) {
  if (std::holds_alternative<RunStarted>(event.body)) {
    if (std::exchange(m_hasBegun, true)) {
      closeRun();
    } else {
      m_out << "TAP version 13\n" << std::flush;
    }
  }
  if (const StepRecord* ended = m_record.handle(event)) {
    writeStep(*ended);
  }
}

void TapReporter::writeStep(const StepRecord& step) {
  const StepRecord::Outcome outcome = step.outcome();
  const bool isOk =
      outcome != StepRecord::Outcome::failed && outcome != StepRecord::Outcome::trouble;
  fmt::print(m_out, "{} {} - {}: {} on {}{}\n", isOk ? "ok" : "not ok", ++m_number,
             plain(step.start.package), plain(step.start.test), plain(step.start.device),
             directiveOf(step));
  for (const std::string& finding : step.findings) {
    fmt::print(m_out, "# {}\n", plain(finding));
  }
  for (const std::string& action : step.actions) {
    fmt::print(m_out, "# -> {}\n", plain(action));
  }
  m_out << std::flush;
}

// What did not end is told as it stands.
void TapReporter::closeRun() {
  for (const StepRecord* step : m_record.steps()) {
    if (!step->hasEnded) {
      writeStep(*step);
    }
  }
  for (const std::string& trouble : m_record.troubles()) {
    fmt::print(m_out, "# {}\n", plain(trouble));
  }
  m_record = RunRecord();
}

void TapReporter::finish() {
  closeRun();
  fmt::print(m_out, "1..{}\n", m_number);
  m_out << std::flush;
}

}  // namespace TarvexDiags::FrontEnd
