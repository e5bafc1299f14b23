#include "DiagCtrl/GlobalSettings.h"

#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/LockScope.h"
#include "DiagCtrl/internal/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

/// One locked and traced access to a setting.
template <class Access>
auto locked(DiagTracer* apTracer, DiagCtrlLock& arLock, const char* apcMethod, const char* apcText,
            Access aAccess, const char* apcFile = __builtin_FILE(),
            unsigned long aulLine = __builtin_LINE()) {
  const TraceScope trace(apTracer, apcMethod);
  const LockScope lock(arLock, 0, DiagCtrlBaseException::MutexException, apcText, apcFile, aulLine);
  return aAccess();
}

}  // namespace

GlobalSettings::GlobalSettings(DiagCtrlConstants::debugLevel aeDebugLevel, runMode aeRunMode,
                               bool abDiagLogMode, bool abHaltOnError, diagMode aeDiagnosticMode)
    : meDebugLevel(aeDebugLevel),
      meRunMode(aeRunMode),
      mbDiagLogMode(abDiagLogMode),
      mbHaltOnError(abHaltOnError),
      meDiagnosticMode(aeDiagnosticMode),
      mmtxGlobalSettLock(DiagCtrlConstants::mSconlDefaultLockTimeOut),
      mpDiagTracer(DiagTracer::getInstance()) {}

DiagCtrlConstants::debugLevel GlobalSettings::getDebugLog() {
  return locked(mpDiagTracer, mmtxGlobalSettLock, "GlobalSettings::getDebugLog",
                "GlobalSettings::getDebugLog()", [this] { return meDebugLevel; });
}

GlobalSettings::runMode GlobalSettings::getRunMode() {
  return locked(mpDiagTracer, mmtxGlobalSettLock, "GlobalSettings::getRunMode",
                "GlobalSettings::getRunMode()", [this] { return meRunMode; });
}

bool GlobalSettings::getDiagLogMode() {
  return locked(mpDiagTracer, mmtxGlobalSettLock, "GlobalSettings::getDiagLogMode",
                "GlobalSettings::getDiagLogMode()", [this] { return mbDiagLogMode; });
}

bool GlobalSettings::getHaltOnError() {
  return locked(mpDiagTracer, mmtxGlobalSettLock, "GlobalSettings::getHaltOnError",
                "GlobalSettings::getHaltOnError()", [this] { return mbHaltOnError; });
}

GlobalSettings::diagMode GlobalSettings::getDiagnosticMode() {
  return locked(mpDiagTracer, mmtxGlobalSettLock, "GlobalSettings::getDiagnosticMode",
                "GlobalSettings::getDiagnosticMode()", [this] { return meDiagnosticMode; });
}

void GlobalSettings::setDebugLog(DiagCtrlConstants::debugLevel aeDebugLevel) {
  locked(mpDiagTracer, mmtxGlobalSettLock, "GlobalSettings::setDebugLog",
         "GlobalSettings::setDebugLog()", [&] { meDebugLevel = aeDebugLevel; });
}

void GlobalSettings::setRunMode(runMode aeRunMode) {
  locked(mpDiagTracer, mmtxGlobalSettLock, "GlobalSettings::setRunMode",
         "GlobalSettings::setRunMode()", [&] { meRunMode = aeRunMode; });
}

void GlobalSettings::setDiagLogMode(bool abDiagLogMode) {
  locked(mpDiagTracer, mmtxGlobalSettLock, "GlobalSettings::setDiagLogMode",
         "GlobalSettings::setDiagLogMode()", [&] { mbDiagLogMode = abDiagLogMode; });
}

void GlobalSettings::setHaltOnError(bool abHaltOnError) {
  locked(mpDiagTracer, mmtxGlobalSettLock, "GlobalSettings::setHaltOnError",
         "GlobalSettings::setHaltOnError()", [&] { mbHaltOnError = abHaltOnError; });
}

void GlobalSettings::setDiagnosticMode(diagMode aeDiagnosticMode) {
  locked(mpDiagTracer, mmtxGlobalSettLock, "GlobalSettings::setDiagnosticMode",
         "GlobalSettings::setDiagnosticMode()", [&] { meDiagnosticMode = aeDiagnosticMode; });
}

}  // namespace TarvexDiags::DiagCtrl
