#include "diagctl/report/StepRecord.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Judgement.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace Contract = PackageKit::Contract;

double secondsBetween(std::chrono::system_clock::time_point from,
                      std::chrono::system_clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

// About what is taken beside the texts themselves. A finding counts for more than its place, as
// each one is compared with those before it.
constexpr std::size_t kSizeOfStep = 768;
constexpr std::size_t kSizeOfFinding = 512;
constexpr std::size_t kSizeOfItem = 128;

// @return about how many bytes that took.
std::size_t addOnce(std::vector<std::string>& texts, const std::string& text) {
  if (text.empty() || std::find(texts.begin(), texts.end(), text) != texts.end()) {
    return 0;
  }
  texts.push_back(text);
  return kSizeOfFinding + text.size();
}

std::size_t sizeOf(const RunStarted& start) {
  std::size_t size = start.name.size() + start.version.size() + start.commandLine.size() +
                     start.machineId.size() + start.machineName.size();
  for (const auto& [key, value] : start.parameters) {
    size += kSizeOfItem + key.size() + value.size();
  }
  for (const std::string& platform : start.platforms) {
    size += kSizeOfItem + platform.size();
  }
  for (const HardwareItem& item : start.hardware) {
    size += kSizeOfItem + item.id.size() + item.name.size() + item.location.size();
  }
  for (const SoftwareItem& item : start.software) {
    size += kSizeOfItem + item.id.size() + item.name.size() + item.version.size();
  }
  return size;
}

std::size_t sizeOf(const StepStarted& start) {
  return kSizeOfItem + start.stepId.size() + start.package.size() + start.device.size() +
         start.test.size() + start.hardwareId.size();
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

/// Writes one event into the record of its step.
struct IntoStep {
  StepRecord& step;
  std::size_t& size;

  void operator()(const StepMessage& message) const {
    if (message.severity == Severity::Warning || message.severity == Severity::Error) {
      size += addOnce(step.findings, message.text);
      size += addOnce(step.actions, message.action);
      if (message.severity == Severity::Warning) {
        ++step.warnings;
        takeFirst(step.warning, message.text);
      }
    } else {
      takeOver(step.news, message.text);
    }
  }
  void operator()(const StepDiagnosis& diagnosis) const {
    ++step.verdicts[diagnosis.verdict];
    const bool isFirstFailure =
        diagnosis.verdict == Verdict::Fail && step.verdicts[Verdict::Fail] == 1;
    if (isFirstFailure || (diagnosis.verdict != Verdict::Pass && step.symptom.empty())) {
      takeOver(step.symptom, diagnosis.symptom);
    }
    if (diagnosis.verdict != Verdict::Pass) {
      takeFirst(diagnosis.verdict == Verdict::Fail ? step.failure : step.warning,
                diagnosis.message);
    }
    size += addOnce(step.findings, diagnosis.message);
    size += addOnce(step.actions, diagnosis.action);
  }
  void operator()(const StepTrouble& trouble) const {
    ++step.troubles;
    if (step.symptom.empty()) {
      takeOver(step.symptom, trouble.symptom);
    }
    takeFirst(step.trouble, trouble.message);
    size += addOnce(step.findings, trouble.message);
    size += addOnce(step.actions, trouble.action);
  }
  void operator()(const StepEnded& ended) const {
    step.ended = ended;
    if (ended.status == RunStatus::Skip && step.findings.empty()) {
      size += addOnce(step.findings, step.news);  // the reason
    }
  }
  template <class Other>
  void operator()(const Other& /*other*/) const {}

 private:
  void takeFirst(std::string& place, const std::string& text) const {
    if (place.empty()) {
      takeOver(place, text);
    }
  }
  void takeOver(std::string& place, const std::string& text) const {
    size += text.size();
    size -= place.size();
    place = text;
  }
};

/// The step that an event belongs to; empty for none.
struct StepIdOf {
  template <class Body>
  std::string operator()(const Body& body) const {
    if constexpr (requires { body.stepId; }) {
      return body.stepId;
    } else {
      return {};
    }
  }
};

}  // namespace

int StepRecord::passes() const {
  return std::accumulate(verdicts.begin(), verdicts.end(), 0,
                         [](int sum, const auto& entry) { return sum + entry.second; });
}

// Errors are judged before they get here: what they came to is a diagnosis or trouble.
StepRecord::Outcome StepRecord::outcome() const {
  switch (Contract::judge({.ending = endingOf(*this), .hasRaisedWarning = warnings > 0})) {
    case Contract::Judgement::Passed:
      return Outcome::Passed;
    case Contract::Judgement::Warning:
      return Outcome::Warning;
    case Contract::Judgement::Failed:
      return Outcome::Failed;
    case Contract::Judgement::NotPossible:
    case Contract::Judgement::Aborted:
      return Outcome::Skipped;
    case Contract::Judgement::Trouble:
    case Contract::Judgement::Contradicts:
      break;
  }
  return Outcome::Trouble;
}

const std::string& StepRecord::headline() const {
  const Outcome came = outcome();
  for (const auto& [weighed, text] :
       {std::pair(Outcome::Failed, &failure), std::pair(Outcome::Trouble, &trouble),
        std::pair(Outcome::Warning, &warning)}) {
    if (came == weighed && !text->empty()) {
      return *text;
    }
  }
  return findings.empty() ? symptom : findings.front();
}

double StepRecord::seconds() const {
  return hasEnded() ? secondsBetween(begin, end) : 0;
}

const StepRecord* RunRecord::handle(const RunEvent& event) {
  m_last = event.time;
  if (!m_hasBegun) {
    m_hasBegun = true;
    m_begin = event.time;
  }
  if (const auto* start = std::get_if<RunStarted>(&event.body)) {
    m_start = *start;
    m_size += sizeOf(*start);
  } else if (const auto* trouble = std::get_if<RunTrouble>(&event.body)) {
    m_troubles.push_back(trouble->message);
    m_size += kSizeOfItem + trouble->message.size();
  } else if (const auto* end = std::get_if<RunEnded>(&event.body)) {
    m_hasEnded = true;
    m_end = *end;
  }
  const std::string id = std::visit(StepIdOf(), event.body);
  if (id.empty()) {
    return nullptr;
  }
  const auto [entry, isNew] = m_steps.try_emplace(id);
  m_size += isNew ? kSizeOfStep + id.size() : 0;
  StepRecord& step = entry->second;
  if (const auto* started = std::get_if<StepStarted>(&event.body)) {
    m_size += sizeOf(*started);
    step.start = *started;
    step.begin = event.time;
    m_order.push_back(id);
  }
  std::visit(IntoStep{step, m_size}, event.body);
  if (!std::holds_alternative<StepEnded>(event.body)) {
    return nullptr;
  }
  step.end = event.time;
  return &step;
}

const StepRecord* RunRecord::find(const std::string& stepId) const {
  const auto entry = m_steps.find(stepId);
  return entry != m_steps.end() ? &entry->second : nullptr;
}

std::vector<std::string> RunRecord::openSteps() const {
  std::vector<std::string> open;
  for (const auto& [id, step] : m_steps) {
    if (step.start.stepId == id && !step.hasEnded()) {
      open.push_back(id);
    }
  }
  return open;
}

std::vector<const StepRecord*> RunRecord::steps() const {
  std::vector<const StepRecord*> steps;
  for (const std::string& id : m_order) {
    steps.push_back(&m_steps.at(id));
  }
  return steps;
}

OutcomeSums RunRecord::sums() const {
  OutcomeSums sums;
  for (const auto& [id, step] : m_steps) {
    ++sums[step.outcome()];
  }
  return sums;
}

double RunRecord::seconds() const {
  return secondsBetween(m_begin, m_last);
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
    case StepRecord::Outcome::Skipped:
      break;
  }
  return marked("skipped");
}

std::string toText(const OutcomeSums& sums) {
  std::string text;
  for (const auto& [outcome, count] : sums) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count, told(toText(outcome)));
  }
  return text;
}

}  // namespace TarvexDiags::FrontEnd
