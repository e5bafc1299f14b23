#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

/// Holds a lock for a scope. A failure to take it is traced, and leaves as a new exception that
/// names the operation.
class TARVEXDIAGS_SCOPED_CAPABILITY TracedLock {
 public:
  TracedLock(const TraceScope& arTrace, DiagCtrlLock& arLock, long alTimeOut, const char* apcText,
             const char* apcFile = __builtin_FILE(), int aiLine = __builtin_LINE())
      TARVEXDIAGS_ACQUIRE(arLock)
      : mrLock(arLock) {
    try {
      arLock.lock(alTimeOut);
    } catch (DiagCtrlMutexException& failure) {
      arTrace.error(std::string(arTrace.method()) + " - Mutex Exception : " + failure.dump(),
                    apcFile, aiLine);
      raise<DiagCtrlMutexException>(DiagCtrlBaseException::MutexException, apcText, apcFile,
                                    static_cast<unsigned long>(aiLine));
    }
  }
  ~TracedLock() TARVEXDIAGS_RELEASE() { mrLock.unlock(); }
  TracedLock(const TracedLock&) = delete;
  TracedLock& operator=(const TracedLock&) = delete;

 private:
  DiagCtrlLock& mrLock;
};

}  // namespace TarvexDiags::DiagCtrl
