#include "diagctl/report/TextReporter.h"

#include <fmt/format.h>

#include <utility>

#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kGreen = "\033[32m";
constexpr const char* kRed = "\033[31m";
constexpr const char* kYellow = "\033[33m";
constexpr const char* kReset = "\033[0m";
constexpr const char* kIndentedBreak = "\n         ";

}  // namespace

TextReporter::TextReporter(Printer& out, bool colour) : m_out(out), m_colour(colour) {}

std::string TextReporter::paint(const std::string& text, const char* colour) const {
  return m_colour ? colour + text + kReset : text;
}

void TextReporter::handle(const RunEvent& event) {
  const auto* start = std::get_if<RunStarted>(&event.body);
  if (start != nullptr && std::exchange(m_hasBegun, true)) {
    closeRun();
    m_out.write("\n");
  }
  if (const StepRecord* ended = m_record.handle(event)) {
    writeStep(*ended);
  }
  if (start != nullptr) {
    m_out.say("{} {} on {}\n", start->name, start->version, toPrintable(start->machineName));
    for (const std::string& platform : start->platforms) {
      m_out.print("  {}\n", toPrintable(platform));
    }
    m_out.write("\n");
    m_out.flush();
  }
}

std::string TextReporter::verdictOf(const StepRecord& step) const {
  switch (step.outcome()) {
    case StepRecord::Outcome::Passed:
      return paint(tr("PASSED "), kGreen);
    case StepRecord::Outcome::Failed:
      return paint(tr("FAILED "), kRed);
    case StepRecord::Outcome::Warning:
      return paint(tr("WARNING"), kYellow);
    case StepRecord::Outcome::Trouble:
      return paint(tr("ERROR  "), kYellow);
    case StepRecord::Outcome::Skipped:
      break;
  }
  return paint(tr("SKIPPED"), kYellow);
}

void TextReporter::writeStep(const StepRecord& step) {
  m_out.say("{}  {}: {} on {}", verdictOf(step), toPrintable(step.start.package),
            toPrintable(step.start.test), toPrintable(step.start.device));
  if (step.start.passes > 1 || step.passes() > 1) {
    m_out.say(", {} of {} passes", step.passes(), step.start.passes);
  }
  if (step.hasEnded()) {
    m_out.say(" ({:.1f} s)", step.seconds());
  }
  m_out.write("\n");
  for (const std::string& finding : step.findings) {
    m_out.print("         {}\n", toPrintable(finding, kIndentedBreak));
  }
  for (const std::string& action : step.actions) {
    m_out.print("         -> {}\n", toPrintable(action, kIndentedBreak));
  }
  m_out.flush();
}

void TextReporter::finish() {
  closeRun();
}

void TextReporter::closeRun() {
  for (const StepRecord* step : m_record.steps()) {
    if (!step->hasEnded()) {
      writeStep(*step);
    }
  }
  for (const std::string& trouble : m_record.troubles()) {
    m_out.print("{}  {}\n", paint(tr("ERROR  "), kYellow), toPrintable(trouble, kIndentedBreak));
  }
  const std::string summary = toText(m_record.sums());
  m_out.say("\n{} tests in {:.1f} s: {}\n", m_record.steps().size(), m_record.seconds(),
            summary.empty() ? tr("nothing ran") : summary);
  if (!m_record.hasEnded()) {
    m_out.say("The run was cut short.\n");
  }
  m_out.flush();
  m_record = RunRecord();
}

}  // namespace TarvexDiags::FrontEnd
