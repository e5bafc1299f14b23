#include "diagctl/run/Runner.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <utility>

#include "diagctl/session/ControllerFailure.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/KitCodes.h"
#include "packagekit/contract/Measurement.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace Contract = PackageKit::Contract;
using Controller = DiagCtrl::DiagnosticController;
using Clock = std::chrono::steady_clock;

// How long the loop waits for a wake-up; a lost one costs no more than that. Nothing announces the
// start of a test, so the loop looks more often where one is due: behind a start or an end.
constexpr std::chrono::milliseconds kLongestWait{100};
constexpr std::chrono::milliseconds kWaitForStart{5};
constexpr std::chrono::seconds kTick{1};

Severity severityOf(Diag::DiagnosticEvent::EventType type) {
  switch (type) {
    case Diag::DiagnosticEvent::WARNING_EVENT:
      return Severity::Warning;
    case Diag::DiagnosticEvent::ERROR_EVENT:
      return Severity::Error;
    case Diag::DiagnosticEvent::INFORMATION_EVENT:
      break;
  }
  return Severity::Information;
}

// A short identifier: "MEMORY_MISCOMPARE" becomes "memory-miscompare".
std::string toSymptom(std::string token) {
  for (char& character : token) {
    const auto byte = static_cast<unsigned char>(character);
    character = character == '_' ? '-' : static_cast<char>(std::tolower(byte));
  }
  return token;
}

std::string plainText(const Diag::DiagnosticEvent& event) {
  return fmt::format("event {}: {}", event.getEventCode(), fmt::join(event.getParamVector(), ", "));
}

// What nobody knows has a number at least.
std::string meaningOf(const CodeEntry& entry, const DiagCtrl::DiagCtrlEvent& event) {
  return entry.eventNumber ? told(entry.meaning)
                           : fmt::format("{} ({})", told(entry.meaning), event.getEventCode());
}

std::string hardwareIdOf(const SelectedPair& pair) {
  return fmt::format("{}-{}", pair.package->index, pair.device->id);
}

}  // namespace

struct Runner::Step {
  const PlannedRequest* planned = nullptr;
  std::string id;
  std::string hardwareId;
  unsigned long requestId = 0;  ///< 0: could not be queued
  int results = 0;
  bool hasFailed = false;
  bool hasPassed = false;
  bool hasWarning = false;
  bool hasTrouble = false;
  bool isNotPossible = false;
  bool isAborted = false;
  bool hasBegun = false;
  bool hasEnded = false;
  int pass = 0;  ///< as told last, with the progress
  unsigned int progress = 0;
  bool isSuspended = false;
  Clock::time_point toldAt;  ///< when progress was told last
  Finding lastFinding;       ///< of the present pass
};

Runner::Runner(Session& session, const RunPlan& plan, Sink sink, RunRequests& requests)
    : m_session(session),
      m_plan(plan),
      m_sink(std::move(sink)),
      m_requests(requests),
      m_parameters(parametersOf(plan.options)),
      m_watch(session.controller()) {}

Runner::~Runner() = default;

RunSummary Runner::run(const RunStarted& start) {
  m_events.open(m_session.controller(), m_session.wakeups());
  m_results.open(m_session.controller(), m_session.wakeups());
  tell(start);
  for (const std::string& warning : m_session.warnings()) {
    tell(RunTrouble{"package-not-loaded", warning});
  }
  tellMissingDevices();
  queueAll();
  waitForAll();
  tellSkipped();
  const RunSummary summary = summarise();
  tell(verdictOf(summary));
  return summary;
}

void Runner::waitForAll() {
  const auto begin = Clock::now();
  m_changedAt = begin;
  while (isLeft()) {
    serveRequests();
    endAfterTotalTime(begin);
    collect();
    if (isLeft()) {
      const bool isStartDue = Clock::now() - m_changedAt < kLongestWait;
      m_session.wakeups().waitFor(isStartDue ? kWaitForStart : kLongestWait);
    }
  }
}

bool Runner::isLeft() const {
  return std::any_of(m_steps.begin(), m_steps.end(),
                     [](const Step& step) { return !step.hasEnded; });
}

void Runner::endAfterTotalTime(Clock::time_point begin) {
  if (!m_plan.options.totalSeconds || m_isAborted ||
      Clock::now() - begin < std::chrono::seconds(*m_plan.options.totalSeconds)) {
    return;
  }
  tell(RunMessage{Severity::Warning, tr("The total time is used up: what still runs is ended.")});
  abortAll();
}

void Runner::tell(RunEventBody body) {
  // As fine as a log keeps it, so that a report of the log says the same as the live one.
  m_sink({std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now()),
          std::move(body)});
}

