#include "diagctl/report/TextReporter.h"

#include <fmt/format.h>

#include <utility>

#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kIndentedBreak = "\n         ";

// Findings may have several lines, each of which stands below the verdict.
void writeIndented(Printer& out, const char* indent, const std::string& text) {
  out.write(indent);
  out.write(toPrintable(text, kIndentedBreak));
  out.write("\n");
}

}  // namespace

TextReporter::TextReporter(Printer& out, bool colour, std::size_t mostHeld)
    : m_out(out), m_colour(colour), m_record(RunRecord::Ended::Dropped, mostHeld) {}

void TextReporter::paint(Colour colour, const std::string& text) {
  if (m_colour) {
    m_out.paint(colour, text);
  } else {
    m_out.write(text);
  }
}

void TextReporter::handle(const RunEvent& event) {
  const auto* start = std::get_if<RunStarted>(&event.body);
  if (start != nullptr && std::exchange(m_hasBegun, true)) {
    closeRun();
    m_out.write("\n");
  }
  if (const StepRecord* ended = m_record.handle(event);
      ended != nullptr && ended->outcome() != StepRecord::Outcome::NotRun) {
    writeStep(*ended);
  }
  if (const auto* message = std::get_if<RunMessage>(&event.body);
      message != nullptr && message->severity == Severity::Information) {
    m_out.print("{}\n\n", message->text);
    m_out.flush();
  }
  if (start != nullptr) {
    m_out.say("{} {} on {}\n", start->name, start->version, start->machineName);
    for (const std::string& platform : start->platforms) {
      m_out.print("  {}\n", platform);
    }
    m_out.write("\n");
    m_out.flush();
  }
}

void TextReporter::writeVerdict(StepRecord::Outcome outcome) {
  const std::string word = fmt::format("{:<7}", told(wordOf(outcome)));
  switch (outcome) {
    case StepRecord::Outcome::Passed:
      return paint(Colour::Green, word);
    case StepRecord::Outcome::Failed:
      return paint(Colour::Red, word);
    default:
      return paint(Colour::Yellow, word);
  }
}

void TextReporter::writeStep(const StepRecord& step) {
  writeVerdict(step.outcome());
  m_out.say("  {}: {} on {}", step.start.package, step.start.test, step.start.device);
  if (step.start.passes > 1 || step.passes() > 1) {
    m_out.say(", {} of {} passes", step.passes(), step.start.passes);
  }
  if (step.hasEnded()) {
    m_out.say(" ({:.1f} s)", step.seconds());
  }
  m_out.write("\n");
  writeTexts("         ", step.findings);
  writeTexts("         -> ", step.actions);
  m_out.flush();
}

void TextReporter::writeTexts(const char* indent, const BoundedTexts& texts) {
  for (const std::string& text : texts) {
    writeIndented(m_out, indent, text);
  }
  if (texts.omitted() > 0) {
    writeIndented(m_out, indent, moreOf(texts));
  }
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
    writeVerdict(StepRecord::Outcome::Trouble);
    writeIndented(m_out, "  ", trouble);
  }
  if (m_record.troubles().omitted() > 0) {
    writeIndented(m_out, "         ", moreOf(m_record.troubles()));
  }
  OutcomeSums sums = m_record.sums();
  if (const std::size_t notRun = sums[StepRecord::Outcome::NotRun]; notRun > 0) {
    writeVerdict(StepRecord::Outcome::NotRun);
    m_out.print("  {}\n",
                notRun == 1
                    ? tr("1 test was not run: the run was ended before its turn.")
                    : tr("{} tests were not run: the run was ended before their turn.", notRun));
  }
  const std::string summary = toText(m_record.sums());
  m_out.say("\n{} tests in {:.1f} s: {}\n", m_record.begun(), m_record.seconds(),
            summary.empty() ? tr("nothing ran") : summary);
  if (!m_record.hasEnded()) {
    m_out.say("The run was cut short.\n");
  }
  m_out.flush();
  m_record.clear();
}

}  // namespace TarvexDiags::FrontEnd
