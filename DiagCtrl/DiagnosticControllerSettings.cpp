// The run-wide settings of the controller.

#include <string>

#include "DiagCtrl/DiagCtrlInvalidParameter.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagValidator.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/internal/controller/Answer.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

namespace {

/// The lock of the settings for a call that changes one.
class TARVEXDIAGS_SCOPED_CAPABILITY SettingsLock {
 public:
  /// @param apcFailureText traced with the phase, which is that of a setter, if the lock fails.
  SettingsLock(DiagCtrlLock& arLock, const TraceScope& arTrace, const char* apcFailureText)
      TARVEXDIAGS_ACQUIRE(arLock)
      : mrLock(arLock) {
    try {
      mrLock.lock(0);
    } catch (const DiagCtrlMutexException&) {
      if (apcFailureText != nullptr) {
        arTrace.errorValue(std::string(arTrace.method()) + apcFailureText,
                           DiagControllerStatus::IDLE);
      }
      throw kUnableToGetLock;
    }
  }
  ~SettingsLock() TARVEXDIAGS_RELEASE() { mrLock.unlock(); }
  SettingsLock(const SettingsLock&) = delete;
  SettingsLock& operator=(const SettingsLock&) = delete;

 private:
  DiagCtrlLock& mrLock;
};

}  // namespace

// Leaves the calling thread's indentation one step deeper, as it always has: no exit line.
GlobalSettings* DiagnosticController::getGlobalSettingsPtr() const {
  mpDiagTracer->beginTrace(DiagCtrlConstants::DIAG_INFORMATION,
                           "DiagnosticController::getGlobalSettingsPtr");
  return mpGlobalSettings;
}

template <class Read>
DiagnosticController::errorCode DiagnosticController::readSetting(ClientCall aeCall,
                                                                  const char* apcMethod,
                                                                  Read aRead) {
  TraceScope trace(mpDiagTracer, apcMethod);
  return answerInside(aeCall, trace, [&] {
    const LockScope lock(mmtxGlobalSettingsLock, 0, kUnableToGetLock);
    orFail(kUnableToGetLock, kUnableToGetLock, [&] {
      if (mpGlobalSettings == nullptr) {
        throw kUnableToGetLock;  // lost to a second initialize with a bad file
      }
      aRead(*mpGlobalSettings);
    });
    return SUCCESS;
  });
}

// The argument is checked before the phase, so that a bad value is told in any phase.
template <class Validate, class Write>
DiagnosticController::errorCode DiagnosticController::changeSetting(
    const char* apcMethod, Validate aValidate, Write aWrite, const char* apcLockFailureText) {
  TraceScope trace(mpDiagTracer, apcMethod);
  return contain([&] {
    try {
      aValidate();
    } catch (const DiagCtrlInvalidParameter&) {
      return INAVLID_VALUE_PASSED;
    }
    return answerInside(ClientCall::changeSetting, trace, [&] {
      const SettingsLock lock(mmtxGlobalSettingsLock, trace, apcLockFailureText);
      orFail(kUnableToGetLock, kUnableToGetLock, [&] {
        if (mpGlobalSettings == nullptr) {
          throw kUnableToGetLock;
        }
        aWrite(*mpGlobalSettings);
      });
      return SUCCESS;
    });
  });
}

DiagnosticController::errorCode DiagnosticController::getDebugLog(
    DiagCtrlConstants::debugLevel& areDebugLevel) {
  return readSetting(ClientCall::readDebugLog, "DiagnosticController::getDebugLog",
                     [&](GlobalSettings& arSettings) { areDebugLevel = arSettings.getDebugLog(); });
}

DiagnosticController::errorCode DiagnosticController::getRunMode(
    GlobalSettings::runMode& areRunMode) {
  return readSetting(ClientCall::readSetting, "DiagnosticController::getRunMode",
                     [&](GlobalSettings& arSettings) { areRunMode = arSettings.getRunMode(); });
}

DiagnosticController::errorCode DiagnosticController::getDiagLogMode(bool& arbDiagLogMode) {
  return readSetting(
      ClientCall::readSetting, "DiagnosticController::getDiagLogMode",
      [&](GlobalSettings& arSettings) { arbDiagLogMode = arSettings.getDiagLogMode(); });
}

DiagnosticController::errorCode DiagnosticController::getHaltOnError(bool& arbHaltOnError) {
  return readSetting(
      ClientCall::readSetting, "DiagnosticController::getHaltOnError",
      [&](GlobalSettings& arSettings) { arbHaltOnError = arSettings.getHaltOnError(); });
}

DiagnosticController::errorCode DiagnosticController::getDiagnosticMode(
    GlobalSettings::diagMode& areDiagnosticMode) {
  return readSetting(
      ClientCall::readSetting, "DiagnosticController::getDiagnosticMode",
      [&](GlobalSettings& arSettings) { areDiagnosticMode = arSettings.getDiagnosticMode(); });
}

DiagnosticController::errorCode DiagnosticController::setDebugLog(
    DiagCtrlConstants::debugLevel aeDebugLevel) {
  return changeSetting(
      "DiagnosticController::setDebugLog",
      [&] {
        mpValidator->getAndValidateEnum(static_cast<unsigned int>(aeDebugLevel),
                                        DiagValidator::debugLevel);
      },
      [&](GlobalSettings& arSettings) {
        arSettings.setDebugLog(aeDebugLevel);
        mpDiagTracer->setTraceLevel(static_cast<int>(aeDebugLevel));
      });
}

DiagnosticController::errorCode DiagnosticController::setRunMode(
    GlobalSettings::runMode aeRunMode) {
  return changeSetting(
      "DiagnosticController::setRunMode",
      [&] {
        mpValidator->getAndValidateEnum(static_cast<unsigned int>(aeRunMode),
                                        DiagValidator::runMode);
      },
      [&](GlobalSettings& arSettings) { arSettings.setRunMode(aeRunMode); });
}

DiagnosticController::errorCode DiagnosticController::setDiagLogMode(bool abDiagLogMode) {
  return changeSetting(
      "DiagnosticController::setDiagLogMode", [&] { mpValidator->validBool(abDiagLogMode); },
      [&](GlobalSettings& arSettings) { arSettings.setDiagLogMode(abDiagLogMode); });
}

DiagnosticController::errorCode DiagnosticController::setHaltOnError(bool abHaltOnError) {
  return changeSetting(
      "DiagnosticController::setHaltOnError", [&] { mpValidator->validBool(abHaltOnError); },
      [&](GlobalSettings& arSettings) { arSettings.setHaltOnError(abHaltOnError); });
}

DiagnosticController::errorCode DiagnosticController::setDiagnosticMode(
    GlobalSettings::diagMode aeDiagnosticMode) {
  return changeSetting(
      "DiagnosticController::setDiagnosticMode",
      [&] {
        mpValidator->getAndValidateEnum(static_cast<unsigned int>(aeDiagnosticMode),
                                        DiagValidator::diagMode);
      },
      [&](GlobalSettings& arSettings) { arSettings.setDiagnosticMode(aeDiagnosticMode); },
      "INCORRECT_PHASE: ");
}

}  // namespace TarvexDiags::DiagCtrl
