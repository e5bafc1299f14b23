#pragma once

#include <pthread.h>

#include <ctime>

#include "DiagCtrl/DiagCtrlLock.h"
#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

/// The library's one wake-up primitive: a condition variable without a predicate. A plain waiter
/// sees only signals that come while it waits and must look at the real state afterwards.
///
/// A waiter that cannot afford to miss a signal takes a ticket before it looks at the state, and
/// waits with `timedWaitSince`: a signal given since the ticket ends the wait at once.
///
/// Thread-safety: any thread may call any operation. The owner sees to it that nobody waits when
/// the object is destroyed.
class TARVEXDIAGS_EXPORT DiagCtrlConditionVar {
 public:
  enum WaitRetStatus : unsigned int {
    waitAbandoned = 0,  ///< declared, never returned
    timedOut = 1,
    receivedSignal = 2,
  };

  DiagCtrlConditionVar();
  DiagCtrlConditionVar(const DiagCtrlConditionVar&) = delete;
  DiagCtrlConditionVar& operator=(const DiagCtrlConditionVar&) = delete;
  virtual ~DiagCtrlConditionVar();

  /// Blocks without limit until the next signal or a spurious wake-up.
  void wait();

  /// Blocks until a signal or the deadline.
  /// @param alTimeout milliseconds. They count from the start of the current second of the wall
  ///   clock, so a wait lasts up to that time and up to a second less.
  /// @throws DiagCtrlUnsupportedOperation for a negative value and for exactly 1000, which give a
  ///   deadline that the platform refuses.
  WaitRetStatus timedWait(long alTimeout);

  /// As `timedWait`, but returns `receivedSignal` at once if a signal was given since the ticket.
  WaitRetStatus timedWaitSince(long alTimeout, unsigned long aulTicket);

  /// The number of signals given so far, for `timedWaitSince`.
  unsigned long ticket() noexcept;

  /// Wakes one waiter, if any.
  void signal() noexcept;

  /// The same without a trace, for a wake-up that only saves a waiter some time.
  void nudge() noexcept;

 private:
  /// The platform's mutex, on which its condition variable waits.
  class TARVEXDIAGS_CAPABILITY("mutex") PlainMutex {
   public:
    void lock() TARVEXDIAGS_ACQUIRE() { pthread_mutex_lock(&handle); }
    void unlock() TARVEXDIAGS_RELEASE() { pthread_mutex_unlock(&handle); }

    pthread_mutex_t handle{};
  };

  WaitRetStatus waitUntilDeadline(long alTimeout) TARVEXDIAGS_REQUIRES(mut);
  static timespec convertTime(long alTimeout);

  pthread_cond_t mcondConditionVar{};
  PlainMutex mut;
  DiagCtrlLock mmtxDiagCtrlLock;
  DiagCtrlLock mmtxDiagCtrlSignalLock;
  DiagTracer* mpDiagTracer;
  unsigned long mulSignals TARVEXDIAGS_GUARDED_BY(mut) = 0;
};

}  // namespace TarvexDiags::DiagCtrl
