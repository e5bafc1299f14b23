#include "diagctl/report/StepRecord.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "diagctl/report/TestDuration.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Judgement.h"
#include "packagekit/contract/KitCodes.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace Contract = PackageKit::Contract;

// About what is taken beside the texts themselves, with what the allocator adds.
constexpr std::size_t kSizeOfStep = sizeof(StepRecord) + 192;
constexpr std::size_t kSizeOfText = 96;

constexpr std::size_t kMostTexts = 200;
constexpr std::size_t kMostBytes = 64UL << 10U;  ///< of the texts together
constexpr std::size_t kLongestText = 16UL << 10U;

// Not within a character.
std::string cut(const std::string& text) {
  if (text.size() <= kLongestText) {
    return text;
  }
  return std::string(wholeCharacters(text, kLongestText)) + " ...";
}

std::size_t sizeOf(const StepStarted& start) {
  return start.stepId.size() + start.package.size() + start.device.size() + start.test.size() +
         start.hardwareId.size() + start.localPackage.size() + start.localTest.size();
}

// Beside those of the tests.
bool isOfRun(const std::string& stepId) {
  return stepId == kMachineStep || stepId == kCoverageStep;
}

/// The weightiest of what was told of the step.
Contract::Ending endingOf(const StepRecord& step) {
  if (step.hasFailed()) {
    return Contract::Ending::Failed;
  }
  // A step without an end belongs to a run that was cut short.
  if (step.troubles > 0 || !step.hasEnded() || step.ended->status == RunStatus::Error) {
    return Contract::Ending::Broken;
  }
  if (step.ended->status == RunStatus::Skip) {
    return step.isAborted() ? Contract::Ending::Aborted : Contract::Ending::NotPossible;
  }
  return step.verdicts.contains(Verdict::Unknown) ? Contract::Ending::Unusual
                                                  : Contract::Ending::Passed;
}

StepRecord::Outcome outcomeOf(SkipKind kind) {
  switch (kind) {
    case SkipKind::NeedsPrivilege:
      return StepRecord::Outcome::SkippedForPrivilege;
    case SkipKind::NotInThisMode:
      return StepRecord::Outcome::SkippedForMode;
    case SkipKind::NotRun:
      return StepRecord::Outcome::NotRun;
    case SkipKind::NotPossible:
      break;
  }
  return StepRecord::Outcome::Skipped;
}

/// Writes one event into the record of its step.
struct IntoStep {
  StepRecord& step;
  std::size_t room;  ///< in bytes, for more texts

  void operator()(const StepStarted& started) const {
    step.size -= sizeOf(step.start);
    step.start = started;
    for (std::string* const name : {&step.start.package, &step.start.device, &step.start.test,
                                    &step.start.localPackage, &step.start.localTest}) {
      *name = cut(*name);
    }
    step.size += sizeOf(step.start);
  }
  void operator()(const StepMessage& message) const {
    if (message.severity == Severity::Error) {
      count(Verdict::Fail, tell(message.text, message.action));
      if (step.error.empty()) {
        takeOver(step.error, message.text);
        takeOver(step.errorAction, message.action);
      }
    } else if (message.severity == Severity::Warning) {
      count(Verdict::Unknown, tell(message.text, message.action));
      ++step.warnings;
      takeFirst(step.warning, message.text);
    } else if (message.severity == Severity::Information) {
      takeOver(step.news, message.text);
    }
  }
  void operator()(const StepDiagnosis& diagnosis) const {
    ++step.verdicts[diagnosis.verdict];
    step.passesJudged += diagnosis.pass > 0 ? 1 : 0;
    const bool isFirstFailure =
        diagnosis.verdict == Verdict::Fail && step.verdicts[Verdict::Fail] == 1;
    if (isFirstFailure || (diagnosis.verdict != Verdict::Pass && step.symptom.empty())) {
      takeOver(step.symptom, diagnosis.symptom);
    }
    if (diagnosis.verdict != Verdict::Pass) {
      takeFirst(diagnosis.verdict == Verdict::Fail ? step.failure : step.warning,
                diagnosis.message);
    }
    count(diagnosis.verdict, tell(diagnosis.message, diagnosis.action));
  }
  void operator()(const StepMeasurement& figure) const {
    const auto* const words = std::get_if<std::string>(&figure.value);
    if (figure.name == FigureName::kSeed && words != nullptr && step.findings.empty()) {
      takeOver(step.seed, *words);
    }
    step.size += step.figures.take(figure, room);
  }
  void operator()(const StepTrouble& trouble) const {
    ++step.troubles;
    if (step.symptom.empty()) {
      takeOver(step.symptom, trouble.symptom);
    }
    takeFirst(step.trouble, trouble.message);
    step.troublesFound += tell(trouble.message, trouble.action) ? 1U : 0U;
    if (trouble.symptom == Contract::symptomOfTrouble(PackageKit::TEST_CONTRADICTED_ITSELF)) {
      takeOver(step.error, "");
      takeOver(step.errorAction, "");
    }
  }
  void operator()(const StepEnded& ended) const {
    step.ended = ended;
    if (ended.status == RunStatus::Skip && step.findings.empty()) {
      tell(step.news, "");  // the reason
    }
  }
  template <class Other>
  void operator()(const Other& /*other*/) const {}

