#pragma once

#include <pthread.h>

#include <atomic>

#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

/// The mutex that every class with shared state holds as a member. Not re-entrant: a thread that
/// locks it twice blocks for ever. It never fails and never times out.
///
/// Thread-safety: any thread may call any operation. Does not trace, since the tracer locks.
class TARVEXDIAGS_EXPORT TARVEXDIAGS_CAPABILITY("mutex") DiagCtrlLock {
 public:
  /// @param aSconlTimeOutVal stored and never read; by convention `mSconlDefaultLockTimeOut`.
  explicit DiagCtrlLock(long aSconlTimeOutVal);
  DiagCtrlLock(const DiagCtrlLock&) = delete;
  DiagCtrlLock& operator=(const DiagCtrlLock&) = delete;

  /// Waits for a holder to leave before the mutex is destroyed.
  virtual ~DiagCtrlLock();

  /// Returns only when the caller holds the lock, however long that takes.
  /// @param alTimeOutValue accepted and ignored.
  virtual void lock(long alTimeOutValue) TARVEXDIAGS_ACQUIRE();

  /// Releases the lock if the caller is the recorded holder; otherwise does nothing at all.
  virtual void unlock() TARVEXDIAGS_RELEASE();

  /// One attempt that never blocks. @return true if the caller now holds the lock.
  bool tryLock() noexcept TARVEXDIAGS_TRY_ACQUIRE(true);

  /// The thread that most recently took the lock, also after it was released; without meaning
  /// before the first `lock`.
  pthread_t getCurrentThreadId() const noexcept { return mulCurrentThreadId; }

 private:
  signed long mlTimeValue;
  pthread_mutex_t* mpCtrlLock;
  // Read by `unlock` of threads that do not hold the mutex.
  std::atomic<pthread_t> mulCurrentThreadId{};
};

}  // namespace TarvexDiags::DiagCtrl
