#include "diagctl/report/RunStory.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <variant>

#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kMostLanes = 2'000;
constexpr std::size_t kMostSensors = 256;
constexpr std::size_t kMostNames = 200;      ///< of devices in a row
constexpr std::size_t kMostFindings = 10;    ///< of a test, beside the first
constexpr std::size_t kMostMarks = 200;      ///< of a lane
constexpr std::size_t kMostSeeds = 100;      ///< of tests that passed
constexpr std::size_t kLongestTold = 2'000;  ///< bytes of a text
constexpr std::size_t kNode = 64;            ///< about what a container adds to an entry
// Fine figures and long messages must not push out what is more important.
constexpr std::size_t kShareOfMessages = 4;

// Not within a character.
std::string keptTo(const std::string& text, std::size_t most) {
  if (text.size() <= most) {
    return text;
  }
  return std::string(wholeCharacters(text, most)) + "\u2026";
}

std::string kept(const std::string& text) {
  return keptTo(text, kLongestTold);
}

std::string nameOfStep(const StepStarted& start) {
  return kept(tr("{} on {}", start.test, start.device));
}

// Names of a log may be of any length; what has a name in the reader's language is told by that.
StepStarted named(StepStarted start) {
  const std::string device = deviceOf(start);
  start.test = kept(testOf(start));
  start.device = kept(device);
  start.package = kept(packageOf(start));
  start.localPackage.clear();
  start.localTest.clear();
  return start;
}

std::size_t bytesOfStart(const StepStarted& start) {
  return sizeof(StepStarted) + kNode + start.stepId.size() + start.package.size() +
         start.device.size() + start.test.size();
}

std::vector<std::string> furtherOf(const BoundedTexts& texts, const std::string& told) {
  std::vector<std::string> further;
  for (const std::string& text : texts) {
    if (text != told && further.size() < kMostFindings) {
      further.push_back(kept(text));
    }
  }
  return further;
}

std::size_t sizeOfTexts(const std::vector<std::string>& texts) {
  std::size_t size = 0;
  for (const std::string& text : texts) {
    size += kNode + text.size();
  }
  return size;
}

}  // namespace

/// Writes one event into the story.
struct RunStory::Into {
  RunStory& story;
  double at;

  void operator()(const RunStarted& start) const { story.m_start = start; }
  void operator()(const StepStarted& started) const {
    StepStarted open = named(started);
    if (!story.m_open.contains(open.stepId) && story.makeRoom(bytesOfStart(open))) {
      story.m_open[open.stepId] = std::move(open);
    }
  }
  void operator()(const StepMessage& message) const {
    story.tell(at, message.severity, message.stepId, message.text, message.action);
  }
  void operator()(const StepTrouble& trouble) const {
    story.tell(at, Severity::Error, trouble.stepId, trouble.message, trouble.action);
    if (trouble.stepId == kMachineStep) {
      story.mark(at, trouble.stepId, Verdict::Unknown, trouble.message);
    }
  }
  void operator()(const StepDiagnosis& diagnosis) const {
    if (diagnosis.verdict != Verdict::Pass) {
      story.tell(at, diagnosis.verdict == Verdict::Fail ? Severity::Error : Severity::Warning,
                 diagnosis.stepId, diagnosis.message, diagnosis.action);
    }
    if (diagnosis.pass == 0 || diagnosis.stepId == kMachineStep) {
      story.mark(at, diagnosis.stepId, diagnosis.verdict, diagnosis.message);
    }
  }
  void operator()(const SeriesStarted& series) const {
    if (story.m_sensors.size() >= kMostSensors ||
        !story.makeRoom(sizeof(Sensor) + kMostBuckets * sizeof(Svg::ThinnedSeries::Bucket))) {
      ++story.m_omitted.sensors;
      return;
    }
    story.m_sensorById[series.seriesId] = story.m_sensors.size();
    story.m_sensors.push_back({kept(series.name), kept(series.unit), series.most});
  }
  void operator()(const SeriesElement& element) const {
    if (const auto sensor = story.m_sensorById.find(element.seriesId);
        sensor != story.m_sensorById.end()) {
      story.m_sensors[sensor->second].values.add({story.secondsAt(element.time), element.value});
    }
  }
  void operator()(const RunMessage& message) const {
    story.tell(at, message.severity, "", message.text, "");
  }
  void operator()(const RunTrouble& trouble) const {
    story.tell(at, Severity::Error, "", trouble.message, "");
  }
  template <class Other>
  void operator()(const Other& /*other*/) const {}
};