 private:
  /// @return whether it is a finding that was not told before.
  bool tell(const std::string& finding, const std::string& action) const {
    const std::size_t before = step.findings.size() + step.findings.omitted();
    const std::size_t taken = step.findings.add(finding, room);
    step.size += taken + step.actions.add(action, room - taken);
    if (step.advice.size() < step.findings.size()) {
      step.advice.push_back(step.actions.placeOf(action));
    }
    return step.findings.size() + step.findings.omitted() > before;
  }
  void count(Verdict kind, bool isNew) const { step.findingsBy[kind] += isNew ? 1 : 0; }
  void takeFirst(std::string& place, const std::string& text) const {
    if (place.empty()) {
      takeOver(place, text);
    }
  }
  void takeOver(std::string& place, const std::string& text) const {
    step.size -= place.size();
    place = cut(text);
    step.size += place.size();
  }
};

// The step began when its turn came: its test does once its package is loaded.
bool isBeginOfTest(const RunEventBody& body) {
  const auto* const figure = std::get_if<StepMeasurement>(&body);
  return figure != nullptr && figure->name == FigureName::kSeed;
}

// What is told of no open step, and counts nevertheless.
bool isWeighty(const RunEventBody& body) {
  if (const auto* const diagnosis = std::get_if<StepDiagnosis>(&body)) {
    return diagnosis->verdict != Verdict::Pass;
  }
  const auto* const ended = std::get_if<StepEnded>(&body);
  return std::holds_alternative<StepStarted>(body) || std::holds_alternative<StepTrouble>(body) ||
         (ended != nullptr && ended->status == RunStatus::Error);
}

/// The step that an event belongs to; null for none. The id of one may be empty.
struct StepIdOf {
  template <class Body>
  const std::string* operator()(const Body& body) const {
    if constexpr (requires { body.stepId; }) {
      return &body.stepId;
    } else {
      return nullptr;
    }
  }
};

}  // namespace

std::size_t BoundedTexts::add(const std::string& text, std::size_t room) {
  return placeOf(text) ? 0 : addAgain(text, room);
}

std::size_t BoundedTexts::addAgain(const std::string& text, std::size_t room) {
  const std::string kept = cut(text);
  if (kept.empty()) {
    return 0;
  }
  const std::size_t size = kSizeOfText + kept.size();
  if (m_texts.size() == kMostTexts || m_size + size > kMostBytes || size > room) {
    ++m_omitted;
    return 0;
  }
  m_texts.push_back(kept);
  m_size += size;
  return size;
}

