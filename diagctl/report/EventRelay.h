#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <thread>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "diagctl/report/RunEvents.h"

namespace TarvexDiags::FrontEnd {

/// Tells the events of a run on a thread of its own, in their order: a terminal that stands still
/// or a pipe that nobody reads holds that thread up, and never the run.
class EventRelay {
 public:
  using Tell = std::function<void(const RunEvent&)>;
  using Idle = std::function<void()>;

  /// Progress, and values of sensors, beyond so many events that wait are left out: the next one
  /// tells the same, later.
  static constexpr std::size_t kMostProgress = 1000;

  /// How long nothing is told before `idle` is called, and between two such calls.
  static constexpr std::chrono::milliseconds kIdleTime{100};

  /// @param tell called on the thread of the relay alone. @param idle the same, while no event
  ///   waits; null: nothing is to be done then.
  explicit EventRelay(Tell tell, Idle idle = nullptr);
  /// Waits until everything was told, whatever came of it.
  ~EventRelay();
  EventRelay(const EventRelay&) = delete;
  EventRelay& operator=(const EventRelay&) = delete;

  /// Takes an event over; never waits for it to be told.
  void post(RunEvent event);

  /// Has `idle` called at once, or behind the events that wait. From any thread.
  void wake();

  /// Whether events wait behind the one that is being told. For the teller.
  bool isBehind() const;

  /// Waits until everything was told, and ends.
  /// @throws what the teller has thrown; what came behind that was not told.
  void finish();

 private:
  void run();
  std::deque<RunEvent> takeWaiting();
  void tellAll(const std::deque<RunEvent>& taken);
  bool hasEnded() const;
  void end();

  Tell m_tell;
  Idle m_idle;
  mutable System::Mutex m_lock;
  System::ConditionVariable m_changed;
  std::deque<RunEvent> m_waiting TARVEXDIAGS_GUARDED_BY(m_lock);
  bool m_isWoken TARVEXDIAGS_GUARDED_BY(m_lock) = false;
  bool m_hasEnded TARVEXDIAGS_GUARDED_BY(m_lock) = false;
  std::size_t m_taken = 0;       ///< by the thread, that it has not begun to tell
  std::exception_ptr m_failure;  ///< of the thread; looked at when it has ended
  std::thread m_thread;
};

}  // namespace TarvexDiags::FrontEnd
