#include "diagctl/report/HtmlReporter.h"

#include <fmt/format.h>

#include <utility>
#include <variant>

#include "diagctl/report/HtmlPage.h"
#include "diagctl/report/HtmlSections.h"
#include "diagctl/report/HtmlWords.h"
#include "diagctl/report/JsonlReporter.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kMostOfPages = 16UL << 20U;  ///< of all runs together, in bytes
constexpr std::size_t kMostRuns = 10'000;
// Of what is held, the record has one part, the page that is made of it another.
constexpr std::size_t kSharesOfStory = 2;

struct Entry {
  const char* id;
  const char* title;
};

// Where a reader may jump to; those of sections that are there.
constexpr Entry kEntries[] = {{"-todo", marked("What to do")},
                              {"-machine", marked("The machine")},
                              {"-coverage", marked("What was covered")},
                              {"-tests", marked("Devices and tests")},
                              {"-timeline", marked("What ran when")},
                              {"-sensors", marked("Temperatures, frequencies, fans, power")},
                              {"-figures", marked("Figures of siblings")},
                              {"-messages", marked("Messages")},
                              {"-again", marked("To run it again")}};

void writeContents(Svg::Markup& out, const std::string& id, const std::string& sections) {
  out.open("nav", {{"aria-label", tr("Sections of run {}", id.substr(1))}});
  out.open("ul");
  for (const Entry& entry : kEntries) {
    const std::string of = id + entry.id;
    if (sections.find(fmt::format("id=\"{}\"", of)) != std::string::npos) {
      out.open("li");
      out.leaf("a", {{"href", "#" + of}}, told(entry.title));
      out.close();
    }
  }
  out.close();
  out.close();
}

Svg::Markup articleOf(const Html::PageRun& run) {
  Svg::Markup sections;
  for (const auto write : {Html::writeWhatToDo, Html::writeMachine, Html::writeCoverage,
                           Html::writeTests, Html::writeTimeline, Html::writeSensors,
                           Html::writeFigures, Html::writeMessages, Html::writeAgain}) {
    write(sections, run);
  }
  Svg::Markup out;
  out.open("article", {{"id", run.id}, {"aria-labelledby", run.id + "-verdict"}});
  out.leaf(
      "p", {{"class", "quiet"}},
      Html::shown(tr("{}, {}", run.story.start().machineName, toTimestamp(run.story.begin()))));
  Html::writeVerdict(out, run);
  writeContents(out, run.id, sections.written());
  out.append(sections);
  out.close();
  return out;
}

std::string foldedPartOf(const Html::RunOfMany& run, const Svg::Markup& article) {
  Svg::Markup out;
  {
    const Html::Folded folded(
        out, Html::shown(tr("{} {}: {}, {}", Html::lookOf(run.verdict).symbol, toText(run.verdict),
                            run.machine, toTimestamp(run.begin))));
    out.append(article);
  }
  return out.written();
}

}  // namespace

HtmlReporter::HtmlReporter(Printer& out, const RunConditions& conditions, std::size_t mostHeld)
    : m_out(out),
      m_mostHeld(mostHeld),
      m_record(RunRecord::Ended::Dropped, mostHeld / kSharesOfStory),
      m_story(mostHeld / kSharesOfStory),
      m_fleet(conditions) {}

void HtmlReporter::handle(const RunEvent& event) {
  if (std::holds_alternative<RunStarted>(event.body)) {
    closeRun();
  }
  if (!std::exchange(m_hasRun, true)) {
    m_fleet.beginRun({});
  }
  if (const auto* start = std::get_if<RunStarted>(&event.body)) {
    m_fleet.take(*start);
  }
  m_story.take(event);
  if (const StepRecord* ended = m_record.handle(event)) {
    m_story.takeEnded(*ended);
    m_fleet.take(*ended);
  }
}

void HtmlReporter::closeRun() {
  if (!std::exchange(m_hasRun, false)) {
    return;
  }
  for (const StepRecord* step : m_record.steps()) {
    if (!step->hasEnded()) {
      m_story.takeEnded(*step);
      m_fleet.take(*step);
    }
  }
  m_fleet.endRun(m_record);
  if (m_written.size() == kMostRuns) {
    ++m_furtherRuns;
  } else {
    m_written.push_back({fmt::format("r{}", m_written.size() + 1), m_story.start().machineName,
                         m_story.begin(), verdictOf(m_record), m_record.sums()});
    keepPart(m_written.back());
  }
  m_record.clear();
  m_story = RunStory(m_mostHeld / kSharesOfStory);
}

// The first run stands open, unless another one follows.
void HtmlReporter::keepPart(Html::RunOfMany& run) {
  if (m_spooled >= kMostOfPages) {
    run.id.clear();
    return;
  }
  Svg::Markup article = articleOf({m_story, m_record, run.verdict, run.id});
  if (m_written.size() == 1) {
    m_only = std::move(article);
    return;
  }
  if (m_written.size() == 2) {
    spool(foldedPartOf(m_written.front(), std::exchange(m_only, {})));
  }
  spool(foldedPartOf(run, article));
}

void HtmlReporter::spool(const std::string& part) {
  m_spooled += part.size();
  m_spool.out().write(part);
}

std::string HtmlReporter::head() const {
  if (m_written.size() == 1 && !m_written.front().machine.empty()) {
    return Html::shown(tr("Diagnosis of {}", m_written.front().machine));
  }
  return m_written.size() == 1 ? tr("Diagnosis")
                               : tr("Diagnosis: {} runs", m_written.size() + m_furtherRuns);
}

std::string HtmlReporter::overview() const {
  Svg::Markup out;
  out.leaf("h1", head());
  if (m_written.empty()) {
    Html::writeParagraph(out, "told", tr("Nothing ran."));
  }
  if (m_written.size() > 1) {
    out.leaf("h2", tr("All runs"));
    Html::writeRuns(out, m_written, m_furtherRuns);
    Html::writeTestsOfMany(out, m_fleet);
    out.leaf("h2", tr("Each run"));
  }
  return out.written();
}

void HtmlReporter::finish() {
  closeRun();
  const Html::PageFrame frame = Html::frameOf(head());
  m_out.write(frame.before);
  m_out.write(overview());
  m_out.write(m_only.written());
  m_spool.writeTo(m_out);
  m_out.write(frame.behind);
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