std::optional<std::size_t> BoundedTexts::placeOf(const std::string& text) const {
  const auto found = std::find(m_texts.begin(), m_texts.end(), cut(text));
  return found != m_texts.end() ? std::optional(static_cast<std::size_t>(found - m_texts.begin()))
                                : std::nullopt;
}

std::string moreOf(const BoundedTexts& texts) {
  return tr("and {} more", texts.omitted());
}

bool StepRecord::isSilent() const {
  return isOfRun(start.stepId) && verdicts.empty() && troubles == 0 && warnings == 0;
}

// Errors are judged before a step ends: what they came to is a diagnosis or trouble.
StepRecord::Outcome StepRecord::outcome() const {
  switch (Contract::judge({.ending = endingOf(*this),
                           .hasRaisedError = isUnjudged(),
                           .hasRaisedWarning = warnings > 0})) {
    case Contract::Judgement::Passed:
      return Outcome::Passed;
    case Contract::Judgement::Warning:
      return Outcome::Warning;
    case Contract::Judgement::Failed:
      return Outcome::Failed;
    case Contract::Judgement::Aborted:
      return Outcome::Aborted;
    case Contract::Judgement::NotPossible:
      return outcomeOf(ended->skip);
    case Contract::Judgement::Trouble:
    case Contract::Judgement::Contradicts:
      break;
  }
  return Outcome::Trouble;
}

const std::string& StepRecord::headline() const {
  const Outcome came = outcome();
  for (const auto& [weighed, text] :
       {std::pair(Outcome::Failed, &failure), std::pair(Outcome::Failed, &error),
        std::pair(Outcome::Trouble, &trouble), std::pair(Outcome::Warning, &warning)}) {
    if (came == weighed && !text->empty()) {
      return *text;
    }
  }
  return findings.empty() ? symptom : findings.front();
}

std::size_t StepRecord::furtherFindings() const {
  const auto count = [this](Verdict kind) {
    const auto found = findingsBy.find(kind);
    return found != findingsBy.end() ? found->second : 0;
  };
  const Outcome came = outcome();
  const std::size_t found = came == Outcome::Failed    ? count(Verdict::Fail)
                            : came == Outcome::Trouble ? troublesFound
                            : came == Outcome::Warning ? count(Verdict::Unknown)
                                                       : 0;
  return found > 1 ? found - 1 : 0;
}

std::string StepRecord::headlineAction() const {
  std::string action;
  for (std::size_t finding = 0; finding < findings.size(); ++finding) {
    if (findings[finding] == headline() && advice[finding]) {
      action = actions[*advice[finding]];
    }
  }
  return action;
}

double StepRecord::seconds() const {
  if (figures.find(kTestDuration) != nullptr) {
    return figures.number(kTestDuration);
  }
  return hasEnded() ? secondsBetween(begin, end) : 0;
}

const StepRecord* RunRecord::handle(const RunEvent& event) {
  m_last = std::max(m_last, event.time);
  if (!m_hasBegun) {
    m_hasBegun = true;
    m_begin = event.time;
  }
  takeOfRun(event);
  const std::string* const id = std::visit(StepIdOf(), event.body);
  const auto entry = id != nullptr ? openEntry(*id, event) : m_steps.end();
  if (entry == m_steps.end()) {
    return nullptr;
  }
  StepRecord& step = entry->second;
  const std::size_t roomBefore = room();
  m_size -= step.size;
  if (std::holds_alternative<StepStarted>(event.body)) {
    step.begin = event.time;
    step.place = ++m_lastPlace;
  } else if (isBeginOfTest(event.body) && step.figures.find(FigureName::kSeed) == nullptr) {
    step.begin = event.time;
  }
  std::visit(IntoStep{step, roomBefore}, event.body);
  m_size += step.size;
  if (!std::holds_alternative<StepEnded>(event.body)) {
    return nullptr;
  }
  step.end = event.time;
  if (!isOfRun(*id) && !isSkipped(step.outcome())) {
    m_coverage.take(step.start.device, step.figures, step.seconds());
  }
  const StepRecord* const ended = holds(step) ? &step : drop(entry);
  return ended->isSilent() ? nullptr : ended;
}

