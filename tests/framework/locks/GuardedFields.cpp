// What the compiler's check of locks must refuse. BREACH says which rule is broken; with 0 none is.

#include "DiagCtrl/ClientsAtRest.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "DiagCtrl/internal/foundation/AtRestScope.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "System/Lock.h"
#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class Shared {
 public:
  int readField() {
#if BREACH != 1
    const LockScope lock(mmtxLock, 0);
#endif
    return miField;
  }

  void writeField() {
    LockScope lock(mmtxLock, 0);
#if BREACH == 2
    lock.release();
#endif
    miField = 1;
  }

  void callHelper() {
#if BREACH != 3
    const LockScope lock(mmtxLock, 0);
#endif
    increment();
  }

  void notify() {
#if BREACH != 4
    const System::LockHold hold(mMutex);
#endif
    mIsReady = true;
    mReady.notifyAll();
  }

  void wait() {
    const System::LockHold hold(mMutex);
    while (!mIsReady) {
      mReady.wait(mMutex);
    }
  }

  int count() {
#if BREACH != 5
    const System::LockHold hold(mCopyable);
#endif
    return ++mCount;
  }

  int tryToRead() {
    if (!mmtxLock.tryLock()) {
      return 0;
    }
    const int value = miField;
#if BREACH != 6
    mmtxLock.unlock();
#endif
    return value;
  }

  void enumerate(PackageTestInfo& arTest) {
#if BREACH != 7
    const AtRestScope rest;
#endif
    arTest.setTestDisable(true);
  }

  void replaceAtRest() TARVEXDIAGS_REQUIRES(kClientsAtRest) {
#if BREACH != 8
    kClientsAtRest.standsFor(mmtxLock);
#endif
    miField = 2;
  }

  int readCatalogue() {
#if BREACH != 9
    kClientsAtRest.mayRead();
#endif
    return miCatalogue;
  }

  void writeCatalogue() {
    kClientsAtRest.mayRead();
#if BREACH == 10
    miCatalogue = 1;
#endif
  }

 private:
  void increment() TARVEXDIAGS_REQUIRES(mmtxLock) {
    ++miField;
  }

  DiagCtrlLock mmtxLock{DiagCtrlConstants::mSconlDefaultLockTimeOut};
  int miField TARVEXDIAGS_GUARDED_BY(mmtxLock) = 0;
  System::Mutex mMutex;
  System::ConditionVariable mReady;
  bool mIsReady TARVEXDIAGS_GUARDED_BY(mMutex) = false;
  System::Lock mCopyable;
  int mCount TARVEXDIAGS_GUARDED_BY(mCopyable) = 0;
  int miCatalogue TARVEXDIAGS_GUARDED_BY(kClientsAtRest) = 0;
};

int useAll(PackageTestInfo& arTest) {
  Shared shared;
  shared.writeField();
  shared.callHelper();
  shared.notify();
  shared.wait();
  shared.enumerate(arTest);
  {
    const AtRestScope rest;
    shared.replaceAtRest();
  }
  shared.writeCatalogue();
  return shared.readField() + shared.count() + shared.tryToRead() + shared.readCatalogue();
}

}  // namespace TarvexDiags::DiagCtrl