void RunStory::take(const RunEvent& event) {
  if (!m_hasBegun) {
    m_hasBegun = true;
    m_begin = event.time;
  }
  std::visit(Into{*this, secondsAt(event.time)}, event.body);
}

bool RunStory::makeRoom(std::size_t bytes) {
  if (m_size + bytes > m_most) {
    return false;
  }
  m_size += bytes;
  return true;
}

std::optional<std::uint32_t> RunStory::laneOf(const std::string& device) {
  if (const auto lane = m_laneByDevice.find(device); lane != m_laneByDevice.end()) {
    return lane->second;
  }
  if (m_lanes.size() >= kMostLanes || !makeRoom(sizeof(Lane) + 2 * (kNode + device.size()))) {
    return std::nullopt;
  }
  const auto place = static_cast<std::uint32_t>(m_lanes.size());
  m_laneByDevice[device] = place;
  m_lanes.push_back({.device = device, .spans = {}, .marks = {}, .sums = {}});
  return place;
}

void RunStory::tell(double at, Severity severity, const std::string& stepId,
                    const std::string& text, const std::string& action) {
  if (text.empty()) {
    return;
  }
  const auto step = m_open.find(stepId);
  Message message{at, severity, step != m_open.end() ? nameOfStep(step->second) : std::string(),
                  kept(action.empty() ? text : text + "\n\u2192 " + action)};
  const std::size_t size = sizeof(Message) + message.about.size() + message.text.size();
  const bool isNews = severity == Severity::Information || severity == Severity::Debug;
  if ((isNews && m_size + size > m_most / kShareOfMessages) || !makeRoom(size)) {
    ++m_omitted.messages;
    return;
  }
  m_messages.push_back(std::move(message));
}

void RunStory::mark(double at, const std::string& stepId, Verdict verdict,
                    const std::string& text) {
  const auto step = m_open.find(stepId);
  const auto lane = step != m_open.end() ? laneOf(step->second.device) : std::nullopt;
  if (lane && m_lanes[*lane].marks.size() < kMostMarks && makeRoom(sizeof(Mark) + text.size())) {
    m_lanes[*lane].marks.push_back({at, verdict, kept(text)});
  }
}

void RunStory::takeEnded(const StepRecord& step) {
  if (const auto open = m_open.find(step.start.stepId); open != m_open.end()) {
    m_size -= bytesOfStart(open->second);
    m_open.erase(open);
  }
  const StepRecord::Outcome outcome = step.outcome();
  const bool isFolded = !isProblem(outcome) || !addProblem(step);
  if (isFolded) {
    fold(step);
    keepSeed(step);
  }
  const bool hasRun = !isSkipped(outcome) && outcome != StepRecord::Outcome::NotRun;
  const auto lane = hasRun ? laneOf(named(step.start).device) : std::nullopt;
  if (!lane || !makeRoom(sizeof(Span))) {
    m_omitted.lanes += hasRun ? 1 : 0;
    return;
  }
  Lane& of = m_lanes[*lane];
  ++of.sums[outcome];
  if (step.start.stepId == kMachineStep) {
    return;  // it lasts as long as the run, and its findings are marks
  }
  of.seconds += step.seconds();
  of.coveredBytes = std::max(of.coveredBytes, step.figures.number(FigureName::kCoveredBytes));
  of.totalBytes = std::max(of.totalBytes, step.figures.number(FigureName::kTotalBytes));
  of.coveredCores = std::max(of.coveredCores, step.figures.number(FigureName::kCoveredCores));
  const auto end = step.hasEnded() ? step.end : step.begin;
  of.spans.push_back({static_cast<float>(secondsAt(step.begin)), static_cast<float>(secondsAt(end)),
                      outcome, isFolded ? 0 : static_cast<std::uint32_t>(m_problems.size())});
  takeFigures(step, *lane);
}