void RunRecord::takeOfRun(const RunEvent& event) {
  if (const auto* start = std::get_if<RunStarted>(&event.body)) {
    m_machineName = cut(start->machineName);
  } else if (const auto* trouble = std::get_if<RunTrouble>(&event.body)) {
    ++m_troubleCount;
    m_size +=
        m_troubles.add(trouble->message.empty() ? trouble->symptom : trouble->message, room());
  } else if (const auto* end = std::get_if<RunEnded>(&event.body)) {
    takeEnd(*end);
  } else if (const auto* coverage = std::get_if<RunCoverage>(&event.body)) {
    m_coverage = Coverage(*coverage);
  }
}

// A second end is that of a run whose beginning was lost: what it says makes nothing good.
void RunRecord::takeEnd(const RunEnded& end) {
  if (!std::exchange(m_hasEnded, true)) {
    m_end = end;
    return;
  }
  if (end.result == RunResult::Fail) {
    m_end.result = RunResult::Fail;
  }
  if (end.status == RunStatus::Error || m_end.status == RunStatus::Complete) {
    m_end.status = end.status;
  }
}

// Whether an ended step is held must not change what the run comes to, so that what is told behind
// an end, or of a step whose beginning is lost, makes a record of its own, or none.
RunRecord::Steps::iterator RunRecord::openEntry(const std::string& id, const RunEvent& event) {
  auto entry = m_steps.find(id);
  if (entry != m_steps.end() && !entry->second.hasEnded()) {
    return entry;
  }
  if (!isWeighty(event.body)) {
    return m_steps.end();
  }
  if (entry != m_steps.end()) {
    auto ended = m_steps.extract(entry);
    do {  // an id of a log may be anything
      ended.key() += '\0' + std::to_string(ended.mapped().place);
    } while (m_steps.contains(ended.key()));
    m_steps.insert(std::move(ended));
  }
  StepRecord step;
  step.start.stepId = id;
  step.start.test = cut(id);  // until it is told by name
  step.begin = event.time;
  step.place = ++m_lastPlace;
  step.size = kSizeOfStep + id.size() + sizeOf(step.start);
  m_size += step.size;
  return m_steps.emplace(id, std::move(step)).first;
}

bool RunRecord::holds(const StepRecord& ended) const {
  if (m_ended == Ended::Dropped) {
    return false;
  }
  const StepRecord::Outcome came = ended.outcome();
  const bool isTelling = came != StepRecord::Outcome::Passed && !isSkipped(came);
  return m_size <= m_most + (isTelling ? m_most / 4 : 0);
}

const StepRecord* RunRecord::drop(Steps::iterator ended) {
  m_lastDropped = std::move(ended->second);
  m_steps.erase(ended);
  m_size -= m_lastDropped.size;
  if (m_lastDropped.isSilent()) {
    return &m_lastDropped;
  }
  const StepRecord::Outcome came = m_lastDropped.outcome();
  ++m_dropped.sums[came];
  ++m_dropped.begun;
  m_dropped.seconds += m_lastDropped.seconds();
  return &m_lastDropped;
}

const StepRecord* RunRecord::find(const std::string& stepId) const {
  const auto entry = m_steps.find(stepId);
  return entry != m_steps.end() ? &entry->second : nullptr;
}

std::vector<std::string> RunRecord::openSteps() const {
  std::vector<std::string> open;
  for (const auto& [id, step] : m_steps) {
    if (!step.hasEnded() && !step.isSilent()) {
      open.push_back(id);
    }
  }
  return open;
}

std::vector<const StepRecord*> RunRecord::steps() const {
  std::vector<const StepRecord*> steps;
  for (const auto& [id, step] : m_steps) {
    if (!step.isSilent()) {
      steps.push_back(&step);
    }
  }
  std::sort(steps.begin(), steps.end(), [](const StepRecord* left, const StepRecord* right) {
    return left->place < right->place;
  });
  return steps;
}

