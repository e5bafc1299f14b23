#include "diagctl/TextReporter.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>

namespace TarvexDiags::DiagCtl {

namespace {

constexpr const char* green = "\033[32m";
constexpr const char* red = "\033[31m";
constexpr const char* yellow = "\033[33m";
constexpr const char* reset = "\033[0m";

double secondsBetween(std::chrono::system_clock::time_point from,
                      std::chrono::system_clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

}  // namespace

TextReporter::TextReporter(std::ostream& out, bool colour) : m_out(out), m_colour(colour) {}

std::string TextReporter::paint(const std::string& text, const char* colour) const {
  return m_colour ? colour + text + reset : text;
}

TextReporter::Step& TextReporter::step(const std::string& stepId) {
  return m_steps[stepId];
}

void TextReporter::finding(const std::string& stepId, const std::string& text,
                           const std::string& action) {
  Step& found = step(stepId);
  if (!text.empty() &&
      std::find(found.lines.begin(), found.lines.end(), text) == found.lines.end()) {
    found.lines.push_back(text);
  }
  const std::string advice = "-> " + action;
  if (!action.empty() &&
      std::find(found.lines.begin(), found.lines.end(), advice) == found.lines.end()) {
    found.lines.push_back(advice);
  }
}

void TextReporter::handle(const RunEvent& event) {
  m_last = event.time;
  if (!m_hasBegun) {
    m_hasBegun = true;
    m_begin = event.time;
  }
  if (const auto* start = std::get_if<RunStarted>(&event.body)) {
    fmt::print(m_out, "{} {} on {}\n", start->name, start->version, start->machineName);
    for (const std::string& platform : start->platforms) {
      fmt::print(m_out, "  {}\n", platform);
    }
    m_out << '\n';
  } else if (const auto* started = std::get_if<StepStarted>(&event.body)) {
    step(started->stepId).start = *started;
    step(started->stepId).begin = event.time;
    m_order.push_back(started->stepId);
  } else if (const auto* message = std::get_if<StepMessage>(&event.body)) {
    if (message->severity == Severity::warning || message->severity == Severity::error) {
      finding(message->stepId, message->text, message->action);
    }
  } else if (const auto* diagnosis = std::get_if<StepDiagnosis>(&event.body)) {
    Step& judged = step(diagnosis->stepId);
    ++judged.passes;
    judged.hasFailed |= diagnosis->verdict == Verdict::fail;
    judged.hasWarning |= diagnosis->verdict == Verdict::unknown;
    finding(diagnosis->stepId, diagnosis->message, diagnosis->action);
  } else if (const auto* trouble = std::get_if<StepTrouble>(&event.body)) {
    finding(trouble->stepId, trouble->message, trouble->action);
  } else if (const auto* ended = std::get_if<StepEnded>(&event.body)) {
    Step& over = step(ended->stepId);
    over.status = ended->status;
    over.hasEnded = true;
    over.end = event.time;
    writeStep(over);
  } else if (const auto* runTrouble = std::get_if<RunTrouble>(&event.body)) {
    m_troubles.push_back(runTrouble->message);
  } else if (const auto* end = std::get_if<RunEnded>(&event.body)) {
    m_hasEnded = true;
    m_end = *end;
  }
}

std::string TextReporter::verdictOf(const Step& step) const {
  if (step.hasFailed) {
    return paint("FAILED ", red);
  }
  if (step.status == RunStatus::error) {
    return paint("ERROR  ", yellow);
  }
  if (!step.hasEnded || step.status == RunStatus::skip) {
    return paint("ABORTED", yellow);
  }
  return step.hasWarning ? paint("WARNING", yellow) : paint("PASSED ", green);
}

void TextReporter::writeStep(const Step& step) {
  fmt::print(m_out, "{}  {}: {} on {}", verdictOf(step), step.start.package, step.start.test,
             step.start.device);
  if (step.start.passes > 1 || step.passes > 1) {
    fmt::print(m_out, ", {} of {} passes", step.passes, step.start.passes);
  }
  if (step.hasEnded) {
    fmt::print(m_out, " ({:.1f} s)", secondsBetween(step.begin, step.end));
  }
  m_out << '\n';
  for (const std::string& line : step.lines) {
    fmt::print(m_out, "         {}\n", line);
  }
  m_out << std::flush;
}

void TextReporter::finish() {
  std::map<std::string, int> sums;
  for (const std::string& id : m_order) {
    const Step& counted = step(id);
    if (!counted.hasEnded) {
      writeStep(counted);
    }
    const char* name = "passed";
    if (counted.hasFailed) {
      name = "failed";
    } else if (counted.status == RunStatus::error) {
      name = "without a verdict";
    } else if (!counted.hasEnded || counted.status == RunStatus::skip) {
      name = "aborted";
    } else if (counted.hasWarning) {
      name = "with a warning";
    }
    ++sums[name];
  }
  for (const std::string& trouble : m_troubles) {
    fmt::print(m_out, "{}  {}\n", paint("ERROR  ", yellow), trouble);
  }
  std::string summary;
  for (const auto& [name, count] : sums) {
    summary += fmt::format("{}{} {}", summary.empty() ? "" : ", ", count, name);
  }
  fmt::print(m_out, "\n{} tests in {:.1f} s: {}\n", m_order.size(), secondsBetween(m_begin, m_last),
             summary.empty() ? "nothing ran" : summary);
  if (!m_hasEnded) {
    m_out << "The run was cut short.\n";
  }
  m_out << std::flush;
}

}  // namespace TarvexDiags::DiagCtl
