#pragma once

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

/// The trace of a method that does one thing under one lock, and the lock.
class TARVEXDIAGS_SCOPED_CAPABILITY LockedMethod {
 public:
  /// @param apcMethod "Class::method". @param apcText what a failure to lock is named after.
  LockedMethod(DiagTracer* apDiagTracer, const char* apcMethod, DiagCtrlLock& arLock,
               long alTimeOutValue, DiagCtrlBaseException::MinorCodeEnum aeMinorCode,
               const char* apcText, const char* apcFile = __builtin_FILE(),
               unsigned long aulLine = __builtin_LINE()) TARVEXDIAGS_ACQUIRE(arLock)
      : mTrace(apDiagTracer, apcMethod),
        mLock(arLock, alTimeOutValue, aeMinorCode, apcText, apcFile, aulLine) {}
  // It is there for its mark.
  ~LockedMethod() TARVEXDIAGS_RELEASE() {}  // NOLINT(*-equals-default)
  LockedMethod(const LockedMethod&) = delete;
  LockedMethod& operator=(const LockedMethod&) = delete;

  const TraceScope& trace() const noexcept { return mTrace; }

 private:
  TraceScope mTrace;
  LockScope mLock;
};

}  // namespace TarvexDiags::DiagCtrl
