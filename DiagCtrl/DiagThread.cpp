#include "DiagCtrl/DiagThread.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <initializer_list>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlInvalidParameter.h"
#include "DiagCtrl/DiagCtrlUnsupportedOperation.h"
#include "DiagCtrl/DiagThreadArgument.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/GateScope.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr auto kMinorLock = DiagCtrlBaseException::LockNotAcquired;

// Only the listed results count as failures; any other passes as success.
bool isOneOf(int aiResult, std::initializer_list<std::uint16_t> aFailures) {
  const auto result = static_cast<std::uint16_t>(aiResult);
  return std::find(aFailures.begin(), aFailures.end(), result) != aFailures.end();
}

void failIf(bool abFailed, unsigned long aulLine = __builtin_LINE()) {
  if (abFailed) {
    raise<DiagCtrlUnsupportedOperation>(DiagCtrlBaseException::UnsupportedOperation,
                                        "DiagThread::start()", __builtin_FILE(), aulLine);
  }
}

// The platform would follow the id of a thread that was never started, and need not notice a thread
// that waits for itself.
int joinThread(pthread_t aThread) {
  if (aThread == 0) {
    return ESRCH;
  }
  return pthread_equal(aThread, pthread_self()) != 0 ? EDEADLK : pthread_join(aThread, nullptr);
}

unsigned long secondsSinceEpoch() {
  return static_cast<unsigned long>(time(nullptr));
}

}  // namespace

DiagThread::DiagThread()
    : muThreadState(false),
      mCtrlLock(DiagCtrlConstants::mSconlDefaultLockTimeOut),
      meSchedPolicy(sched_Other),
      mulStackSize(0),
      mlTimeStamp(secondsSinceEpoch()),
      mthThreadID(0),
      mpDiagTracer(DiagTracer::getInstance()) {}

DiagThread::~DiagThread() = default;

unsigned long DiagThread::getRegisterId() {
  const TraceScope trace(mpDiagTracer, "DiagThread::getRegisterId");
  return 0;
}

void DiagThread::initialize(SchedulingPolicy aePolicy, unsigned long aulStackSize,
                            unsigned short /*ausPriority*/) {
  const TraceScope trace(mpDiagTracer, "DiagThread::initialize");
  if (aePolicy != sched_Other) {
    raise<DiagCtrlUnsupportedOperation>(DiagCtrlBaseException::UnsupportedOperation,
                                        "DiagThread::initialize()");
  }
  if (aulStackSize == 0) {
    raise<DiagCtrlInvalidParameter>(DiagCtrlBaseException::InvalidParameter,
                                    "DiagThread::initialize()");
  }
  const LockScope lock(mCtrlLock, 0, kMinorLock, "DiagThread::initialize()");
  meSchedPolicy = sched_Other;
  mulStackSize = aulStackSize;
}

void DiagThread::start(void* apRunArgument) {
  const TraceScope trace(mpDiagTracer, "DiagThread::start");
  pthread_attr_t attributes;
  failIf(isOneOf(pthread_attr_init(&attributes), {ENOMEM, EINVAL, EFAULT}));
  unsigned long stackSize = 0;
  {
    // Before the thread exists, so that its first look finds it wanted.
    const LockScope lock(mCtrlLock, 0, kMinorLock, "DiagThread::setPriority()");
    muThreadState = true;
    stackSize = mulStackSize;
  }
  failIf(isOneOf(pthread_attr_setstacksize(&attributes, stackSize), {EINVAL, EFAULT}));
  failIf(isOneOf(pthread_attr_setschedpolicy(&attributes, SCHED_OTHER), {EINVAL, EFAULT, ENOTSUP}));
  auto* argument = new DiagThreadArgument(this, apRunArgument);
  failIf(isOneOf(pthread_create(&mthThreadID, &attributes, proxyRun, argument),
                 {EINVAL, EPERM, EAGAIN}));
  pthread_attr_destroy(&attributes);
}

void DiagThread::stop() {
  const TraceScope trace(mpDiagTracer, "DiagThread::stop");
  const LockScope lock(mCtrlLock, 0, kMinorLock, "DiagThread::stop()");
  muThreadState = false;
}

void DiagThread::join() {
  const TraceScope trace(mpDiagTracer, "DiagThread::join");
  if (isOneOf(joinThread(mthThreadID), {ESRCH, EINVAL, EDEADLK})) {
    raise<DiagCtrlUnsupportedOperation>(DiagCtrlBaseException::UnsupportedOperation,
                                        "DiagThread::join()");
  }
}

bool DiagThread::isWanted() {
  const GateScope hold(mCtrlLock);
  return muThreadState;
}

bool DiagThread::getState() {
  const TraceScope trace(mpDiagTracer, "DiagThread::getState");
  const LockScope lock(mCtrlLock, 0, kMinorLock, "DiagThread::getState()");
  return muThreadState;
}

unsigned long DiagThread::getStacksize() {
  const TraceScope trace(mpDiagTracer, "DiagThread::getStacksize");
  const LockScope lock(mCtrlLock, 0, kMinorLock, "DiagThread::getState()");
  return mulStackSize;
}

unsigned long DiagThread::getLastUpdatedTime() {
  const TraceScope trace(mpDiagTracer, "DiagThread::getLastUpdatedTime");
  const LockScope lock(mCtrlLock, 0, kMinorLock, "DiagThread::getLastUpdatedTime()");
  return mlTimeStamp;
}

void DiagThread::updateTimeStamp() {
  const TraceScope trace(mpDiagTracer, "DiagThread::updateTimeStamp");
  const LockScope lock(mCtrlLock, 0, kMinorLock, "DiagThread::updateTimeStamp()");
  mlTimeStamp = secondsSinceEpoch();
}

const pthread_t& DiagThread::getId() const noexcept {
  const TraceScope trace(mpDiagTracer, "DiagThread::getId");
  return mthThreadID;
}

void* DiagThread::proxyRun(void* apArgument) {
  DiagThread* thread = nullptr;
  void* runArgument = nullptr;
  {
    auto* argument = static_cast<DiagThreadArgument*>(apArgument);
    thread = static_cast<DiagThread*>(argument->getThreadPtr());
    runArgument = argument->getThreadArgument();
    delete argument;
  }
  thread->run(runArgument);
  pthread_exit(nullptr);
}

}  // namespace TarvexDiags::DiagCtrl
