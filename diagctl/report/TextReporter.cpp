#include "diagctl/report/TextReporter.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <utility>

#include "diagctl/terminal/Printable.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* green = "\033[32m";
constexpr const char* red = "\033[31m";
constexpr const char* yellow = "\033[33m";
constexpr const char* reset = "\033[0m";
constexpr const char* indentedBreak = "\n         ";

}  // namespace

TextReporter::TextReporter(std::ostream& out, bool colour) : m_out(out), m_colour(colour) {}

std::string TextReporter::paint(const char* text, const char* colour) const {
  return m_colour ? std::string(colour) + text + reset : text;
}

void TextReporter::handle(const RunEvent& event) {
  const auto* start = std::get_if<RunStarted>(&event.body);
  if (start != nullptr && std::exchange(m_hasBegun, true)) {
    closeRun();
    m_out << '\n';
  }
  if (const StepRecord* ended = m_record.handle(event)) {
    writeStep(*ended);
  }
  if (start != nullptr) {
    fmt::print(m_out, "{} {} on {}\n", start->name, start->version,
               toPrintable(start->machineName));
    for (const std::string& platform : start->platforms) {
      fmt::print(m_out, "  {}\n", toPrintable(platform));
    }
    m_out << '\n' << std::flush;
  }
}

std::string TextReporter::verdictOf(const StepRecord& step) const {
  switch (step.outcome()) {
    case StepRecord::Outcome::passed:
      return paint("PASSED ", green);
    case StepRecord::Outcome::failed:
      return paint("FAILED ", red);
    case StepRecord::Outcome::warning:
      return paint("WARNING", yellow);
    case StepRecord::Outcome::trouble:
      return paint("ERROR  ", yellow);
    case StepRecord::Outcome::skipped:
      break;
  }
  return paint("SKIPPED", yellow);
}

void TextReporter::writeStep(const StepRecord& step) {
  fmt::print(m_out, "{}  {}: {} on {}", verdictOf(step), toPrintable(step.start.package),
             toPrintable(step.start.test), toPrintable(step.start.device));
  if (step.start.passes > 1 || step.passes > 1) {
    fmt::print(m_out, ", {} of {} passes", step.passes, step.start.passes);
  }
  if (step.hasEnded) {
    fmt::print(m_out, " ({:.1f} s)", step.seconds());
  }
  m_out << '\n';
  for (const std::string& finding : step.findings) {
    fmt::print(m_out, "         {}\n", toPrintable(finding, indentedBreak));
  }
  for (const std::string& action : step.actions) {
    fmt::print(m_out, "         -> {}\n", toPrintable(action, indentedBreak));
  }
  m_out << std::flush;
}

void TextReporter::finish() {
  closeRun();
}

void TextReporter::closeRun() {
  for (const StepRecord* step : m_record.steps()) {
    if (!step->hasEnded) {
      writeStep(*step);
    }
  }
  for (const std::string& trouble : m_record.troubles()) {
    fmt::print(m_out, "{}  {}\n", paint("ERROR  ", yellow), toPrintable(trouble, indentedBreak));
  }
  const std::string summary = toText(m_record.sums());
  fmt::print(m_out, "\n{} tests in {:.1f} s: {}\n", m_record.steps().size(), m_record.seconds(),
             summary.empty() ? "nothing ran" : summary);
  if (!m_record.hasEnded()) {
    m_out << "The run was cut short.\n";
  }
  m_out << std::flush;
  m_record = RunRecord();
}

}  // namespace TarvexDiags::FrontEnd
