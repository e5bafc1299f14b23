#include "diagctl/report/TapReporter.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>

#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

// "#" begins a directive and a line break the next line.
std::string plain(const std::string& text) {
  std::string printable = toPrintable(text, " ");
  std::replace(printable.begin(), printable.end(), '#', ' ');
  return printable;
}

std::string directiveOf(const StepRecord& step) {
  switch (step.outcome()) {
    case StepRecord::Outcome::Trouble:
      return " # TODO " + tr("no verdict: {}", plain(step.symptom));
    case StepRecord::Outcome::Skipped:
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
      m_out.write("TAP version 13\n");
      m_out.flush();
    }
  }
  if (const StepRecord* ended = m_record.handle(event)) {
    writeStep(*ended);
  }
}

void TapReporter::writeStep(const StepRecord& step) {
  const StepRecord::Outcome outcome = step.outcome();
  const bool isOk =
      outcome != StepRecord::Outcome::Failed && outcome != StepRecord::Outcome::Trouble;
  m_out.print("{} {} - {}: {} on {}{}\n", isOk ? "ok" : "not ok", ++m_number,
              plain(step.start.package), plain(step.start.test), plain(step.start.device),
              directiveOf(step));
  writeTexts("# ", step.findings);
  writeTexts("# -> ", step.actions);
  m_out.flush();
}

void TapReporter::writeTexts(const char* indent, const BoundedTexts& texts) {
  for (const std::string& text : texts) {
    m_out.print("{}{}\n", indent, plain(text));
  }
  if (texts.omitted() > 0) {
    m_out.print("{}{}\n", indent, moreOf(texts));
  }
}

// What did not end is told as it stands.
void TapReporter::closeRun() {
  for (const StepRecord* step : m_record.steps()) {
    if (!step->hasEnded()) {
      writeStep(*step);
    }
  }
  writeTexts("# ", m_record.troubles());
  m_record.clear();
}

void TapReporter::finish() {
  closeRun();
  m_out.print("1..{}\n", m_number);
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
