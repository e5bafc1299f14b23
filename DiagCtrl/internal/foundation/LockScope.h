#pragma once

#include <mutex>
#include <utility>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

/// The time-out that is passed on to a lock: -1 stays -1, anything else becomes 0. Locks ignore it.
inline long lockTimeOut(long alTimeOutValue) noexcept {
  return alTimeOutValue == -1 ? -1 : 0;
}

/// Holds a lock for a scope. A DiagCtrlMutexException from the lock leaves as a new one that names
/// the method which wanted the lock.
class TARVEXDIAGS_SCOPED_CAPABILITY LockScope {
 public:
  /// @param apcText "Class::method()", a literal.
  LockScope(DiagCtrlLock& arLock, long alTimeOutValue,
            DiagCtrlBaseException::MinorCodeEnum aeMinorCode, const char* apcText,
            const char* apcFile = __builtin_FILE(), unsigned long aulLine = __builtin_LINE())
      TARVEXDIAGS_ACQUIRE(arLock)
      : mpLock(&arLock) {
    try {
      arLock.lock(alTimeOutValue);
    } catch (const DiagCtrlMutexException&) {
      throw DiagCtrlMutexException(aeMinorCode, aulLine, apcFile, apcText);
    }
  }
  /// For the few places whose caller handles the lock's own exception.
  LockScope(DiagCtrlLock& arLock, long alTimeOutValue) TARVEXDIAGS_ACQUIRE(arLock)
      : mpLock(&arLock) {
    arLock.lock(alTimeOutValue);
  }
  /// Takes a lock over that the caller holds.
  LockScope(DiagCtrlLock& arLock, std::adopt_lock_t /*aHeld*/) TARVEXDIAGS_REQUIRES(arLock)
      : mpLock(&arLock) {}
  /// For a client call, whose answer to a lock that cannot be taken is `arFailure`.
  template <class Failure>
  LockScope(DiagCtrlLock& arLock, long alTimeOutValue, const Failure& arFailure)
      TARVEXDIAGS_ACQUIRE(arLock)
      : mpLock(&arLock) {
    try {
      arLock.lock(alTimeOutValue);
    } catch (const DiagCtrlMutexException&) {
      throw arFailure;
    }
  }
  ~LockScope() TARVEXDIAGS_RELEASE() { release(); }
  LockScope(LockScope&& arOther) noexcept : mpLock(std::exchange(arOther.mpLock, nullptr)) {}
  LockScope& operator=(LockScope&&) = delete;
  LockScope(const LockScope&) = delete;
  LockScope& operator=(const LockScope&) = delete;

  /// Gives the lock back before the end of the scope.
  void release() TARVEXDIAGS_RELEASE() {
    if (mpLock != nullptr) {
      mpLock->unlock();
      mpLock = nullptr;
    }
  }

  /// Leaves the lock held when the scope ends, on purpose. The compiler does not know: to it the
  /// lock is free again. Each caller says why nobody may have it any more.
  void keepHeld() noexcept { mpLock = nullptr; }

 private:
  DiagCtrlLock* mpLock;
};

}  // namespace TarvexDiags::DiagCtrl
