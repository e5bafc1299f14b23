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

std::string articleOf(const Html::PageRun& run) {
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
  return out.written();
}

}  // namespace

HtmlReporter::HtmlReporter(Printer& out, std::size_t mostHeld)
    : m_out(out),
      m_mostHeld(mostHeld),
      m_record(RunRecord::Ended::Dropped, mostHeld / kSharesOfStory),
      m_story(mostHeld / kSharesOfStory) {}

void HtmlReporter::handle(const RunEvent& event) {
  if (std::holds_alternative<RunStarted>(event.body)) {
    closeRun();
  }
  m_hasRun = true;
  m_story.take(event);
  if (const StepRecord* ended = m_record.handle(event)) {
    m_story.takeEnded(*ended);
  }
}

void HtmlReporter::closeRun() {
  if (!std::exchange(m_hasRun, false)) {
    return;
  }
  for (const StepRecord* step : m_record.steps()) {
    if (!step->hasEnded()) {
      m_story.takeEnded(*step);
    }
  }
  if (m_written.size() == kMostRuns) {
    ++m_furtherRuns;
  } else {
    Written written{fmt::format("r{}", m_written.size() + 1), m_story.start().machineName,
                    m_story.begin(), verdictOf(m_record)};
    const std::string article = articleOf({m_story, m_record, written.verdict, written.id});
    if (m_spooled == 0 || m_spooled + article.size() <= kMostOfPages) {
      m_spooled += article.size();
      m_spool.out().write(article);
    } else {
      written.id.clear();
    }
    m_written.push_back(written);
  }
  m_record.clear();
  m_story = RunStory(m_mostHeld / kSharesOfStory);
}

std::string HtmlReporter::head() const {
  if (m_written.size() == 1 && !m_written.front().machine.empty()) {
    return Html::shown(tr("Diagnosis of {}", m_written.front().machine));
  }
  return m_written.size() == 1 ? tr("Diagnosis")
                               : tr("Diagnosis: {} runs", m_written.size() + m_furtherRuns);
}

void HtmlReporter::writeList(Printer& out) const {
  Svg::Markup list;
  list.leaf("h1", head());
  if (m_written.empty()) {
    Html::writeParagraph(list, "told", tr("Nothing ran."));
  }
  if (m_written.size() > 1) {
    Html::Table table(list, tr("The runs, in the order of the log"),
                      {tr("Verdict"), tr("Machine"), tr("Begun")});
    for (const Written& run : m_written) {
      const Html::Look look = Html::lookOf(run.verdict);
      table.beginRow();
      table.beginCell();
      list.open("span", {{"class", look.ofClass}});
      Html::writeSymbol(list, look.symbol);
      list.text(toText(run.verdict));
      list.close();
      table.endCell();
      table.cell(run.machine);
      table.beginCell();
      if (run.id.empty()) {
        list.text(toTimestamp(run.begin));
      } else {
        list.leaf("a", {{"href", "#" + run.id}}, toTimestamp(run.begin));
      }
      table.endCell();
      table.endRow();
    }
  }
  if (m_furtherRuns > 0) {
    Html::writeParagraph(list, "told", tr("and {} more runs, which the log has", m_furtherRuns));
  }
  out.write(list.written());
}

void HtmlReporter::finish() {
  closeRun();
  const Html::PageFrame frame = Html::frameOf(head());
  m_out.write(frame.before);
  writeList(m_out);
  m_spool.writeTo(m_out);
  m_out.write(frame.behind);
  m_out.flush();
}

}  // namespace TarvexDiags::FrontEnd
