#include "diagctl/report/TextReporter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <numeric>
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

constexpr int kWithInformation = 1;
constexpr int kWithLog = 2;
constexpr const char* kNewsMark = ". ";
constexpr const char* kLogMark = "| ";  // as long
constexpr const char* kAdviceMark = "-> ";
constexpr std::size_t kNarrowest = 20;  ///< columns in which a text can be read
constexpr std::size_t kMostProblems = 200;
constexpr std::size_t kMostReasons = 50;
constexpr std::size_t kMostAtTheEnd = 10;  ///< findings of a step
constexpr const char* kGap = "   ";        ///< between what a result line tells

// What stands below a verdict begins where the text beside it does.
std::string marginOfText() {
  return std::string(widthOfHeads() + 2, ' ');
}

// The same at the end, where verdicts are indented.
std::string innerMargin() {
  return "  " + marginOfText();
}

// As one line, or in several where it is wider; what needs no break stays as it is.
std::vector<std::string> fitted(const std::string& line, std::size_t width) {
  return width == 0 || columnsOf(line) <= width ? std::vector{line} : wrapped(line, width);
}

// Parts that belong together stay on one line as long as they fit.
std::vector<std::string> joinedParts(const std::vector<std::string>& parts, std::size_t width) {
  std::vector<std::string> lines;
  for (const std::string& part : parts) {
    if (!lines.empty() &&
        (width == 0 || columnsOf(lines.back()) + columnsOf(kGap) + columnsOf(part) <= width)) {
      lines.back() += kGap + part;
      continue;
    }
    for (std::string& line : fitted(part, width)) {
      lines.push_back(std::move(line));
    }
  }
  return lines;
}

std::string factsOfStep(const StepRecord& step) {
  if (step.outcome() == StepRecord::Outcome::Trouble) {
    return "";
  }
  const std::string facts = factsOf(step.figures);
  return facts.empty() ? step.news.substr(0, step.news.find('\n')) : facts;
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
  const std::size_t troubles = m_record.troubles().size();
  if (const StepRecord* ended = m_record.handle(event)) {
    tellEnded(*ended);
  }
  if (m_record.troubles().size() > troubles) {
    writeTrouble(m_record.troubles()[troubles]);
    m_out.flush();
  }
  if (const auto* message = std::get_if<RunMessage>(&event.body);
      message != nullptr && message->severity == Severity::Information) {
    writeLines("", "", message->text);
    m_out.write("\n");
    m_out.flush();
  }
  if (start != nullptr) {
    writeHead(*start, event.time);
  }
}

void TextReporter::writeHead(const RunStarted& start, std::chrono::system_clock::time_point time) {
  constexpr const char* indent = "  ";
  constexpr const char* below = "    ";
  writeLines("", below, tr("{} {} on {}", start.name, start.version, start.machineName));
  for (const std::string& platform : start.platforms) {
    writeLines(indent, below, platform);
  }
  std::vector<std::string> facts = {timeText(time)};
  const auto add = [&](const char* key, const char* form) {
    if (const std::string value = parameterOf(start, key); !value.empty()) {
      facts.push_back(fmt::format(fmt::runtime(told(form)), value));
    }
  };
  add("user", marked("user {}"));
  add("profile", marked("profile {}"));
  add("mode", marked("mode {}"));
  writeLines(indent, below, fmt::format("{}", fmt::join(facts, ", ")));
  std::string packages;
  for (const SoftwareItem& item : start.software) {
    if (item.id != "controller") {
      const std::string name = localNameOf(start, item.name);
      packages += fmt::format("{}{} {}", packages.empty() ? "" : ", ",
                              name.empty() ? item.name : name, item.version);
    }
  }
  if (!packages.empty()) {
    writeLines(indent, below, tr("packages: {}", packages));
  }
  if (const std::string selection = parameterOf(start, "selection"); !selection.empty()) {
    writeLines(indent, below, tr("selection: {}", selection));
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
  writeLines("  ", "    ",
             tr("{}, about {}, ends at {}", count, durationText(static_cast<double>(seconds)),
                clockText(time + std::chrono::seconds(seconds))));
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
  const std::size_t taken = news.texts.addAgain(
      mark + text, m_settings.mostHeld - std::min(m_settings.mostHeld, m_newsSize));
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
  } else if (isProblem(outcome)) {
    keepFindings(step);
  }
}

void TextReporter::keepFindings(const StepRecord& step) {
  Problem problem{step.outcome(), nameOf(step.start), findingsOf(step, kMostAtTheEnd)};
  problem.further = step.findings.size() + step.findings.omitted() - problem.findings.size();
  std::size_t size = sizeof problem + problem.name.size();
  for (const auto& [text, action] : problem.findings) {
    size += sizeof(Finding) + text.size() + action.size();
  }
  if (m_problems.size() == kMostProblems || m_problemsSize + size > m_settings.mostHeld) {
    ++m_furtherProblems;
    return;
  }
  m_problemsSize += size;
  m_problems.push_back(std::move(problem));
}

// Each finding with what to do about it; the same advice for several stands below the last of them.
// The one behind the verdict is always among them.
std::vector<TextReporter::Finding> TextReporter::findingsOf(const StepRecord& step,
                                                            std::size_t most) {
  std::vector<std::size_t> places(std::min(step.findings.size(), most));
  std::iota(places.begin(), places.end(), std::size_t{0});
  const auto headline = step.findings.placeOf(step.headline());
  if (headline && *headline >= places.size()) {
    places.back() = *headline;
  }
  std::vector<Finding> findings;
  for (auto place = places.begin(); place != places.end(); ++place) {
    const auto advice = step.advice[*place];
    const bool isToldBelow = std::any_of(std::next(place), places.end(), [&](std::size_t below) {
      return step.advice[below] == advice;
    });
    findings.push_back({withoutDevice(step.findings[*place], step.start),
                        advice && !isToldBelow ? step.actions[*advice] : ""});
  }
  return findings;
}