// What was selected and cannot run is a step of the report too, behind those that have a verdict.
void Runner::tellSkipped() {
  int number = 0;
  for (const SelectedPair& pair : m_plan.skipped) {
    const std::string id = fmt::format("skipped-{}", ++number);
    tell(StepStarted{id, pair.package->name, pair.device->name, pair.test->name, hardwareIdOf(pair),
                     passesOf(m_plan.options)});
    tell(StepMessage{id, Severity::Information, pair.package->describe(*pair.device, *pair.test),
                     ""});
    tell(StepEnded{id, RunStatus::Skip});
  }
}

// A device that is not there is a finding on the hardware, and a step of the report like any other.
void Runner::tellMissingDevices() {
  if (m_plan.missingDevices == 0) {
    return;
  }
  const std::string id = "devices";
  tell(StepStarted{id, "diagctl", tr("this machine"), tr("Expected devices"), "", 1});
  tell(StepDiagnosis{id, Verdict::Fail, "device-missing",
                     tr("{} devices were found, {} are expected.",
                        m_plan.expectedDevices - m_plan.missingDevices, m_plan.expectedDevices),
                     tr("Compare \"diagctl list devices\" with what should be there."), "", 1});
  tell(StepEnded{id, RunStatus::Complete});
}

void Runner::queueAll() {
  m_steps.reserve(m_plan.requests.size());
  for (const PlannedRequest& planned : m_plan.requests) {
    const SelectedPair& pair = planned.pair;
    Step step;
    step.planned = &planned;
    step.id = std::to_string(m_steps.size() + 1);
    step.hardwareId = hardwareIdOf(pair);
    Diag::DiagnosticSettings settings = settingsOf(planned, m_plan.options, m_parameters);
    std::vector<int> tests{pair.test->id};
    const Controller::errorCode code =
        m_session.controller().queueTest(pair.package->index, pair.device->id, tests, settings,
                                         m_plan.options.haltOnError, step.requestId);
    m_steps.push_back(std::move(step));
    Step& queued = m_steps.back();
    if (code == Controller::SUCCESS) {
      m_stepByRequest[static_cast<unsigned int>(queued.requestId)] = m_steps.size() - 1;
      continue;
    }
    queued.requestId = 0;
    queued.hasTrouble = true;
    begin(queued);
    const ControllerFailure failure(tr("queueing the test"), code);
    const CodeEntry* entry = findResult(code);
    tell(StepTrouble{queued.id,
                     entry != nullptr ? toSymptom(std::string(entry->name)) : "queueing-failed",
                     failure.what(), entry != nullptr ? std::string(entry->nextAction) : ""});
    end(queued);
  }
}

void Runner::serveRequests() {
  Controller& controller = m_session.controller();
  if (m_requests.abortAll.exchange(false) && !m_isAborted) {
    tell(RunMessage{Severity::Warning, tr("Interrupted: what still runs is ended.")});
    abortAll();
  }
  if (m_requests.suspendAll.exchange(false)) {
    m_hold = Hold::Suspended;
  }
  if (m_requests.resumeAll.exchange(false)) {
    m_hold = Hold::Resumed;
  }
  hold();
  const unsigned long number = m_requests.abortStep.exchange(0);
  if (number >= 1 && number <= m_steps.size() && !m_steps[number - 1].hasEnded) {
    m_steps[number - 1].isAborted = true;
    controller.abortTest(m_steps[number - 1].requestId);
  }
}

// The controller leaves a request between two passes alone, so what is wanted is said at each turn.
void Runner::hold() {
  Controller& controller = m_session.controller();
  for (Step& step : m_steps) {
    if (step.hasEnded || m_hold == Hold::None) {
      continue;
    }
    const bool suspends = m_hold == Hold::Suspended;
    const auto code =
        suspends ? controller.suspendTest(step.requestId) : controller.resumeTest(step.requestId);
    if (code == Controller::SUCCESS) {
      step.isSuspended = suspends;
    }
  }
}

// A suspended test would never hear of the abort in some packages, so it is resumed first.
void Runner::abortAll() {
  m_isAborted = true;
  m_hold = Hold::None;
  Controller& controller = m_session.controller();
  for (Step& step : m_steps) {
    if (!step.hasEnded) {
      step.isAborted = true;
      controller.resumeTest(step.requestId);
      controller.abortTest(step.requestId);
    }
  }
}

void Runner::collect() {
  // Looked at before the queues are drained: what was told before a step's end is told first.
  std::vector<Step*> over;
  for (Step& step : m_steps) {
    if (!step.hasEnded && m_watch.hasEnded(step.requestId)) {
      over.push_back(&step);
    }
  }
  collectControllerEvents();
  drainMessages();
  tellMessages([](unsigned int /*requestId*/) { return true; });
  collectProgress();
  for (Step* step : over) {
    if (!step->hasEnded) {
      end(*step);
    }
  }
}