bool RunStory::addProblem(const StepRecord& step) {
  Problem problem;
  problem.start = named(step.start);
  problem.outcome = step.outcome();
  problem.finding = kept(step.headline());
  problem.action = kept(step.headlineAction());
  problem.further = furtherOf(step.findings, step.headline());
  problem.furtherActions = furtherOf(step.actions, step.headlineAction());
  problem.symptom = kept(step.symptom);
  problem.seed = kept(step.seed);
  problem.facts = kept(factsOf(step.figures));
  problem.begin = secondsAt(step.begin);
  problem.seconds = step.seconds();
  problem.passes = step.passes();
  if (!makeRoom(sizeof(Problem) + bytesOfStart(problem.start) + problem.finding.size() +
                problem.action.size() + sizeOfTexts(problem.further) +
                sizeOfTexts(problem.furtherActions))) {
    ++m_omitted.problems;
    return false;
  }
  m_problems.push_back(std::move(problem));
  return true;
}

void RunStory::fold(const StepRecord& step) {
  const StepRecord::Outcome outcome = step.outcome();
  const bool hasPassed = outcome == StepRecord::Outcome::Passed;
  const StepStarted start = named(step.start);
  const FoldKey key{start.package, start.test, outcome,
                    hasPassed ? std::string() : kept(step.headline())};
  const std::size_t size = sizeof(FoldKey) + sizeof(Fold) + bytesOfStart(start) + key.reason.size();
  if (!m_folds.contains(key) && !makeRoom(size)) {
    ++m_omitted.folded;
    return;
  }
  Fold& fold = m_folds[key];
  if (fold.count++ == 0 && hasPassed) {
    const std::string facts = factsOf(step.figures);
    fold.facts = kept(facts.empty() ? step.news : facts);
  }
  fold.seconds += step.seconds();
  if (fold.devices.size() < kMostNames && makeRoom(kNode + start.device.size())) {
    fold.devices.push_back(start.device);
  }
}

void RunStory::keepSeed(const StepRecord& step) {
  if (step.seed.empty()) {
    return;
  }
  const StepStarted start = named(step.start);
  Seed seed{tr("{}: {}", start.package, start.test), start.device, kept(step.seed)};
  if (m_seeds.size() == kMostSeeds ||
      !makeRoom(sizeof(Seed) + seed.test.size() + seed.device.size() + seed.seed.size())) {
    ++m_omitted.seeds;
    return;
  }
  m_seeds.push_back(std::move(seed));
}

void RunStory::takeFigures(const StepRecord& step, std::uint32_t lane) {
  const StepStarted start = named(step.start);
  for (const StepMeasurement& figure : step.figures) {
    const auto* const value = std::get_if<double>(&figure.value);
    if (value == nullptr || !std::isfinite(*value) || hasMeaning(figure)) {
      continue;
    }
    const FigureKey key{start.package, kept(figure.name), kept(figure.unit)};
    const bool isNew = !m_figures.contains(key) || !m_figures[key].contains(start.test);
    if (!makeRoom(sizeof(Value) + (isNew ? sizeof(FigureKey) + 2 * bytesOfStart(start) : 0))) {
      ++m_omitted.values;
      continue;
    }
    m_figures[key][start.test].push_back({lane, *value});
  }
}

}  // namespace TarvexDiags::FrontEnd