void TextReporter::writeVerdict(StepRecord::Outcome outcome) {
  const std::string word = headOf(outcome);
  switch (outcome) {
    case StepRecord::Outcome::Passed:
      return paint(Colour::Green, word);
    case StepRecord::Outcome::Failed:
      return paint(Colour::Red, word);
    default:
      return paint(Colour::Yellow, word);
  }
}

// A word and what stands behind it, wrapped below one another.
void TextReporter::writeResult(StepRecord::Outcome outcome, const std::vector<std::string>& parts) {
  const std::string margin = marginOfText();
  const bool isBroken = m_settings.lineWidth >= margin.size() + kNarrowest;
  writeVerdict(outcome);
  std::string begin = "  ";
  for (const std::string& line :
       joinedParts(parts, isBroken ? m_settings.lineWidth - margin.size() : 0)) {
    m_out.write(begin + line + "\n");
    begin = margin;
  }
}

void TextReporter::writeStep(const StepRecord& step) {
  const StepRecord::Outcome outcome = step.outcome();
  std::vector<std::string> parts = {nameOf(step.start)};
  if (step.start.passes > 1 || step.passes() > 1) {
    parts.back() += trn(", {1} of 1 pass", ", {1} of {0} passes",
                        static_cast<std::size_t>(step.start.passes), step.passes());
  }
  if (step.hasEnded() && !isSkipped(outcome)) {
    parts.push_back(tr("{:.1f} s", step.seconds()));
    if (const std::string facts = factsOfStep(step); !facts.empty()) {
      parts.push_back(facts);
    }
    if (!step.seed.empty() && outcome != StepRecord::Outcome::Passed) {
      parts.push_back(tr("seed {}", step.seed));
    }
  }
  for (std::string& part : parts) {
    part = toPrintable(part, " ");
  }
  writeResult(outcome, parts);
  writeFindings(marginOfText(), findingsOf(step, step.findings.size()), step.findings.omitted());
  if (step.actions.omitted() > 0) {
    writeIndented(marginOfText(), kAdviceMark, moreOf(step.actions));
  }
  writeNews(step);
  m_out.flush();
}

void TextReporter::writeNews(const StepRecord& step) {
  const auto news = m_news.find(step.start.stepId);
  if (news == m_news.end()) {
    return;
  }
  const std::size_t mark = std::strlen(kNewsMark);
  for (const std::string& text : news->second.texts) {
    const std::string told = text.substr(mark);
    const bool isReason = isSkipped(step.outcome()) && step.findings.placeOf(told);
    if (!isReason) {
      writeIndented(marginOfText(), "", text.substr(0, mark) + withoutDevice(told, step.start));
    }
  }
  if (news->second.texts.omitted() > 0) {
    writeIndented(marginOfText(), kNewsMark, moreOf(news->second.texts));
  }
}

void TextReporter::writeFindings(const std::string& margin, const std::vector<Finding>& findings,
                                 std::size_t further) {
  for (const auto& [text, action] : findings) {
    writeIndented(margin, "", text);
    if (!action.empty()) {
      writeIndented(margin, kAdviceMark, action);
    }
  }
  if (further > 0) {
    writeIndented(margin, "", tr("and {} more", further));
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

void TextReporter::writeTrouble(const std::string& trouble) {
  writeVerdict(StepRecord::Outcome::Trouble);
  writeLines("  ", marginOfText(), trouble);
}

// What scrolled by is told again, without what repeats.
void TextReporter::writeProblems() {
  if (m_problems.empty() && m_reasons.empty() && m_record.troubles().empty()) {
    return;
  }
  m_out.say("\nTo look at:\n");
  for (const Problem& problem : m_problems) {
    m_out.write("  ");
    writeVerdict(problem.outcome);
    writeLines("  ", innerMargin(), problem.name);
    writeFindings(innerMargin(), problem.findings, problem.further);
  }
  if (m_furtherProblems > 0) {
    m_out.say("  and {} more\n", m_furtherProblems);
  }
  writeTroubles();
  writeReasons();
}

void TextReporter::writeTroubles() {
  for (const std::string& trouble : m_record.troubles()) {
    m_out.write("  ");
    writeVerdict(StepRecord::Outcome::Trouble);
    writeLines("  ", innerMargin(), trouble);
  }
  if (m_record.troubles().omitted() > 0) {
    writeIndented(innerMargin(), "", moreOf(m_record.troubles()));
  }
}

void TextReporter::writeReasons() {
  for (const auto& [reason, count] : m_reasons) {
    m_out.write("  ");
    writeVerdict(StepRecord::Outcome::Skipped);
    writeLines("  ", innerMargin(), testsText(count) + ": " + reason);
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
  constexpr const char* below = "  ";
  m_out.write("\n");
  writeLines("", below,
             tr("{} in {:.1f} s: {}", testsText(m_record.begun()), m_record.seconds(),
                summary.empty() ? tr("nothing ran") : summary));
  if (const std::string coverage = m_record.coverage().describe(); !coverage.empty()) {
    writeLines("", below, tr("Covered: {}", coverage));
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
  writeSums();
  m_out.flush();
  m_record.clear();
  m_problems.clear();
  m_problemsSize = 0;
  m_reasons.clear();
  m_news.clear();
  m_newsSize = 0;
  m_furtherProblems = 0;
  m_furtherSkips = 0;
}

}  // namespace TarvexDiags::FrontEnd