Runner::Step* Runner::stepOf(unsigned int requestId) {
  const auto entry = m_stepByRequest.find(requestId);
  return entry != m_stepByRequest.end() ? &m_steps[entry->second] : nullptr;
}

// Results are drained first and judged last: an event that a package raised before its result is in
// the queue by then, so none of a pass is missed.
void Runner::drainMessages() {
  m_results.drain();
  m_events.drain();
}

void Runner::tellMessages(const std::function<bool(unsigned int)>& isMeant) {
  const auto isMeantMessage = [&](const Diag::DiagnosticEvent& message) {
    return isMeant(message.getTestRequestId());
  };
  while (const auto event = m_events.takeFirst(isMeantMessage)) {
    if (Step* step = stepOf(event->getTestRequestId())) {
      begin(*step);
      tellEvent(*step, *event);
    }
  }
  while (const auto result = m_results.takeFirst(isMeantMessage)) {
    if (Step* step = stepOf(result->getTestRequestId())) {
      begin(*step);
      judge(*step, *result);
    }
  }
}

void Runner::tellEvent(Step& step, const Diag::DiagnosticEvent& event) {
  const Contract::RunEffect effect = Contract::effectOf(event.getEventType(), event.getEventCode());
  if (effect == Contract::RunEffect::Measurement) {
    tellMeasurement(step, event);
    return;
  }
  if (effect == Contract::RunEffect::Nothing ||
      (effect == Contract::RunEffect::Aborted && step.isAborted)) {
    return;
  }
  const int package = step.planned->pair.package->index;
  const Texts& texts = m_session.texts();
  const std::string text = texts.message(package, event).value_or(plainText(event));
  const std::string action = texts.action(package, event).value_or("");
  if (effect == Contract::RunEffect::Trouble) {
    step.hasTrouble = true;
    tell(StepTrouble{step.id, std::string(Contract::symptomOfTrouble(event.getEventCode())), text,
                     action});
    return;
  }
  step.isNotPossible |= effect == Contract::RunEffect::NotPossible;
  const Severity severity = severityOf(event.getEventType());
  if (severity == Severity::Information) {
    tell(StepMessage{step.id, severity, text, ""});  // nothing is to be done about it
    return;
  }
  step.lastFinding = {toSymptom(texts.token(package, event).value_or("")), text, action};
  tell(StepMessage{step.id, severity, text, action});
}

// A figure where the value is one, else its words.
void Runner::tellMeasurement(const Step& step, const Diag::DiagnosticEvent& event) {
  if (const auto measured = Contract::toMeasurement(event.getParamVector())) {
    StepMeasurement told{step.id, measured->name, measured->value, measured->unit, step.hardwareId};
    if (const auto number = Contract::toNumber(measured->value)) {
      told.value = *number;
    }
    tell(std::move(told));
  }
}

// A result names the event behind it, or else the last one of the pass is taken for it.
Runner::Finding Runner::findingOf(Step& step, const Diag::DiagnosticResult& result) {
  Finding last = std::exchange(step.lastFinding, Finding());
  const int package = step.planned->pair.package->index;
  const Texts& texts = m_session.texts();
  const auto token = texts.token(package, result);
  if (result.getEventCode() == 0 || !token) {
    return last;
  }
  return {toSymptom(*token), texts.message(package, result).value_or(plainText(result)),
          texts.action(package, result).value_or("")};
}

void Runner::judge(Step& step, const Diag::DiagnosticResult& result) {
  StepDiagnosis diagnosis{step.id, Verdict::Pass,   "passed",      "",
                          "",      step.hardwareId, ++step.results};
  const Diag::DiagnosticResult::TestResult verdict = result.getTestResult();
  if (verdict == Diag::DiagnosticResult::PASSED) {
    step.hasPassed = true;
    tell(diagnosis);
    return;
  }
  if (verdict == Diag::DiagnosticResult::UNUSUAL_STATUS &&
      (step.hasTrouble || step.isAborted || step.isNotPossible)) {
    return;  // told already: not the hardware's doing
  }
  const Finding finding = findingOf(step, result);
  const bool isFailure = verdict == Diag::DiagnosticResult::FAILED;
  (isFailure ? step.hasFailed : step.hasWarning) = true;
  diagnosis.verdict = isFailure ? Verdict::Fail : Verdict::Unknown;
  diagnosis.symptom = isFailure ? "failed" : "unusual-status";
  if (!finding.symptom.empty()) {
    diagnosis.symptom = finding.symptom;
  }
  diagnosis.message = finding.text;
  diagnosis.action = finding.action;
  tell(diagnosis);
}

