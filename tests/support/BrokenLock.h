#pragma once

#include <new>

#include "DiagCtrl/DiagControllerStatus.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "tests/support/PrivateMember.h"

TARVEX_PRIVATE_MEMBER(PhaseLockTag, DiagCtrl::DiagControllerStatus::mmtxDiagCtrlStatusLock);

namespace TarvexDiags::TestSupport {

/// A lock that cannot be taken, which the library's own never is.
class UntakeableLock final : public DiagCtrl::DiagCtrlLock {
 public:
  UntakeableLock() : DiagCtrlLock(DiagCtrl::DiagCtrlConstants::mSconlDefaultLockTimeOut) {}
  void lock(long /*alTimeOutValue*/) override {
    throw DiagCtrl::DiagCtrlMutexException(DiagCtrl::DiagCtrlBaseException::LockTimeOut, 1,
                                           "elsewhere.cpp", "UntakeableLock::lock()");
  }
};

/// Puts a lock that cannot be taken in the place of an object's own for a scope: shows what the
/// object makes of a failure that never comes. Nobody may hold the lock or wait for it.
///
///   const BrokenLock broken(privateMember<QueueLockTag>(manager));
///   EXPECT_THROW(manager.createQueue(), DiagCtrlMutexException);
///
/// Works only where locksCanBreak says so.
class BrokenLock {
 public:
  explicit BrokenLock(DiagCtrl::DiagCtrlLock& lock) : m_place(&lock) {
    static_assert(sizeof(UntakeableLock) == sizeof(DiagCtrl::DiagCtrlLock));
    lock.~DiagCtrlLock();
    new (m_place) UntakeableLock;
  }
  ~BrokenLock() {
    static_cast<UntakeableLock*>(m_place)->~UntakeableLock();
    new (m_place) DiagCtrl::DiagCtrlLock(DiagCtrl::DiagCtrlConstants::mSconlDefaultLockTimeOut);
  }
  BrokenLock(const BrokenLock&) = delete;
  BrokenLock& operator=(const BrokenLock&) = delete;

 private:
  void* m_place;
};

/// Whether the library asks which lock it holds. Fully optimised it does not: it knows its own.
inline bool locksCanBreak() {
  DiagCtrl::DiagControllerStatus status;
  const BrokenLock broken(privateMember<PhaseLockTag>(status));
  try {
    status.getDiagCtrlPhase(-1);
    return false;
  } catch (const DiagCtrl::DiagCtrlMutexException&) {
    return true;
  }
}

}  // namespace TarvexDiags::TestSupport
