// What the compiler's check of locks must refuse, written in the style of the classes that it
// guards. BREACH says which rule is broken; with 0 none is.

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

/// The owner of what a step uses: the step keeps a reference to it.
class Owner {
 public:
  DiagCtrlLock mmtxLock{DiagCtrlConstants::mSconlDefaultLockTimeOut};
  int miUnderLock TARVEXDIAGS_GUARDED_BY(mmtxLock) = 0;
  int* mpiAtRest TARVEXDIAGS_GUARDED_BY(kClientsAtRest) = nullptr;
};

class Step {
 public:
  explicit Step(Owner& arOwner) : mrOwner(arOwner) {}

  void run() {
#if BREACH != 11
    const LockScope lock(mrOwner.mmtxLock, 0);
#endif
    write();
  }

  void replace() {
#if BREACH != 12
    const AtRestScope rest;
#endif
    renew(mrOwner.mpiAtRest);
  }

  int read() {
    kClientsAtRest.mayRead();
    const auto readInside = [&] {
#if BREACH != 13
      kClientsAtRest.mayRead();
#endif
      return mrOwner.mpiAtRest;
    };
    return *readInside();
  }

 private:
  static void renew(int*& arpObject) {
    arpObject = nullptr;
  }
  void write() TARVEXDIAGS_REQUIRES(mrOwner.mmtxLock) {
    mrOwner.miUnderLock = 1;
  }

  Owner& mrOwner;
};

int useAll(PackageTestInfo& arTest) {
  Owner owner;
  Step step(owner);
  step.run();
  step.replace();
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
  return shared.readField() + shared.count() + shared.tryToRead() + shared.readCatalogue() +
         step.read();
}

}  // namespace TarvexDiags::DiagCtrl
