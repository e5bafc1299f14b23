#pragma once

#include "DiagCtrl/DiagCtrlLock.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

/// Holds a lock for a few loads and stores that are no operation of their own. Unlike `lock` it
/// does not yield the processor while the lock is free: with every core busy each yield costs the
/// caller a time slice.
class TARVEXDIAGS_SCOPED_CAPABILITY GateScope {
 public:
  explicit GateScope(DiagCtrlLock& arLock) TARVEXDIAGS_ACQUIRE(arLock) : mrLock(arLock) {
    if (!mrLock.tryLock()) {
      mrLock.lock(0);
    }
  }
  ~GateScope() TARVEXDIAGS_RELEASE() { mrLock.unlock(); }
  GateScope(const GateScope&) = delete;
  GateScope& operator=(const GateScope&) = delete;

 private:
  DiagCtrlLock& mrLock;
};

}  // namespace TarvexDiags::DiagCtrl