std::size_t RunRecord::begun() const {
  return m_dropped.begun + steps().size();
}

OutcomeSums RunRecord::sums() const {
  OutcomeSums sums = m_dropped.sums;
  for (const auto& [id, step] : m_steps) {
    if (step.isSilent()) {
      continue;
    }
    ++sums[step.outcome()];
  }
  return sums;
}

double RunRecord::seconds() const {
  return secondsBetween(m_begin, m_last);
}

bool isSkipped(StepRecord::Outcome outcome) {
  return outcome == StepRecord::Outcome::Skipped ||
         outcome == StepRecord::Outcome::SkippedForPrivilege ||
         outcome == StepRecord::Outcome::SkippedForMode;
}

bool isProblem(StepRecord::Outcome outcome) {
  return outcome == StepRecord::Outcome::Failed || outcome == StepRecord::Outcome::Trouble ||
         outcome == StepRecord::Outcome::Warning;
}

const char* toText(StepRecord::Outcome outcome) {
  switch (outcome) {
    case StepRecord::Outcome::Passed:
      return marked("passed");
    case StepRecord::Outcome::Failed:
      return marked("failed");
    case StepRecord::Outcome::Warning:
      return marked("with a warning");
    case StepRecord::Outcome::Trouble:
      return marked("without a verdict");
    case StepRecord::Outcome::Aborted:
      return marked("aborted");
    case StepRecord::Outcome::NotRun:
      return marked("not run");
    case StepRecord::Outcome::SkippedForPrivilege:
      return marked("skipped for lack of a privilege");
    case StepRecord::Outcome::SkippedForMode:
      return marked("skipped in this mode");
    case StepRecord::Outcome::Skipped:
      break;
  }
  return marked("skipped");
}

const char* wordOf(StepRecord::Outcome outcome) {
  switch (outcome) {
    case StepRecord::Outcome::Passed:
      return marked("PASSED");
    case StepRecord::Outcome::Failed:
      return marked("FAILED");
    case StepRecord::Outcome::Warning:
      return marked("WARNING");
    case StepRecord::Outcome::Trouble:
      return marked("ERROR");
    case StepRecord::Outcome::Aborted:
      return marked("ABORTED");
    default:
      break;
  }
  return marked("SKIPPED");
}

std::string toText(StepRecord::Outcome outcome, std::size_t count) {
  switch (outcome) {
    case StepRecord::Outcome::Passed:
      return trn("1 passed", "{} passed", count);
    case StepRecord::Outcome::Failed:
      return trn("1 failed", "{} failed", count);
    case StepRecord::Outcome::Warning:
      return trn("1 with a warning", "{} with a warning", count);
    case StepRecord::Outcome::Trouble:
      return trn("1 without a verdict", "{} without a verdict", count);
    case StepRecord::Outcome::Aborted:
      return trn("1 aborted", "{} aborted", count);
    case StepRecord::Outcome::NotRun:
      return trn("1 not run", "{} not run", count);
    case StepRecord::Outcome::SkippedForPrivilege:
      return trn("1 skipped for lack of a privilege", "{} skipped for lack of a privilege", count);
    case StepRecord::Outcome::SkippedForMode:
      return trn("1 skipped in this mode", "{} skipped in this mode", count);
    case StepRecord::Outcome::Skipped:
      break;
  }
  return trn("1 skipped", "{} skipped", count);
}

std::string toText(const OutcomeSums& sums) {
  std::string text;
  for (const auto& [outcome, count] : sums) {
    text += (text.empty() ? "" : ", ") + toText(outcome, count);
  }
  return text;
}

std::string toEnglish(const OutcomeSums& sums) {
  std::string text;
  for (const auto& [outcome, count] : sums) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count, toText(outcome));
  }
  return text;
}

}  // namespace TarvexDiags::FrontEnd
