#pragma once

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

/// The five settings that hold for a whole run. In memory only: changes are never written back to
/// the control file.
///
/// Thread-safety: any thread may call any operation. The setters do not check their argument.
/// Every operation but the constructor may throw DiagCtrlMutexException.
class TARVEXDIAGS_EXPORT GlobalSettings {
 public:
  enum runMode : unsigned int {
    SERIAL = 0,    ///< one test at a time
    PARALLEL = 1,  ///< as many as the resource tags allow
  };
  /// Numerically the same as DeviceEnum::IDeviceEnumerator::DiagnosticMode.
  enum diagMode : unsigned int { CUSTOMER = 0, FACTORY = 1, BRINGUP = 2 };

  GlobalSettings(DiagCtrlConstants::debugLevel aeDebugLevel, runMode aeRunMode, bool abDiagLogMode,
                 bool abHaltOnError, diagMode aeDiagnosticMode);
  GlobalSettings(const GlobalSettings&) = delete;
  GlobalSettings& operator=(const GlobalSettings&) = delete;

  DiagCtrlConstants::debugLevel getDebugLog();
  runMode getRunMode();
  bool getDiagLogMode();
  bool getHaltOnError();
  diagMode getDiagnosticMode();

  void setDebugLog(DiagCtrlConstants::debugLevel aeDebugLevel);
  void setRunMode(runMode aeRunMode);
  void setDiagLogMode(bool abDiagLogMode);
  void setHaltOnError(bool abHaltOnError);
  void setDiagnosticMode(diagMode aeDiagnosticMode);

 private:
  DiagCtrlConstants::debugLevel meDebugLevel TARVEXDIAGS_GUARDED_BY(mmtxGlobalSettLock);
  runMode meRunMode TARVEXDIAGS_GUARDED_BY(mmtxGlobalSettLock);
  bool mbDiagLogMode TARVEXDIAGS_GUARDED_BY(mmtxGlobalSettLock);
  bool mbHaltOnError TARVEXDIAGS_GUARDED_BY(mmtxGlobalSettLock);
  diagMode meDiagnosticMode TARVEXDIAGS_GUARDED_BY(mmtxGlobalSettLock);
  DiagCtrlLock mmtxGlobalSettLock;
  DiagTracer* mpDiagTracer;
};

}  // namespace TarvexDiags::DiagCtrl
