#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <thread>

#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "diagctl/session/Inbox.h"
#include "diagctl/session/Session.h"

namespace TarvexDiags::FrontEnd {

/// What one look at the controller's queues found. A message that was taken out leaves null.
struct Mail {
  std::deque<std::unique_ptr<DiagCtrl::DiagCtrlEvent>> controllerEvents;
  std::deque<std::unique_ptr<Diag::DiagnosticEvent>> events;
  std::deque<std::unique_ptr<Diag::DiagnosticResult>> results;

  bool isEmpty() const { return controllerEvents.empty() && events.empty() && results.empty(); }
};

/// Collects messages on a thread of its own, ahead of other threads where the user may have that,
/// so that neither a flood of messages nor a busy machine keeps the run from hearing a person.
class Collector {
 public:
  /// @param session outlives the collector. @param onTurn called by the thread at each turn, ten
  /// times a second at least: what must not wait until messages were judged.
  /// @throws ControllerFailure
  Collector(Session& session, std::function<void()> onTurn);
  /// Waits until the thread has ended.
  ~Collector();
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  /// Collects what the controller holds now, and hands over all that was collected, oldest first.
  /// @param mail gets it behind what it holds. @throws what the thread has thrown.
  void moveTo(std::deque<Mail>& mail);

  /// Waits until there is mail, at most until the limit. @throws what the thread has thrown.
  void waitFor(std::chrono::milliseconds limit);

 private:
  void run();
  void takeTurns();
  void collect() TARVEXDIAGS_REQUIRES(m_lock);
  void rethrowFailure() TARVEXDIAGS_REQUIRES(m_lock);

  Session& m_session;
  std::function<void()> m_onTurn;
  System::Mutex m_lock;
  System::ConditionVariable m_hasMail;
  Inbox<Diag::DiagnosticEvent> m_events TARVEXDIAGS_GUARDED_BY(m_lock);
  Inbox<Diag::DiagnosticResult> m_results TARVEXDIAGS_GUARDED_BY(m_lock);
  std::deque<Mail> m_mail TARVEXDIAGS_GUARDED_BY(m_lock);
  std::exception_ptr m_failure TARVEXDIAGS_GUARDED_BY(m_lock);
  std::atomic<bool> m_isWanted{true};
  std::thread m_thread;
};

}  // namespace TarvexDiags::FrontEnd
