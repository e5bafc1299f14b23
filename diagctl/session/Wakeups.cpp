#include "diagctl/session/Wakeups.h"

namespace TarvexDiags::FrontEnd {

Wakeups::Wakeups() : m_thread([this] { run(); }) {}

// A wake-up is not remembered, so one is given until the thread has seen it.
Wakeups::~Wakeups() {
  m_isWanted = false;
  while (!m_hasEnded) {
    m_object.notify();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  m_thread.join();
}

void Wakeups::waitFor(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  const System::LockHold lock(m_mutex);
  while (!m_isPending && m_condition.waitUntil(m_mutex, deadline)) {
  }
  m_isPending = false;
}

void Wakeups::run() {
  while (m_isWanted) {
    m_object.wait();
    wake();
  }
  m_hasEnded = true;
}

void Wakeups::wake() {
  const System::LockHold lock(m_mutex);
  m_isPending = true;
  m_condition.notifyOne();
}

}  // namespace TarvexDiags::FrontEnd
