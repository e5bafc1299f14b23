#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "DiagCtrl/CallBackObject.h"
#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::FrontEnd {

/// Waits for the controller's wake-ups on a thread of its own, since the wait on the controller's
/// object has no limit. Lives until the controller was shut down: nothing unregisters the object.
class Wakeups {
 public:
  Wakeups();
  ~Wakeups();
  Wakeups(const Wakeups&) = delete;
  Wakeups& operator=(const Wakeups&) = delete;

  /// What registrations are made with.
  DiagCtrl::CallBackObject& object() { return m_object; }

  /// Returns at the next wake-up, at once if there was one since the last call, or at the limit.
  void waitFor(std::chrono::milliseconds limit);

  /// Wakes as the controller does. From any thread.
  void wake();

 private:
  void run();

  DiagCtrl::CallBackObject m_object;
  std::atomic<bool> m_isWanted{true};
  std::atomic<bool> m_hasEnded{false};
  System::Mutex m_mutex;
  System::ConditionVariable m_condition;
  bool m_isPending TARVEXDIAGS_GUARDED_BY(m_mutex) = false;
  std::thread m_thread;
};

}  // namespace TarvexDiags::FrontEnd
