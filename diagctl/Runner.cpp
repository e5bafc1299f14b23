#include "diagctl/Runner.h"

#include <fmt/format.h>

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "diagctl/ControllerFailure.h"
#include "diagctl/KitCodes.h"

namespace TarvexDiags::DiagCtl {

namespace {

using Controller = DiagCtrl::DiagnosticController;
using Clock = std::chrono::steady_clock;

// How long the loop waits for a wake-up; a lost one costs no more than that.
constexpr std::chrono::milliseconds kLongestWait{200};

Severity severityOf(Diag::DiagnosticEvent::EventType type) {
  switch (type) {
    case Diag::DiagnosticEvent::WARNING_EVENT:
      return Severity::warning;
    case Diag::DiagnosticEvent::ERROR_EVENT:
      return Severity::error;
    case Diag::DiagnosticEvent::INFORMATION_EVENT:
      break;
  }
  return Severity::information;
}

std::string plainText(const Diag::DiagnosticEvent& event) {
  return fmt::format("event {}: {}", event.getEventCode(), fmt::join(event.getParamVector(), ", "));
}

/// Takes a drained vector and its messages over, and shows each to a function.
template <class Message, class Use>
void forEachDrained(std::vector<Message*>* drained, Use use) {
  const std::unique_ptr<std::vector<Message*>> messages(drained);
  for (Message* message : *messages) {
    const std::unique_ptr<Message> owned(message);
    use(*owned);
  }
}

}  // namespace

/// Waits for wake-ups on a thread of its own: the wait on the controller's object has no limit.
class Runner::Wakeups {
 public:
  Wakeups() : m_thread([this] { run(); }) {}
  ~Wakeups() {
    m_isWanted = false;
    // A wake-up is not remembered, so one is given until the thread has seen it.
    while (!m_hasEnded) {
      m_object.notify();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    m_thread.join();
  }
  Wakeups(const Wakeups&) = delete;
  Wakeups& operator=(const Wakeups&) = delete;

  DiagCtrl::CallBackObject& object() { return m_object; }

  void waitFor(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_condition.wait_for(lock, limit, [this] { return m_isPending; });
    m_isPending = false;
  }

 private:
  void run() {
    while (m_isWanted) {
      m_object.wait();
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_isPending = true;
      m_condition.notify_one();
    }
    m_hasEnded = true;
  }

  DiagCtrl::CallBackObject m_object;
  std::atomic<bool> m_isWanted{true};
  std::atomic<bool> m_hasEnded{false};
  std::mutex m_mutex;
  std::condition_variable m_condition;
  bool m_isPending = false;
  std::thread m_thread;
};

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
  bool isAborted = false;
  bool hasEnded = false;
  unsigned int progress = 0;
  StepMessage lastWarning;
};

Runner::Runner(Session& session, const RunPlan& plan, Sink sink, RunRequests& requests)
    : m_session(session),
      m_plan(plan),
      m_sink(std::move(sink)),
      m_requests(requests),
      m_parameters(parametersOf(plan.options)) {}

Runner::~Runner() = default;

RunSummary Runner::run(const RunStarted& start) {
  Controller& controller = m_session.controller();
  // Lives until the session's shut-down would wake it no more: there is no way to unregister.
  static Wakeups wakeups;
  unsigned long events = 0;
  unsigned long results = 0;
  unsigned long control = 0;
  require(controller.registerForDiagEvents(&wakeups.object(), events), "registering for events");
  require(controller.registerForDiagResults(&wakeups.object(), results), "registering for results");
  require(controller.registerForDiagCtrlEvents(&wakeups.object(), control),
          "registering for the controller's events");
  m_eventRegistration = static_cast<long>(events);
  m_resultRegistration = static_cast<long>(results);
  m_controlRegistration = static_cast<long>(control);
  tell(start);
  for (const std::string& warning : m_session.warnings()) {
    tell(RunTrouble{"package-not-loaded", warning});
  }
  tellSkipped();
  queueAll();
  const auto begin = Clock::now();
  const auto isLeft = [&] {
    return std::any_of(m_steps.begin(), m_steps.end(),
                       [](const Step& step) { return !step.hasEnded; });
  };
  while (isLeft()) {
    serveRequests();
    const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin);
    if (m_plan.options.totalSeconds &&
        static_cast<unsigned long>(elapsed.count()) >= *m_plan.options.totalSeconds &&
        !m_isAborted) {
      tell(RunMessage{Severity::warning, "the total time is used up: ending what still runs"});
      abortAll();
    }
    collect();
    if (isLeft()) {
      wakeups.waitFor(kLongestWait);
    }
  }
  const RunSummary summary = summarise();
  tell(verdictOf(summary));
  return summary;
}

