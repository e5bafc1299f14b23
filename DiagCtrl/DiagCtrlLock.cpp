#include "DiagCtrl/DiagCtrlLock.h"

#include <pthread.h>
#include <sched.h>

#include "DiagCtrl/DiagCtrlConstants.h"

namespace TarvexDiags::DiagCtrl {

DiagCtrlLock::DiagCtrlLock(long aSconlTimeOutVal)
    : mlTimeValue(aSconlTimeOutVal), mpCtrlLock(new pthread_mutex_t) {
  pthread_mutex_init(mpCtrlLock, nullptr);
}

DiagCtrlLock::~DiagCtrlLock() {
  pthread_mutex_lock(mpCtrlLock);
  pthread_mutex_unlock(mpCtrlLock);
  pthread_mutex_destroy(mpCtrlLock);
  delete mpCtrlLock;
}

void DiagCtrlLock::lock(long /*alTimeOutValue*/) {
  bool acquired = false;
  for (unsigned short tries = DiagCtrlConstants::mSusconTryCount; tries > 0 && !acquired; --tries) {
    acquired = pthread_mutex_trylock(mpCtrlLock) == 0;
    sched_yield();  // also after success: short critical sections elsewhere get their turn
  }
  if (!acquired) {
    sched_yield();
    pthread_mutex_lock(mpCtrlLock);
  }
  mulCurrentThreadId = pthread_self();
}

void DiagCtrlLock::unlock() {
  if (pthread_equal(pthread_self(), mulCurrentThreadId) != 0) {
    pthread_mutex_unlock(mpCtrlLock);
  }
}

bool DiagCtrlLock::tryLock() noexcept {
  if (pthread_mutex_trylock(mpCtrlLock) != 0) {
    return false;
  }
  mulCurrentThreadId = pthread_self();
  return true;
}

}  // namespace TarvexDiags::DiagCtrl
