#include "DiagCtrl/internal/ClientCallCount.h"

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
  const std::lock_guard<std::mutex> hold(arCount.mMutex);
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
  const std::lock_guard<std::mutex> hold(count->mMutex);
  if (--count->mulInside == 0) {
    count->mLastLeft.notify_all();
  }
}

ClientCallClosure::ClientCallClosure(ClientCallCount& arCount) : mrCount(arCount) {
  std::unique_lock<std::mutex> hold(mrCount.mMutex);
  mrCount.mbClosed = true;
  mrCount.mLastLeft.wait(hold, [this] { return mrCount.mulInside == 0; });
}

ClientCallClosure::~ClientCallClosure() {
  const std::lock_guard<std::mutex> hold(mrCount.mMutex);
  mrCount.mbClosed = false;
}

void ClientCallScope::leaveCurrent() {
  if (tCurrent != nullptr && tDepth == 0) {
    tCurrent->leave();
  }
}

void ClientCallCount::beginLife() {
  const std::lock_guard<std::mutex> hold(mMutex);
  ++mulLife;
}

unsigned long ClientCallCount::life() {
  const std::lock_guard<std::mutex> hold(mMutex);
  return mulLife;
}

}  // namespace TarvexDiags::DiagCtrl
