#include "diagctl/report/EventRelay.h"

#include <utility>
#include <variant>

namespace TarvexDiags::FrontEnd {

EventRelay::EventRelay(Tell tell, Idle idle)
    : m_tell(std::move(tell)), m_idle(std::move(idle)), m_thread([this] { run(); }) {}

EventRelay::~EventRelay() {
  end();
}

void EventRelay::post(RunEvent event) {
  const System::LockHold hold(m_lock);
  const bool maybeLeftOut = std::holds_alternative<StepProgress>(event.body) ||
                            std::holds_alternative<StepThroughput>(event.body) ||
                            std::holds_alternative<SeriesElement>(event.body);
  if (maybeLeftOut && m_waiting.size() >= kMostProgress) {
    return;
  }
  m_waiting.push_back(std::move(event));
  m_changed.notifyOne();
}

bool EventRelay::isBehind() const {
  const System::LockHold hold(m_lock);
  return m_taken > 0 || !m_waiting.empty();
}

void EventRelay::finish() {
  end();
  if (m_failure != nullptr) {
    std::rethrow_exception(std::exchange(m_failure, nullptr));
  }
}

void EventRelay::end() {
  {
    const System::LockHold hold(m_lock);
    m_hasEnded = true;
    m_changed.notifyOne();
  }
  if (m_thread.joinable()) {
    m_thread.join();
  }
}

void EventRelay::wake() {
  const System::LockHold hold(m_lock);
  m_isWoken = true;
  m_changed.notifyOne();
}

/// Waits for events; for none when there is time for something else, or the relay has ended.
std::deque<RunEvent> EventRelay::takeWaiting() {
  const System::LockHold hold(m_lock);
  const auto idleAt = std::chrono::steady_clock::now() + kIdleTime;
  bool isInTime = true;
  while (m_waiting.empty() && !m_hasEnded && !m_isWoken && isInTime) {
    if (m_idle == nullptr) {
      m_changed.wait(m_lock);
    } else {
      isInTime = m_changed.waitUntil(m_lock, idleAt);
    }
  }
  if (m_waiting.empty()) {
    m_isWoken = false;
  }
  m_taken = m_waiting.size();
  return std::exchange(m_waiting, {});
}

void EventRelay::tellAll(const std::deque<RunEvent>& taken) {
  try {
    if (taken.empty() && m_idle != nullptr && m_failure == nullptr) {
      m_idle();
    }
    for (const RunEvent& event : taken) {
      --m_taken;
      if (m_failure == nullptr) {
        m_tell(event);
      }
    }
  } catch (...) {
    m_failure = std::current_exception();
  }
}

// The lock is held while events change hands, and never while one is told.
void EventRelay::run() {
  for (;;) {
    const std::deque<RunEvent> taken = takeWaiting();
    if (taken.empty() && hasEnded()) {
      return;
    }
    tellAll(taken);
  }
}

bool EventRelay::hasEnded() const {
  const System::LockHold hold(m_lock);
  return m_hasEnded && m_waiting.empty();
}

}  // namespace TarvexDiags::FrontEnd