void Runner::tell(RunEventBody body) {
  m_sink({std::chrono::system_clock::now(), std::move(body)});
}

void Runner::tellSkipped() {
  for (const SelectedPair& pair : m_plan.skipped) {
    tell(RunMessage{Severity::information,
                    fmt::format("{} on {}: {}", pair.test->name, pair.device->name,
                                pair.state == PairState::disabled ? "disabled" : "not supported")});
  }
}

void Runner::queueAll() {
  m_steps.reserve(m_plan.requests.size());
  for (const PlannedRequest& planned : m_plan.requests) {
    const SelectedPair& pair = planned.pair;
    Step step;
    step.planned = &planned;
    step.id = std::to_string(m_steps.size() + 1);
    step.hardwareId = fmt::format("{}-{}", pair.package->index, pair.device->id);
    tell(StepStarted{step.id, pair.package->name, pair.device->name, pair.test->name,
                     step.hardwareId, planned.passes});
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
    const ControllerFailure failure("queueing the test", code);
    const CodeEntry* entry = findResult(code);
    tell(StepTrouble{queued.id, entry != nullptr ? std::string(entry->name) : "queueing-failed",
                     failure.what(), entry != nullptr ? std::string(entry->nextAction) : ""});
    end(queued);
  }
}

void Runner::serveRequests() {
  Controller& controller = m_session.controller();
  if (m_requests.abortAll.exchange(false) && !m_isAborted) {
    abortAll();
  }
  const bool suspend = m_requests.suspendAll.exchange(false);
  const bool resume = m_requests.resumeAll.exchange(false);
  for (Step& step : m_steps) {
    if (step.hasEnded) {
      continue;
    }
    if (suspend) {
      controller.suspendTest(step.requestId);
    }
    if (resume) {
      controller.resumeTest(step.requestId);
    }
  }
  const unsigned long number = m_requests.abortStep.exchange(0);
  if (number >= 1 && number <= m_steps.size() && !m_steps[number - 1].hasEnded) {
    m_steps[number - 1].isAborted = true;
    controller.abortTest(m_steps[number - 1].requestId);
  }
}

// A suspended test would never hear of the abort in some packages, so it is resumed first.
void Runner::abortAll() {
  m_isAborted = true;
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
    if (!step.hasEnded && isOver(step)) {
      over.push_back(&step);
    }
  }
  collectControllerEvents();
  collectEvents();
  collectResults();
  collectProgress();
  for (Step* step : over) {
    end(*step);
  }
}

Runner::Step* Runner::stepOf(unsigned int requestId) {
  const auto entry = m_stepByRequest.find(requestId);
  return entry != m_stepByRequest.end() ? &m_steps[entry->second] : nullptr;
}

// A request has ended when its status is final and its package's object is gone: an aborted one is
// final long before its package has returned.
bool Runner::isOver(Step& step) {
  DiagCtrl::TestRequest* request = nullptr;
  if (m_session.controller().getTestRequest(static_cast<int>(step.requestId), request) !=
      Controller::SUCCESS) {
    return true;
  }
  const auto status = request->getTestRequestStatus(-1);
  const bool isFinal =
      status == DiagCtrl::TestRequest::COMPLETED || status == DiagCtrl::TestRequest::ABORTED;
  return isFinal && request->ifIDiagnosticsDeleted();
}

void Runner::collectEvents() {
  DiagCtrl::EventVector* drained = nullptr;
  if (m_session.controller().getDiagnosticEvents(m_eventRegistration, drained) !=
      Controller::SUCCESS) {
    return;
  }
  forEachDrained(drained, [&](const Diag::DiagnosticEvent& event) {
    Step* step = stepOf(event.getTestRequestId());
    if (step == nullptr) {
      return;
    }
    const std::vector<std::string>& parameters = event.getParamVector();
    if (KitCodes::isMeasurement(event)) {
      tell(StepMeasurement{step->id, parameters[3], KitCodes::measuredValue(parameters[4]),
                           parameters[5], step->hardwareId});
      return;
    }
    if (KitCodes::isBookkeeping(event)) {
      return;
    }
    const int package = step->planned->pair.package->index;
    const std::string text = m_session.texts().message(package, event).value_or(plainText(event));
    const std::string action = m_session.texts().action(package, event).value_or("");
    if (KitCodes::isTrouble(event)) {
      step->hasTrouble = true;
      tell(StepTrouble{step->id, KitCodes::symptomOf(event), text, action});
      return;
    }
    step->lastWarning = {step->id, severityOf(event.getEventType()), text, action};
    tell(step->lastWarning);
  });
}

