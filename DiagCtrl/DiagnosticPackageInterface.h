#pragma once

#include "DeviceEnum/IDeviceEnumerator.h"
#include "DeviceEnum/VirtualDevice.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/GlobalSettings.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

typedef void* pDllHandle;  ///< what the dynamic loader returned for a package's shared object

/// The one class that touches the dynamic loader: opens a package's shared object, calls its
/// exports and closes it. Keeps no list of what is open; each `loadPackage` is one more reference.
///
/// A package exports, by plain names: `setPackageConfigFile(const char*)`,
/// `setPackageLogDir(const char*)` (optional; null when there is no log directory),
/// `getIDeviceEnumerator(bool, diagMode)` and `getIDiagnostics(bool, diagMode)`, both of which make
/// a new object that the caller deletes.
///
/// Thread-safety: any thread may call any operation; only `releaseLibrary` takes turns.
/// A missing required export throws DiagCtrlFunctionNotFoundInDll.
class TARVEXDIAGS_EXPORT DiagnosticPackageInterface {
 public:
  DiagnosticPackageInterface();
  DiagnosticPackageInterface(const DiagnosticPackageInterface&) = delete;
  DiagnosticPackageInterface& operator=(const DiagnosticPackageInterface&) = delete;
  virtual ~DiagnosticPackageInterface();

  /// @param packageName the full path. @return never null. @throws DiagCtrlLoadLibraryFailed, also
  ///   for an unresolved symbol, since all symbols are bound at once.
  pDllHandle loadPackage(const char* packageName);

  /// @param apcConfigFile not passed on: the package knows its file from `setPackageConfigFile`.
  /// @return what the package gives, null included.
  Diag::IDiagnostics* getIDiagnostics(pDllHandle arHandle, const char* apcConfigFile,
                                      bool abDiagLog, GlobalSettings::diagMode aeDiagMode);
  void setPackageConfigFile(pDllHandle Handle, const char* apcFilePath);
  /// Nothing happens when the package lacks the export. @param apcLogDir may be null.
  void setPackageLogDir(pDllHandle Handle, const char* apcLogDir);
  /// @return what the package gives, null included.
  DeviceEnum::IDeviceEnumerator* getIDeviceEnumerator(pDllHandle Handle, bool abDiagLog,
                                                      GlobalSettings::diagMode aeDiagMode);
  /// The devices of a new enumerator, which is not deleted here.
  /// @throws DiagCtrlFunctionNotFoundInDll also when the package gives no enumerator.
  DeviceEnum::VirtualDeviceVector* getDeviceVector(pDllHandle Handle, char* resourceString,
                                                   unsigned int uiDeviceType, bool abDiagLog,
                                                   GlobalSettings::diagMode aeDiagMode);

  /// Gives one reference back. @throws DiagCtrlReleaseLibraryFailed if the loader refuses; this
  ///   object's lock then stays held, and the next call blocks. @throws DiagCtrlMutexException
  void releaseLibrary(pDllHandle Handle, long alTimeOutValue);

 private:
  DiagTracer* mpDiagTracer;
  DiagCtrlLock mmtxLock;
};

}  // namespace TarvexDiags::DiagCtrl
