#include "diagctl/report/TextReporter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <utility>
#include <vector>

#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Columns.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kMargin = "         ";
constexpr const char* kInnerMargin = "           ";
constexpr int kWithInformation = 1;
constexpr int kWithLog = 2;
constexpr const char* kNewsMark = ". ";
constexpr const char* kLogMark = "| ";
constexpr std::size_t kNarrowest = 20;  ///< columns in which a text can be read
constexpr std::size_t kMostProblems = 200;
constexpr std::size_t kMostReasons = 50;

// As one line, or in several where it is wider; what needs no break stays as it is.
std::vector<std::string> fitted(const std::string& line, std::size_t width) {
  return width == 0 || columnsOf(line) <= width ? std::vector{line} : wrapped(line, width);
}

std::string clockText(std::chrono::system_clock::time_point time, const char* form) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  localtime_r(&seconds, &parts);
  char text[64] = {};
  std::strftime(text, sizeof text, form, &parts);
  return text;
}

}  // namespace

TextReporter::TextReporter(Printer& out, const ReportSettings& settings)
    : m_out(out), m_settings(settings), m_record(RunRecord::Ended::Dropped, settings.mostHeld) {}

void TextReporter::paint(Colour colour, const std::string& text) {
  if (m_settings.isColoured) {
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
  keepNews(event.body);
  if (const StepRecord* ended = m_record.handle(event)) {
    tellEnded(*ended);
  }
  if (const auto* message = std::get_if<RunMessage>(&event.body);
      message != nullptr && message->severity == Severity::Information) {
    m_out.print("{}\n\n", message->text);
    m_out.flush();
  }
  if (start != nullptr) {
    writeHead(*start, event.time);
  }
}

void TextReporter::writeHead(const RunStarted& start, std::chrono::system_clock::time_point time) {
  m_out.say("{} {} on {}\n", start.name, start.version, start.machineName);
  for (const std::string& platform : start.platforms) {
    m_out.print("  {}\n", platform);
  }
  std::vector<std::string> facts = {clockText(time, "%Y-%m-%d %H:%M:%S %z")};
  const auto add = [&](const char* key, const char* form) {
    if (const std::string value = parameterOf(start, key); !value.empty()) {
      facts.push_back(fmt::format(fmt::runtime(told(form)), value));
    }
  };
  add("user", marked("user {}"));
  add("profile", marked("profile {}"));
  add("mode", marked("mode {}"));
  m_out.print("  {}\n", fmt::format("{}", fmt::join(facts, ", ")));
  std::string packages;
  for (const SoftwareItem& item : start.software) {
    if (item.id != "controller") {
      packages += fmt::format("{}{} {}", packages.empty() ? "" : ", ", item.name, item.version);
    }
  }
  if (!packages.empty()) {
    m_out.say("  packages: {}\n", packages);
  }
  if (const std::string selection = parameterOf(start, "selection"); !selection.empty()) {
    m_out.say("  selection: {}\n", selection);
  }
  writePlan(start, time);
  m_out.write("\n");
  m_out.flush();
}

void TextReporter::writePlan(const RunStarted& start, std::chrono::system_clock::time_point time) {
  const std::string tests = parameterOf(start, "tests");
  if (tests.empty()) {
    return;
  }
  const long seconds = std::strtol(parameterOf(start, "estimatedSeconds").c_str(), nullptr, 10);
  const std::string count = testsText(std::strtoul(tests.c_str(), nullptr, 10));
  if (seconds <= 0 || seconds > std::chrono::seconds(std::chrono::years(1)).count()) {
    m_out.print("  {}\n", count);
    return;
  }
  m_out.say("  {}, about {}, ends at {}\n", count, durationText(static_cast<double>(seconds)),
            clockText(time + std::chrono::seconds(seconds), "%H:%M"));
}

// Information is told behind its step, for those who want it.
void TextReporter::keepNews(const RunEventBody& body) {
  if (m_settings.verbosity < kWithInformation) {
    return;
  }
  if (const auto* message = std::get_if<StepMessage>(&body)) {
    keepNews(*message);
  } else if (const auto* figure = std::get_if<StepMeasurement>(&body)) {
    addNews(figure->stepId, kNewsMark, tr("{}: {}", told(figure->name), describe(*figure)));
  }
}

void TextReporter::keepNews(const StepMessage& message) {
  if (message.severity == Severity::Information) {
    addNews(message.stepId, kNewsMark, message.text);
  } else if (message.severity == Severity::Debug && m_settings.verbosity >= kWithLog) {
    addNews(message.stepId, kLogMark, message.text);
  }
}

// A log may come from anywhere, so what it tells of no step is dropped.
void TextReporter::addNews(const std::string& stepId, const char* mark, const std::string& text) {
  if (m_record.find(stepId) == nullptr) {
    return;
  }
  News& news = m_news[stepId];
  const std::size_t taken =
      news.texts.add(mark + text, m_settings.mostHeld - std::min(m_settings.mostHeld, m_newsSize));
  news.size += taken;
  m_newsSize += taken;
}

void TextReporter::dropNews(const std::string& stepId) {
  if (const auto news = m_news.find(stepId); news != m_news.end()) {
    m_newsSize -= news->second.size;
    m_news.erase(news);
  }
}

void TextReporter::tellEnded(const StepRecord& step) {
  const StepRecord::Outcome outcome = step.outcome();
  if (outcome != StepRecord::Outcome::NotRun) {
    keepProblem(step);
    const bool isWell = outcome == StepRecord::Outcome::Passed || isSkipped(outcome);
    if (!m_settings.onlyProblems || !isWell) {
      writeStep(step);
    }
  }
  dropNews(step.start.stepId);
}

// For the end, where all of them stand together.
void TextReporter::keepProblem(const StepRecord& step) {
  const StepRecord::Outcome outcome = step.outcome();
  if (isSkipped(outcome)) {
    const std::string& reason = step.headline();
    if (m_reasons.contains(reason) || m_reasons.size() < kMostReasons) {
      ++m_reasons[reason];
    } else {
      ++m_furtherSkips;
    }
  } else if (isProblem(outcome) && m_problems.size() < kMostProblems) {
    m_problems.push_back({outcome, nameOf(step.start), step.headline(), step.headlineAction()});
  } else if (isProblem(outcome)) {
    ++m_furtherProblems;
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
  const StepRecord::Outcome outcome = step.outcome();
  writeVerdict(outcome);
  m_out.print("  {}", nameOf(step.start));
  if (step.start.passes > 1 || step.passes() > 1) {
    m_out.write(trn(", {1} of 1 pass", ", {1} of {0} passes", step.start.passes, step.passes()));
  }
  if (step.hasEnded() && !isSkipped(outcome)) {
    m_out.say("   {:.1f} s", step.seconds());
    writeFacts(step);
    if (!step.seed.empty() && outcome != StepRecord::Outcome::Passed) {
      m_out.say("   seed {}", step.seed);
    }
  }
  m_out.write("\n");
  writeFindings(step);
  writeNews(step.start.stepId);
  m_out.flush();
}

void TextReporter::writeNews(const std::string& stepId) {
  const auto news = m_news.find(stepId);
  if (news == m_news.end()) {
    return;
  }
  for (const std::string& text : news->second.texts) {
    writeIndented(kMargin, "", text);
  }
  if (news->second.texts.omitted() > 0) {
    writeIndented(kMargin, kNewsMark, moreOf(news->second.texts));
  }
}

void TextReporter::writeFacts(const StepRecord& step) {
  std::string facts = factsOf(step.figures);
  if (facts.empty()) {
    facts = step.news.substr(0, step.news.find('\n'));
  }
  if (!facts.empty() && step.outcome() != StepRecord::Outcome::Trouble) {
    m_out.print("   {}", facts);
  }
}

// Each finding with what to do about it; the same advice for several stands below the last of them.
void TextReporter::writeFindings(const StepRecord& step) {
  for (std::size_t place = 0; place < step.findings.size(); ++place) {
    writeIndented(kMargin, "", step.findings[place]);
    const auto advice = step.advice[place];
    const auto next = step.advice.begin() + static_cast<std::ptrdiff_t>(place) + 1;
    if (advice && std::find(next, step.advice.end(), advice) == step.advice.end()) {
      writeIndented(kMargin, "-> ", step.actions[*advice]);
    }
  }
  for (const BoundedTexts* texts : {&step.findings, &step.actions}) {
    if (texts->omitted() > 0) {
      writeIndented(kMargin, texts == &step.actions ? "-> " : "", moreOf(*texts));
    }
  }
}

void TextReporter::writeIndented(const std::string& margin, const std::string& mark,
                                 const std::string& text) {
  writeLines(margin + mark, margin, text);
}

// Texts may have several lines, each of which stands below the first.
void TextReporter::writeLines(const std::string& before, const std::string& margin,
                              const std::string& text) {
  const std::size_t used = std::max(before.size(), margin.size());
  const bool isBroken = m_settings.lineWidth >= used + kNarrowest;
  std::string begin = before;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    for (const std::string& part :
         fitted(toPrintable(line), isBroken ? m_settings.lineWidth - used : 0)) {
      m_out.write(begin + part + "\n");
      begin = margin;
    }
  }
}

void TextReporter::finish() {
  closeRun();
}

void TextReporter::writeTroubles() {
  for (const std::string& trouble : m_record.troubles()) {
    writeVerdict(StepRecord::Outcome::Trouble);
    writeLines("  ", kMargin, trouble);
  }
  if (m_record.troubles().omitted() > 0) {
    writeIndented(kMargin, "", moreOf(m_record.troubles()));
  }
}

// What scrolled by is told again, without what repeats.
void TextReporter::writeProblems() {
  if (m_record.begun() < 2 || (m_problems.empty() && m_reasons.empty())) {
    return;
  }
  m_out.say("\nTo look at:\n");
  for (const Problem& problem : m_problems) {
    m_out.write("  ");
    writeVerdict(problem.outcome);
    m_out.print("  {}\n", problem.name);
    writeIndented(kInnerMargin, "", problem.finding);
    if (!problem.action.empty()) {
      writeIndented(kInnerMargin, "-> ", problem.action);
    }
  }
  if (m_furtherProblems > 0) {
    m_out.say("  and {} more\n", m_furtherProblems);
  }
  for (const auto& [reason, count] : m_reasons) {
    m_out.write("  ");
    writeVerdict(StepRecord::Outcome::Skipped);
    m_out.print("  {}: {}\n", testsText(count), reason);
  }
  if (m_furtherSkips > 0) {
    m_out.write("  ");
    writeVerdict(StepRecord::Outcome::Skipped);
    m_out.say("  {} for other reasons\n", testsText(m_furtherSkips));
  }
}

void TextReporter::writeSums() {
  OutcomeSums sums = m_record.sums();
  if (const std::size_t notRun = sums[StepRecord::Outcome::NotRun]; notRun > 0) {
    writeVerdict(StepRecord::Outcome::NotRun);
    m_out.print("  {}\n",
                trn("1 test was not run: the run was ended before its turn.",
                    "{} tests were not run: the run was ended before their turn.", notRun));
  }
  writeProblems();
  const std::string summary = toText(m_record.sums());
  m_out.say("\n{} in {:.1f} s: {}\n", testsText(m_record.begun()), m_record.seconds(),
            summary.empty() ? tr("nothing ran") : summary);
  if (const std::string coverage = m_record.coverage().describe(); !coverage.empty()) {
    m_out.say("Covered: {}\n", coverage);
  }
  if (!m_record.hasEnded()) {
    m_out.say("The run was cut short.\n");
  }
  m_out.say("Verdict: {}\n", toText(verdictOf(m_record)));
}

void TextReporter::closeRun() {
  for (const StepRecord* step : m_record.steps()) {
    if (!step->hasEnded()) {
      keepProblem(*step);
      writeStep(*step);
    }
  }
  writeTroubles();
  writeSums();
  m_out.flush();
  m_record.clear();
  m_problems.clear();
  m_reasons.clear();
  m_news.clear();
  m_newsSize = 0;
  m_furtherProblems = 0;
  m_furtherSkips = 0;
}

}  // namespace TarvexDiags::FrontEnd
