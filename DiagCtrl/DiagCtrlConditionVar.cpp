#include "DiagCtrl/DiagCtrlConditionVar.h"

#include <pthread.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlUnsupportedOperation.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "System/Mutex.h"

namespace TarvexDiags::DiagCtrl {

DiagCtrlConditionVar::DiagCtrlConditionVar()
    : mmtxDiagCtrlLock(DiagCtrlConstants::mSconlDefaultLockTimeOut),
      mmtxDiagCtrlSignalLock(DiagCtrlConstants::mSconlDefaultLockTimeOut),
      mpDiagTracer(DiagTracer::getInstance()) {
  pthread_cond_init(&mcondConditionVar, nullptr);
  pthread_mutex_init(&mut.handle, nullptr);
}

DiagCtrlConditionVar::~DiagCtrlConditionVar() {
  pthread_cond_destroy(&mcondConditionVar);
  pthread_mutex_destroy(&mut.handle);
}

void DiagCtrlConditionVar::wait() {
  const TraceScope trace(mpDiagTracer, "DiagCtrlConditionVar::wait");
  const System::LockHold hold(mut);
  pthread_cond_wait(&mcondConditionVar, &mut.handle);
}

DiagCtrlConditionVar::WaitRetStatus DiagCtrlConditionVar::timedWait(long alTimeout) {
  const TraceScope trace(mpDiagTracer, "DiagCtrlConditionVar::timedWait");
  const System::LockHold hold(mut);
  return waitUntilDeadline(alTimeout);
}

DiagCtrlConditionVar::WaitRetStatus DiagCtrlConditionVar::timedWaitSince(long alTimeout,
                                                                         unsigned long aulTicket) {
  const TraceScope trace(mpDiagTracer, "DiagCtrlConditionVar::timedWait");
  const System::LockHold hold(mut);
  return mulSignals != aulTicket ? receivedSignal : waitUntilDeadline(alTimeout);
}

unsigned long DiagCtrlConditionVar::ticket() noexcept {
  const System::LockHold hold(mut);
  return mulSignals;
}

void DiagCtrlConditionVar::signal() noexcept {
  const TraceScope trace(mpDiagTracer, "DiagCtrlConditionVar::signal");
  nudge();
}

void DiagCtrlConditionVar::nudge() noexcept {
  const System::LockHold hold(mut);
  ++mulSignals;
  pthread_cond_signal(&mcondConditionVar);
}

DiagCtrlConditionVar::WaitRetStatus DiagCtrlConditionVar::waitUntilDeadline(long alTimeout) {
  const timespec deadline = convertTime(alTimeout);
  const auto usRetVal = static_cast<std::uint16_t>(
      pthread_cond_timedwait(&mcondConditionVar, &mut.handle, &deadline));
  switch (usRetVal) {
    case EINVAL:
    case EFAULT:
      raise<DiagCtrlUnsupportedOperation>(DiagCtrlBaseException::UnsupportedOperation,
                                          "DiagCtrlConditionVar::timedWait()");
    case ETIMEDOUT:
      return timedOut;
    default:
      return receivedSignal;
  }
}

timespec DiagCtrlConditionVar::convertTime(long alTimeout) {
  constexpr long kMillisecondsPerSecond = 1000;
  constexpr long kNanosecondsPerMillisecond = 1'000'000;
  // Whole seconds of the wall clock: the fraction of the current second is never added.
  timespec deadline{time(nullptr), 0};
  if (alTimeout > kMillisecondsPerSecond) {
    const ldiv_t parts = ldiv(alTimeout, kMillisecondsPerSecond);
    deadline.tv_sec += parts.quot;
    deadline.tv_nsec = parts.rem * kNanosecondsPerMillisecond;
  } else if (alTimeout >= 0) {
    deadline.tv_nsec = alTimeout * kNanosecondsPerMillisecond;
  } else {
    deadline.tv_nsec = -1;  // refused like any negative value, and cannot overflow
  }
  return deadline;
}

}  // namespace TarvexDiags::DiagCtrl
