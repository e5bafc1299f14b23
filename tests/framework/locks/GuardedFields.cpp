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
    const LockScope lock(m_mmtxLock, 0);
#endif
    return m_miField;
  }

  void writeField() {
    LockScope lock(m_mmtxLock, 0);
#if BREACH == 2
    lock.release();
#endif
    m_miField = 1;
  }

  void callHelper() {
#if BREACH != 3
    const LockScope lock(m_mmtxLock, 0);
#endif
    increment();
  }

  void notify() {
#if BREACH != 4
    const System::LockHold hold(m_mMutex);
#endif
    m_mIsReady = true;
    m_mReady.notifyAll();
  }

  void wait() {
    const System::LockHold hold(m_mMutex);
    while (!m_mIsReady) {
      m_mReady.wait(m_mMutex);
    }
  }

  int count() {
#if BREACH != 5
    const System::LockHold hold(m_mCopyable);
#endif
    return ++m_mCount;
  }

  int tryToRead() {
    if (!m_mmtxLock.tryLock()) {
      return 0;
    }
    const int value = m_miField;
#if BREACH != 6
    m_mmtxLock.unlock();
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
    kClientsAtRest.standsFor(m_mmtxLock);
#endif
    m_miField = 2;
  }

  int readCatalogue() {
#if BREACH != 9
    kClientsAtRest.mayRead();
#endif
    return m_miCatalogue;
  }

  void writeCatalogue() {
    kClientsAtRest.mayRead();
#if BREACH == 10
    miCatalogue = 1;
#endif
  }

 private:
  void increment() TARVEXDIAGS_REQUIRES(m_mmtxLock) {
    ++m_miField;
  }

  DiagCtrlLock m_mmtxLock{DiagCtrlConstants::mSconlDefaultLockTimeOut};
  int m_miField TARVEXDIAGS_GUARDED_BY(m_mmtxLock) = 0;
  System::Mutex m_mMutex;
  System::ConditionVariable m_mReady;
  bool m_mIsReady TARVEXDIAGS_GUARDED_BY(m_mMutex) = false;
  System::Lock m_mCopyable;
  int m_mCount TARVEXDIAGS_GUARDED_BY(m_mCopyable) = 0;
  int m_miCatalogue TARVEXDIAGS_GUARDED_BY(kClientsAtRest) = 0;
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
  explicit Step(Owner& arOwner) : m_mrOwner(arOwner) {}

  void run() {
#if BREACH != 11
    const LockScope lock(m_mrOwner.mmtxLock, 0);
#endif
    write();
  }

  void replace() {
#if BREACH != 12
    const AtRestScope rest;
#endif
    renew(m_mrOwner.mpiAtRest);
  }

  int read() {
    kClientsAtRest.mayRead();
    const auto readInside = [&] {
#if BREACH != 13
      kClientsAtRest.mayRead();
#endif
      return m_mrOwner.mpiAtRest;
    };
    return *readInside();
  }

 private:
  static void renew(int*& arpObject) {
    arpObject = nullptr;
  }
  void write() TARVEXDIAGS_REQUIRES(m_mrOwner.mmtxLock) {
    m_mrOwner.miUnderLock = 1;
  }

  Owner& m_mrOwner;
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
