#include "diagctl/TextReporter.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <map>

namespace TarvexDiags::DiagCtl {

namespace {

constexpr const char* green = "\033[32m";
constexpr const char* red = "\033[31m";
constexpr const char* yellow = "\033[33m";
constexpr const char* reset = "\033[0m";

}  // namespace

TextReporter::TextReporter(std::ostream& out, bool colour) : m_out(out), m_colour(colour) {}

std::string TextReporter::paint(const char* text, const char* colour) const {
  return m_colour ? std::string(colour) + text + reset : text;
}

void TextReporter::handle(const RunEvent& event) {
  if (const StepRecord* ended = m_record.handle(event)) {
    writeStep(*ended);
  }
  if (const auto* start = std::get_if<RunStarted>(&event.body)) {
    fmt::print(m_out, "{} {} on {}\n", start->name, start->version, start->machineName);
    for (const std::string& platform : start->platforms) {
      fmt::print(m_out, "  {}\n", platform);
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
  fmt::print(m_out, "{}  {}: {} on {}", verdictOf(step), step.start.package, step.start.test,
             step.start.device);
  if (step.start.passes > 1 || step.passes > 1) {
    fmt::print(m_out, ", {} of {} passes", step.passes, step.start.passes);
  }
  if (step.hasEnded) {
    fmt::print(m_out, " ({:.1f} s)", step.seconds());
  }
  m_out << '\n';
  for (const std::string& finding : step.findings) {
    fmt::print(m_out, "         {}\n", finding);
  }
  for (const std::string& action : step.actions) {
    fmt::print(m_out, "         -> {}\n", action);
  }
  m_out << std::flush;
}

void TextReporter::finish() {
  std::map<StepRecord::Outcome, int> sums;
  for (const StepRecord* step : m_record.steps()) {
    if (!step->hasEnded) {
      writeStep(*step);
    }
    ++sums[step->outcome()];
  }
  for (const std::string& trouble : m_record.troubles()) {
    fmt::print(m_out, "{}  {}\n", paint("ERROR  ", yellow), trouble);
  }
  std::string summary;
  for (const auto& [outcome, count] : sums) {
    summary += fmt::format("{}{} {}", summary.empty() ? "" : ", ", count, toText(outcome));
  }
  fmt::print(m_out, "\n{} tests in {:.1f} s: {}\n", m_record.steps().size(), m_record.seconds(),
             summary.empty() ? "nothing ran" : summary);
  if (!m_record.hasEnded()) {
    m_out << "The run was cut short.\n";
  }
  m_out << std::flush;
}

}  // namespace TarvexDiags::DiagCtl
