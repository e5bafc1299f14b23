#include "DiagCtrl/PackageTestInfo.h"

#include <list>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

void replaceText(char*& arpcText, char* apcNew) {
  if (arpcText != apcNew) {
    delete[] arpcText;
    arpcText = apcNew;
  }
}

}  // namespace

PackageTestInfo::PackageTestInfo()
    : mpcTestName(nullptr),
      mbTestDisable(false),
      mpcTestDescrpition(nullptr),
      mpcTestCapabilities(nullptr),
      mpcTestOpenMode(nullptr),
      miTestEstimatedTime(0),
      mmtxDisDeviceListLock(DiagCtrlConstants::mSconlDefaultLockTimeOut),
      mpDiagTracer(DiagTracer::getInstance()) {}

PackageTestInfo::~PackageTestInfo() {
  for (char* text : {mpcTestName, mpcTestDescrpition, mpcTestCapabilities, mpcTestOpenMode}) {
    delete[] text;
  }
}

const char* PackageTestInfo::getTestName() noexcept {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::getTestName");
  kClientsAtRest.mayRead();
  return mpcTestName;
}

const char* PackageTestInfo::getTestDesc() noexcept {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::getTestDesc");
  kClientsAtRest.mayRead();
  return mpcTestDescrpition;
}

const char* PackageTestInfo::getTestCapabilities() noexcept {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::getTestCapabilities");
  kClientsAtRest.mayRead();
  return mpcTestCapabilities;
}

const char* PackageTestInfo::getTestOpenMode() noexcept {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::getTestOpenMode");
  kClientsAtRest.mayRead();
  return mpcTestOpenMode;
}

bool PackageTestInfo::getTestDisable() noexcept {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::getTestDisable");
  kClientsAtRest.mayRead();
  return mbTestDisable;
}

int PackageTestInfo::getTestEstimatedTime() noexcept {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::getTestEstimatedTime");
  kClientsAtRest.mayRead();
  return miTestEstimatedTime;
}

void PackageTestInfo::setTestName(char* apcTestName) noexcept {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::setTestName");
  replaceText(mpcTestName, apcTestName);
}

void PackageTestInfo::setTestDesc(char* apcTestDesc) noexcept {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::setTestDesc");
  replaceText(mpcTestDescrpition, apcTestDesc);
}

void PackageTestInfo::setTestCapabilities(char* apcTestCapabilities) noexcept {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::setTestCapabilities");
  replaceText(mpcTestCapabilities, apcTestCapabilities);
}

void PackageTestInfo::setTestOpenMode(char* apcTestOpenMode) noexcept {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::setTestOpenMode");
  replaceText(mpcTestOpenMode, apcTestOpenMode);
}

void PackageTestInfo::setTestDisable(bool abTestDisable) noexcept {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::setTestDisable");
  mbTestDisable = abTestDisable;
}

void PackageTestInfo::setTestEstimatedTime(int aiTestEstimatedTime) noexcept {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::setTestEstimatedTime");
  miTestEstimatedTime = aiTestEstimatedTime;
}

void PackageTestInfo::updateEnableDeviceIdList(int aiDeviceId) {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::updateEnableDeviceIdList");
  mEnableDeviceList.push_back(aiDeviceId);
}

void PackageTestInfo::updateDisableDeviceIdList(int aiDeviceId) {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::updateDisableDeviceIdList");
  kClientsAtRest.standsFor(mmtxDisDeviceListLock);
  mDisableDeviceList.push_back(aiDeviceId);
}

std::list<int> PackageTestInfo::getDisableDeviceList() {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::getDisableDeviceList");
  const LockScope lock(mmtxDisDeviceListLock, 0, DiagCtrlBaseException::MutexException,
                       "DiagnosticPackage::getDevice()");
  return mDisableDeviceList;
}

std::list<int> PackageTestInfo::getEnableDeviceList() {
  const TraceScope trace(mpDiagTracer, "PackageTestInfo::getEnableDeviceList");
  kClientsAtRest.mayRead();
  return mEnableDeviceList;
}

}  // namespace TarvexDiags::DiagCtrl
