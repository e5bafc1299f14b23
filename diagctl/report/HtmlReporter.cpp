#include "diagctl/report/HtmlReporter.h"

#include <fmt/format.h>

#include <utility>
#include <variant>

#include "diagctl/report/HtmlSections.h"
#include "diagctl/report/HtmlWords.h"
#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

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
  out.leaf("p", {{"class", "quiet"}},
           Html::shown(tr("{}, {}", run.story.start().machineName, timeText(run.story.begin()))));
  Html::writeVerdict(out, run);
  writeContents(out, run.id, sections.written());
  out.append(sections);
  out.close();
  return out;
}

}  // namespace

HtmlReporter::HtmlReporter(Printer& out, const RunConditions& conditions, std::size_t mostHeld,
                           const ReportFolder* folder)
    : m_out(out),
      m_mostHeld(mostHeld),
      m_record(RunRecord::Ended::Dropped, mostHeld / kSharesOfStory),
      m_story(mostHeld / kSharesOfStory),
      m_fleet(conditions),
      m_pages(folder) {}

void HtmlReporter::handle(const RunEvent& event) {
  const OfAnyCharacters page;
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
  Html::RunOfMany run;
  run.id = m_pages.nextId();
  run.begin = m_story.begin();
  run.verdict = verdictOf(m_record);
  run.sums = m_record.sums();
  const Svg::Markup article = articleOf({m_story, m_record, run.verdict, run.id});
  m_pages.add(std::move(run), m_fleet.lastMachine(), article.written());
  m_record.clear();
  m_story = RunStory(m_mostHeld / kSharesOfStory);
}

void HtmlReporter::finish() {
  const OfAnyCharacters page;
  closeRun();
  m_pages.write(m_out, m_fleet);
}

}  // namespace TarvexDiags::FrontEnd
