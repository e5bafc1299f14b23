#include "DiagCtrl/GlobalSettings.h"

#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/LockedMethod.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr auto kMinorLock = DiagCtrlBaseException::MutexException;

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
  const LockedMethod hold(mpDiagTracer, "GlobalSettings::getDebugLog", mmtxGlobalSettLock, 0,
                          kMinorLock, "GlobalSettings::getDebugLog()");
  return meDebugLevel;
}

GlobalSettings::runMode GlobalSettings::getRunMode() {
  const LockedMethod hold(mpDiagTracer, "GlobalSettings::getRunMode", mmtxGlobalSettLock, 0,
                          kMinorLock, "GlobalSettings::getRunMode()");
  return meRunMode;
}

bool GlobalSettings::getDiagLogMode() {
  const LockedMethod hold(mpDiagTracer, "GlobalSettings::getDiagLogMode", mmtxGlobalSettLock, 0,
                          kMinorLock, "GlobalSettings::getDiagLogMode()");
  return mbDiagLogMode;
}

bool GlobalSettings::getHaltOnError() {
  const LockedMethod hold(mpDiagTracer, "GlobalSettings::getHaltOnError", mmtxGlobalSettLock, 0,
                          kMinorLock, "GlobalSettings::getHaltOnError()");
  return mbHaltOnError;
}

GlobalSettings::diagMode GlobalSettings::getDiagnosticMode() {
  const LockedMethod hold(mpDiagTracer, "GlobalSettings::getDiagnosticMode", mmtxGlobalSettLock, 0,
                          kMinorLock, "GlobalSettings::getDiagnosticMode()");
  return meDiagnosticMode;
}

void GlobalSettings::setDebugLog(DiagCtrlConstants::debugLevel aeDebugLevel) {
  const LockedMethod hold(mpDiagTracer, "GlobalSettings::setDebugLog", mmtxGlobalSettLock, 0,
                          kMinorLock, "GlobalSettings::setDebugLog()");
  meDebugLevel = aeDebugLevel;
}

void GlobalSettings::setRunMode(runMode aeRunMode) {
  const LockedMethod hold(mpDiagTracer, "GlobalSettings::setRunMode", mmtxGlobalSettLock, 0,
                          kMinorLock, "GlobalSettings::setRunMode()");
  meRunMode = aeRunMode;
}

void GlobalSettings::setDiagLogMode(bool abDiagLogMode) {
  const LockedMethod hold(mpDiagTracer, "GlobalSettings::setDiagLogMode", mmtxGlobalSettLock, 0,
                          kMinorLock, "GlobalSettings::setDiagLogMode()");
  mbDiagLogMode = abDiagLogMode;
}

void GlobalSettings::setHaltOnError(bool abHaltOnError) {
  const LockedMethod hold(mpDiagTracer, "GlobalSettings::setHaltOnError", mmtxGlobalSettLock, 0,
                          kMinorLock, "GlobalSettings::setHaltOnError()");
  mbHaltOnError = abHaltOnError;
}

void GlobalSettings::setDiagnosticMode(diagMode aeDiagnosticMode) {
  const LockedMethod hold(mpDiagTracer, "GlobalSettings::setDiagnosticMode", mmtxGlobalSettLock, 0,
                          kMinorLock, "GlobalSettings::setDiagnosticMode()");
  meDiagnosticMode = aeDiagnosticMode;
}

}  // namespace TarvexDiags::DiagCtrl