void Runner::collectControllerEvents() {
  m_session.controllerEvents().drain();
  while (const auto event = m_session.controllerEvents().takeFirst()) {
    Step* step = stepOf(event->getTestRequestId());
    if (step == nullptr || step->hasEnded) {
      continue;
    }
    const CodeEntry& entry = entryOfEvent(event->getEventCode());
    switch (entry.effect) {
      case CodeEntry::Effect::Nothing:
        break;
      case CodeEntry::Effect::Aborted:
        step->isAborted = true;
        break;
      case CodeEntry::Effect::Trouble:
        step->hasTrouble = true;
        begin(*step);
        tell(StepTrouble{step->id, toSymptom(std::string(entry.name)), meaningOf(entry, *event),
                         told(entry.nextAction)});
        break;
    }
  }
}

void Runner::collectProgress() {
  for (Step& step : m_steps) {
    if (step.hasEnded || step.isAborted) {
      continue;
    }
    const auto pass = m_watch.runningPass(step.requestId);
    if (!pass) {
      continue;
    }
    begin(step);
    if (const auto percent = m_watch.progress(step.requestId)) {
      tellProgress(step, *percent, *pass);
    }
  }
}

// At each change, and so often besides that a clock beside it goes on.
void Runner::tellProgress(Step& step, unsigned int percent, const RequestWatch::Pass& pass) {
  const auto now = Clock::now();
  if (percent == step.progress && pass.number == step.pass && now - step.toldAt < kTick) {
    return;
  }
  step.progress = percent;
  step.pass = pass.number;
  step.toldAt = now;
  tell(StepProgress{step.id, percent, pass.number, pass.of, step.isSuspended});
}

// A test that was judged is told to its end before another one begins: its place may be the reason
// why the other could start.
void Runner::endJudgedSteps(const Step& beginning) {
  for (Step& step : m_steps) {
    if (&step == &beginning || !step.hasBegun || step.hasEnded ||
        !m_watch.isJudged(step.requestId)) {
      continue;
    }
    const bool isOver = m_watch.waitForEnd(step.requestId, kLongestWait);
    drainMessages();
    tellMessages([&](unsigned int id) { return id == step.requestId; });
    if (isOver && !step.hasEnded) {
      end(step);
    }
  }
}

void Runner::begin(Step& step) {
  if (!std::exchange(step.hasBegun, true)) {
    endJudgedSteps(step);
    m_changedAt = Clock::now();
    const SelectedPair& pair = step.planned->pair;
    tell(StepStarted{step.id, pair.package->name, pair.device->name, pair.test->name,
                     step.hardwareId, step.planned->passes});
  }
}

void Runner::end(Step& step) {
  begin(step);
  step.hasEnded = true;
  m_changedAt = Clock::now();
  if (step.results == 0 && !step.isAborted && !step.hasTrouble) {
    step.hasTrouble = true;
    tell(StepTrouble{step.id, "no-result", tr("The package handed over no result."),
                     tr("Look into the package's log.")});
  }
  if (step.isAborted && !step.hasFailed && !step.hasTrouble) {
    tell(StepMessage{step.id, Severity::Warning, tr("Aborted before its end."), ""});
  }
  RunStatus status = RunStatus::Complete;
  if (step.hasTrouble) {
    status = RunStatus::Error;
  } else if ((step.isAborted || step.isNotPossible) && !step.hasFailed) {
    status = RunStatus::Skip;
  }
  tell(StepEnded{step.id, status, step.isAborted});
}

RunSummary Runner::summarise() const {
  RunSummary summary;
  summary.skipped = m_plan.skipped.size();
  summary.failed = m_plan.missingDevices > 0 ? 1 : 0;
  for (const Step& step : m_steps) {
    if (step.hasFailed) {
      ++summary.failed;
    } else if (step.hasTrouble) {
      ++summary.troubled;
    } else if (step.isAborted) {
      ++summary.aborted;
    } else if (step.isNotPossible) {
      ++summary.skipped;
    } else if (step.hasWarning) {
      ++summary.warned;
    } else {
      ++summary.passed;
    }
  }
  return summary;
}

RunEnded Runner::verdictOf(const RunSummary& summary) const {
  if (summary.failed > 0) {
    return {RunStatus::Complete, RunResult::Fail};
  }
  if (summary.troubled > 0 || m_session.failedPackages() > 0) {
    return {RunStatus::Error, RunResult::NotApplicable};
  }
  if (summary.aborted > 0 || summary.ran() == 0) {
    return {RunStatus::Skip, RunResult::NotApplicable};
  }
  return {RunStatus::Complete, RunResult::Pass};
}

}  // namespace TarvexDiags::FrontEnd
