#include "diagctl/report/EventRelay.h"

#include <utility>
#include <variant>

namespace TarvexDiags::FrontEnd {

EventRelay::EventRelay(Tell tell) : m_tell(std::move(tell)), m_thread([this] { run(); }) {}

EventRelay::~EventRelay() {
  end();
}

void EventRelay::post(RunEvent event) {
  const System::LockHold hold(m_lock);
  const bool maybeLeftOut = std::holds_alternative<StepProgress>(event.body) ||
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

// The lock is held while events change hands, and never while one is told.
void EventRelay::run() {
  for (;;) {
    std::deque<RunEvent> taken;
    {
      const System::LockHold hold(m_lock);
      while (m_waiting.empty() && !m_hasEnded) {
        m_changed.wait(m_lock);
      }
      if (m_waiting.empty()) {
        return;
      }
      taken.swap(m_waiting);
    }
    m_taken = taken.size();
    try {
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
}

}  // namespace TarvexDiags::FrontEnd