void Runner::collectResults() {
  DiagCtrl::ResultVector* drained = nullptr;
  if (m_session.controller().getDiagnosticResults(m_resultRegistration, drained) !=
      Controller::SUCCESS) {
    return;
  }
  forEachDrained(drained, [&](Diag::DiagnosticResult& result) {
    Step* step = stepOf(result.getTestRequestId());
    if (step == nullptr) {
      return;
    }
    StepDiagnosis diagnosis;
    diagnosis.stepId = step->id;
    diagnosis.hardwareId = step->hardwareId;
    diagnosis.pass = ++step->results;
    switch (result.getTestResult()) {
      case Diag::DiagnosticResult::PASSED:
        step->hasPassed = true;
        diagnosis.verdict = Verdict::pass;
        diagnosis.symptom = "passed";
        break;
      case Diag::DiagnosticResult::FAILED:
        step->hasFailed = true;
        diagnosis.verdict = Verdict::fail;
        diagnosis.symptom = "failed";
        diagnosis.message = step->lastWarning.text;
        diagnosis.action = step->lastWarning.action;
        break;
      case Diag::DiagnosticResult::UNUSUAL_STATUS:
        if (step->hasTrouble || step->isAborted) {
          return;  // told as trouble already, or ended by a person
        }
        step->hasWarning = true;
        diagnosis.verdict = Verdict::unknown;
        diagnosis.symptom = "unusual-status";
        diagnosis.message = step->lastWarning.text;
        diagnosis.action = step->lastWarning.action;
        break;
    }
    tell(diagnosis);
  });
}

void Runner::collectControllerEvents() {
  DiagCtrl::CtrlEventVector* drained = nullptr;
  if (m_session.controller().getDiagnosticCtrlEvents(m_controlRegistration, drained) !=
      Controller::SUCCESS) {
    return;
  }
  forEachDrained(drained, [&](const DiagCtrl::DiagCtrlEvent& event) {
    Step* step = stepOf(event.getTestRequestId());
    const CodeEntry* entry = findEvent(event.getEventCode());
    if (step == nullptr || entry == nullptr || step->hasEnded) {
      return;
    }
    switch (event.getEventCode()) {
      case DiagCtrl::DiagCtrlEvent::DROP_REQUEST_ON_COMPLETION:
      case DiagCtrl::DiagCtrlEvent::UNABLE_TO_PROCESS_TEST_REQUEST:  // waits for the machine
      case DiagCtrl::DiagCtrlEvent::ERROR_RECVD_AND_HALT_ON_ERROR:
        return;
      case DiagCtrl::DiagCtrlEvent::TEST_REQUEST_ABORTED:
        step->isAborted = true;
        return;
      default:
        step->hasTrouble = true;
        tell(StepTrouble{step->id, std::string(entry->name), std::string(entry->meaning),
                         std::string(entry->nextAction)});
    }
  });
}

void Runner::collectProgress() {
  for (Step& step : m_steps) {
    DiagCtrl::TestRequest::TestRequestStatus status{};
    int pass = 0;
    int passes = 0;
    bool stress = false;
    Controller& controller = m_session.controller();
    if (step.hasEnded || step.isAborted ||
        controller.getRequestStatus(static_cast<long>(step.requestId), status, pass, passes,
                                    stress) != Controller::SUCCESS ||
        status != DiagCtrl::TestRequest::RUNNING) {
      continue;
    }
    unsigned int percent = 0;
    if (controller.getDiagnosticProgress(step.requestId, percent) == Controller::SUCCESS &&
        percent != step.progress) {
      step.progress = percent;
      tell(StepProgress{step.id, percent, pass, passes});
    }
  }
}

void Runner::end(Step& step) {
  step.hasEnded = true;
  if (step.results == 0 && !step.isAborted && !step.hasTrouble) {
    step.hasTrouble = true;
    tell(StepTrouble{step.id, "no-result", "the package handed over no result",
                     "Look into the package's log."});
  }
  RunStatus status = RunStatus::complete;
  if (step.hasTrouble) {
    status = RunStatus::error;
  } else if (step.isAborted && !step.hasFailed) {
    status = RunStatus::skip;
  }
  tell(StepEnded{step.id, status});
}

RunSummary Runner::summarise() const {
  RunSummary summary;
  summary.skipped = m_plan.skipped.size();
  for (const Step& step : m_steps) {
    if (step.hasFailed) {
      ++summary.failed;
    } else if (step.hasTrouble) {
      ++summary.troubled;
    } else if (step.isAborted) {
      ++summary.aborted;
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
    return {RunStatus::complete, RunResult::fail};
  }
  if (summary.troubled > 0 || m_session.failedPackages() > 0) {
    return {RunStatus::error, RunResult::notApplicable};
  }
  if (summary.aborted > 0 || summary.ran() == 0) {
    return {RunStatus::skip, RunResult::notApplicable};
  }
  return {RunStatus::complete, RunResult::pass};
}

}  // namespace TarvexDiags::DiagCtl
