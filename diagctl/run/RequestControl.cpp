#include "diagctl/run/RequestControl.h"

#include <utility>

namespace TarvexDiags::FrontEnd {

namespace {

using Controller = DiagCtrl::DiagnosticController;

}  // namespace

RequestControl::RequestControl(Controller& controller, RunRequests& wishes,
                               std::function<void()> onEnding)
    : m_controller(controller),
      m_watch(controller),
      m_wishes(wishes),
      m_onEnding(std::move(onEnding)),
      m_start(std::chrono::steady_clock::now()) {}

void RequestControl::start(std::optional<unsigned long> totalSeconds) {
  const System::LockHold hold(m_lock);
  m_start = std::chrono::steady_clock::now();
  m_totalSeconds = totalSeconds;
}

void RequestControl::takeTurn() {
  if (m_wishes.abortAll.exchange(false)) {
    end(Ending::Interrupted);
  }
  if (isTimeUsedUp()) {
    end(Ending::TimeUsedUp);
  }
  const System::LockHold hold(m_lock);
  if (m_wishes.suspendAll.exchange(false)) {
    m_hold = Hold::Suspended;
  }
  if (m_wishes.resumeAll.exchange(false)) {
    m_hold = Hold::Resumed;
  }
  suspendOrResume();
  abortStep(m_wishes.abortStep.exchange(0));
}

// In whole seconds: a long time has more nanoseconds than can be counted.
bool RequestControl::isTimeUsedUp() const {
  const System::LockHold hold(m_lock);
  const auto spent =
      std::chrono::floor<std::chrono::seconds>(std::chrono::steady_clock::now() - m_start);
  return m_totalSeconds && static_cast<unsigned long>(spent.count()) >= *m_totalSeconds;
}

void RequestControl::add(unsigned long requestId, unsigned long step) {
  const System::LockHold hold(m_lock);
  const auto added = m_requests.insert_or_assign(requestId, Request{.step = step}).first;
  if (isEnding()) {
    abort(*added, m_watch.runningPass(requestId).has_value());
  }
}

void RequestControl::remove(unsigned long requestId) {
  const System::LockHold hold(m_lock);
  m_requests.erase(requestId);
}

// Under the lock, or a request that comes just then might be aborted by nobody.
void RequestControl::end(Ending why) {
  const System::LockHold hold(m_lock);
  if (isEnding()) {
    return;
  }
  m_ending = why;
  m_onEnding();
  m_hold = Hold::None;
  abortAll();
}

// What waits comes first, or the end of what runs would let it begin. A suspended test would never
// hear of the abort in some packages, so it is resumed.
void RequestControl::abortAll() {
  for (const bool runs : {false, true}) {
    for (Requests::value_type& request : m_requests) {
      if (!request.second.isAborted && (runs || !m_watch.runningPass(request.first))) {
        m_controller.resumeTest(request.first);
        abort(request, m_watch.runningPass(request.first).has_value());
      }
    }
  }
}

// A person sees the repetitions of a test as the test itself.
void RequestControl::abortStep(unsigned long step) {
  if (step == 0) {
    return;
  }
  m_aborts.step = step;
  for (Requests::value_type& request : m_requests) {
    if (request.second.step == step) {
      abort(request, m_watch.runningPass(request.first).has_value());
    }
  }
}

void RequestControl::abort(Requests::value_type& request, bool isRunning) {
  request.second.isAborted = true;
  m_aborts.requests.push_back({request.first, isRunning});
  m_controller.abortTest(request.first);
}

// The controller leaves a request between two passes alone, so what is wanted is said at each turn.
void RequestControl::suspendOrResume() {
  if (m_hold == Hold::None) {
    return;
  }
  const bool suspends = m_hold == Hold::Suspended;
  for (auto& [requestId, request] : m_requests) {
    const auto code =
        suspends ? m_controller.suspendTest(requestId) : m_controller.resumeTest(requestId);
    if (code == Controller::SUCCESS) {
      request.isSuspended = suspends;
    }
  }
}

bool RequestControl::isSuspended(unsigned long requestId) const {
  const System::LockHold hold(m_lock);
  const auto request = m_requests.find(requestId);
  return request != m_requests.end() && request->second.isSuspended;
}

RequestControl::Aborts RequestControl::takeAborts() {
  const System::LockHold hold(m_lock);
  return std::exchange(m_aborts, {});
}

}  // namespace TarvexDiags::FrontEnd
