#pragma once

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

/// Counts the client calls that are using what a shut-down takes down, so that it can wait for
/// them. Calls under the big lock are not counted: a shut-down holds that lock.
///
/// Nothing here allocates, traces or yields.
class ClientCallCount {
 public:
  ClientCallCount() = default;
  ClientCallCount(const ClientCallCount&) = delete;
  ClientCallCount& operator=(const ClientCallCount&) = delete;

  /// Begins another life of the controller.
  void beginLife();
  /// The number of the present life. It does not change while a call is counted.
  unsigned long life();

 private:
  friend class ClientCallScope;
  friend class ClientCallClosure;

  System::Mutex mMutex;
  System::ConditionVariable mLastLeft;
  unsigned long mulInside TARVEXDIAGS_GUARDED_BY(mMutex) = 0;
  unsigned long mulLife TARVEXDIAGS_GUARDED_BY(mMutex) = 0;
  bool mbClosed TARVEXDIAGS_GUARDED_BY(mMutex) = false;
};

/// One call, counted from the construction to `leave` or the end of the scope, whichever way that
/// comes. A call inside a counted one, on the same thread, is neither counted nor turned away.
class ClientCallScope {
 public:
  explicit ClientCallScope(ClientCallCount& arCount);
  ~ClientCallScope();
  ClientCallScope(const ClientCallScope&) = delete;
  ClientCallScope& operator=(const ClientCallScope&) = delete;

  /// Whether a shut-down is taking everything down: the call was not counted and touches nothing.
  bool isTurnedAway() const noexcept { return mbTurnedAway; }
  void leave();

  /// Ends the counting of the call that the calling thread is in, if any: a call raises its event
  /// when it uses nothing any more. A call inside another one leaves that one counted.
  static void leaveCurrent();

 private:
  ClientCallCount* mpCount = nullptr;  ///< null while it does not count
  bool mbInside = false;               ///< inside another one
  bool mbTurnedAway = false;
};

/// For a shut-down: turns new calls away for a scope, and waits at its start, without limit, until
/// no call is inside.
class ClientCallClosure {
 public:
  explicit ClientCallClosure(ClientCallCount& arCount);
  ~ClientCallClosure();
  ClientCallClosure(const ClientCallClosure&) = delete;
  ClientCallClosure& operator=(const ClientCallClosure&) = delete;

 private:
  ClientCallCount& mrCount;
};

}  // namespace TarvexDiags::DiagCtrl
