#include "DiagCtrl/DiagnosticPackageInterface.h"

#include <dlfcn.h>

#include <string>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlFunctionNotFoundInDll.h"
#include "DiagCtrl/DiagCtrlLoadLibraryFailed.h"
#include "DiagCtrl/DiagCtrlReleaseLibraryFailed.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/ground/SharedObjectFile.h"

namespace TarvexDiags::DiagCtrl {

namespace {

template <class Function>
Function* findExport(pDllHandle aHandle, const char* apcName) {
  return reinterpret_cast<Function*>(dlsym(aHandle, apcName));
}

template <class Function>
Function& requireExport(pDllHandle aHandle, const char* apcName, const char* apcText,
                        const char* apcFile = __builtin_FILE(),
                        unsigned long aulLine = __builtin_LINE()) {
  Function* function = findExport<Function>(aHandle, apcName);
  if (function == nullptr) {
    raise<DiagCtrlFunctionNotFoundInDll>(DiagCtrlBaseException::FunctionNotFoundInDll, apcText,
                                         apcFile, aulLine);
  }
  return *function;
}

[[noreturn]] void refuseToLoad(const TraceScope& arTrace, const std::string& arReason) {
  arTrace.warning(arReason);
  raise<DiagCtrlLoadLibraryFailed>(DiagCtrlBaseException::LoadLibraryFailed,
                                   "DiagnosticPackageInterface::loadPackage()");
}

}  // namespace

DiagnosticPackageInterface::DiagnosticPackageInterface()
    : mpDiagTracer(DiagTracer::getInstance()),
      mmtxLock(DiagCtrlConstants::mSconlDefaultLockTimeOut) {}

DiagnosticPackageInterface::~DiagnosticPackageInterface() = default;

pDllHandle DiagnosticPackageInterface::loadPackage(const char* packageName) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackageInterface::loadPackage");
  if (const char* fault = faultOfSharedObject(packageName)) {
    refuseToLoad(trace, std::string(packageName) + ": " + fault);
  }
  pDllHandle handle = dlopen(packageName, RTLD_NOW);
  if (handle == nullptr) {
    const char* reason = dlerror();
    refuseToLoad(trace, reason != nullptr ? reason : "");
  }
  return handle;
}

Diag::IDiagnostics* DiagnosticPackageInterface::getIDiagnostics(
    pDllHandle arHandle, const char* /*apcConfigFile*/, bool abDiagLog,
    GlobalSettings::diagMode aeDiagMode) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackageInterface::getIDiagnostics");
  return requireExport<Diag::IDiagnostics*(bool, GlobalSettings::diagMode)>(
      arHandle, "getIDiagnostics", "DiagnosticPackageInterface::getIDiagnostics()")(abDiagLog,
                                                                                    aeDiagMode);
}

void DiagnosticPackageInterface::setPackageConfigFile(pDllHandle Handle, const char* apcFilePath) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackageInterface::setPackageConfigFile");
  requireExport<void(const char*)>(
      Handle, "setPackageConfigFile",
      "DiagnosticPackageInterface::setPackageConfigFile()")(apcFilePath);
}

void DiagnosticPackageInterface::setPackageLogDir(pDllHandle Handle, const char* apcLogDir) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackageInterface::setPackageLogDir");
  auto* function = findExport<void(const char*)>(Handle, "setPackageLogDir");
  if (function != nullptr) {
    function(apcLogDir);
    trace.info(std::string("Package Log Dir set to ") +
               (apcLogDir != nullptr ? apcLogDir : "<null>"));
  }
}

DeviceEnum::IDeviceEnumerator* DiagnosticPackageInterface::getIDeviceEnumerator(
    pDllHandle Handle, bool abDiagLog, GlobalSettings::diagMode aeDiagMode) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackageInterface::getIDeviceEnumerator");
  return requireExport<DeviceEnum::IDeviceEnumerator*(bool, GlobalSettings::diagMode)>(
      Handle, "getIDeviceEnumerator", "DiagnosticPackageInterface::getIDeviceEnumerator()")(
      abDiagLog, aeDiagMode);
}

DeviceEnum::VirtualDeviceVector* DiagnosticPackageInterface::getDeviceVector(
    pDllHandle Handle, char* resourceString, unsigned int uiDeviceType, bool abDiagLog,
    GlobalSettings::diagMode aeDiagMode) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackageInterface::getDeviceVector");
  DeviceEnum::IDeviceEnumerator* enumerator = nullptr;
  try {
    enumerator = getIDeviceEnumerator(Handle, abDiagLog, aeDiagMode);
    if (enumerator == nullptr) {
      // Named after the operation that gave nothing.
      raise<DiagCtrlFunctionNotFoundInDll>(DiagCtrlBaseException::FunctionNotFoundInDll,
                                           "DiagnosticPackageInterface::getIDeviceEnumerator()");
    }
  } catch (const DiagCtrlFunctionNotFoundInDll& failure) {
    // A copy tells: the text grows with each telling.
    trace.error(std::string(trace.method()) + " - " +
                DiagCtrlFunctionNotFoundInDll(failure).dump());
    throw;
  }
  return enumerator->getDeviceVector(resourceString, uiDeviceType);
}

void DiagnosticPackageInterface::releaseLibrary(pDllHandle Handle, long alTimeOutValue) {
  const TraceScope trace(mpDiagTracer, "DiagnosticPackageInterface::releaseLibrary");
  LockScope lock(mmtxLock, lockTimeOut(alTimeOutValue), DiagCtrlBaseException::MutexException,
                 "DiagnosticPackageInterface::releaseLibrary()");
  if (dlclose(Handle) != 0) {
    // A loader that could not close is not to be trusted with another close.
    lock.keepHeld();
    raise<DiagCtrlReleaseLibraryFailed>(DiagCtrlBaseException::ReleaseLibraryFailed,
                                        "DiagnosticPackageInterface::releaseLibrary()");
  }
}

}  // namespace TarvexDiags::DiagCtrl
