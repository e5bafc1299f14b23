#include "DiagCtrl/internal/ground/ClientCallCount.h"

#include <utility>

namespace TarvexDiags::DiagCtrl {

namespace {

// The scope that counts the call which this thread is in.
thread_local ClientCallScope* tCurrent = nullptr;
// How many calls it is in inside of that one.
thread_local unsigned int tDepth = 0;

}  // namespace

ClientCallScope::ClientCallScope(ClientCallCount& arCount) {
  if (tCurrent != nullptr) {
    ++tDepth;
    mbInside = true;
    return;
  }
  const System::LockHold hold(arCount.mMutex);
  if (arCount.mbClosed) {
    mbTurnedAway = true;
    return;
  }
  ++arCount.mulInside;
  mpCount = &arCount;
  tCurrent = this;
}

ClientCallScope::~ClientCallScope() {
  if (mbInside) {
    --tDepth;
  }
  leave();
}

void ClientCallScope::leave() {
  ClientCallCount* count = std::exchange(mpCount, nullptr);
  if (count == nullptr) {
    return;
  }
  tCurrent = nullptr;
  const System::LockHold hold(count->mMutex);
  if (--count->mulInside == 0) {
    count->mLastLeft.notifyAll();
  }
}

ClientCallClosure::ClientCallClosure(ClientCallCount& arCount) : mrCount(arCount) {
  const System::LockHold hold(mrCount.mMutex);
  mrCount.mbClosed = true;
  while (mrCount.mulInside != 0) {
    mrCount.mLastLeft.wait(mrCount.mMutex);
  }
}

ClientCallClosure::~ClientCallClosure() {
  const System::LockHold hold(mrCount.mMutex);
  mrCount.mbClosed = false;
}

void ClientCallScope::leaveCurrent() {
  if (tCurrent != nullptr && tDepth == 0) {
    tCurrent->leave();
  }
}

void ClientCallCount::beginLife() {
  const System::LockHold hold(mMutex);
  ++mulLife;
}

unsigned long ClientCallCount::life() {
  const System::LockHold hold(mMutex);
  return mulLife;
}

}  // namespace TarvexDiags::DiagCtrl
