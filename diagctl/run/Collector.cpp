#include "diagctl/run/Collector.h"

#include <iterator>
#include <utility>

#include "diagctl/session/Precedence.h"

namespace TarvexDiags::FrontEnd {

namespace {

// How long a turn waits for a wake-up; a lost one costs no more than that.
constexpr std::chrono::milliseconds kLongestWait{100};
constexpr int kNiceness = -5;

}  // namespace

Collector::Collector(Session& session, std::function<void()> onTurn)
    : m_session(session), m_onTurn(std::move(onTurn)) {
  {
    const System::LockHold hold(m_lock);
    m_events.open(session.controller(), session.wakeups());
    m_results.open(session.controller(), session.wakeups());
  }
  m_thread = std::thread([this] { run(); });
}

Collector::~Collector() {
  m_isWanted = false;
  m_session.wakeups().wake();
  m_thread.join();
}

void Collector::run() {
  try {
    const Precedence precedence(kNiceness);
    takeTurns();
  } catch (...) {
    const System::LockHold hold(m_lock);
    m_failure = std::current_exception();
    m_hasMail.notifyOne();
  }
}

void Collector::takeTurns() {
  while (m_isWanted) {
    m_onTurn();
    {
      const System::LockHold hold(m_lock);
      collect();
      if (!m_mail.empty()) {
        m_hasMail.notifyOne();
      }
    }
    m_session.wakeups().waitFor(kLongestWait);
  }
}

// Results first, which are judged last: an event that a package raised before its result is in the
// queue by then, so none of a pass is missed.
void Collector::collect() {
  Mail mail;
  m_session.controllerEvents().drain();
  m_results.drain();
  m_events.drain();
  mail.controllerEvents = m_session.controllerEvents().takeAll();
  mail.results = m_results.takeAll();
  mail.events = m_events.takeAll();
  if (!mail.isEmpty()) {
    m_mail.push_back(std::move(mail));
  }
}

void Collector::rethrowFailure() {
  if (m_failure != nullptr) {
    std::rethrow_exception(std::exchange(m_failure, nullptr));
  }
}

void Collector::moveTo(std::deque<Mail>& mail) {
  const System::LockHold hold(m_lock);
  rethrowFailure();
  collect();
  std::move(m_mail.begin(), m_mail.end(), std::back_inserter(mail));
  m_mail.clear();
}

void Collector::waitFor(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  const System::LockHold hold(m_lock);
  while (m_mail.empty() && m_failure == nullptr && m_hasMail.waitUntil(m_lock, deadline)) {
  }
  rethrowFailure();
}

}  // namespace TarvexDiags::FrontEnd
