// The run-wide settings of the controller.

#include <string>

#include "DiagCtrl/DiagCtrlInvalidParameter.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagValidator.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/internal/controller/Call.h"
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
GlobalSettings* DiagnosticController::getGlobalSettingsPtr() const noexcept {
  mpDiagTracer->beginTrace(DiagCtrlConstants::DIAG_INFORMATION,
                           "DiagnosticController::getGlobalSettingsPtr");
  kClientsAtRest.mayRead();
  return mpGlobalSettings;
}

/// A call that reads or changes one of the settings.
class DiagnosticController::Setting {
 public:
  /// @param apcMethod "Class::method", a literal.
  Setting(DiagnosticController& arController, const char* apcMethod)
      : mrController(arController), mCall(arController, apcMethod) {}

  template <class Read>
  errorCode read(ClientCall aeCall, Read aRead);
  /// The argument is checked before the phase, so that a bad value is told in any phase.
  /// @param apcLockFailureText traced if the lock fails; may be null.
  template <class Validate, class Write>
  errorCode change(Validate aValidate, Write aWrite, const char* apcLockFailureText = nullptr);

 private:
  /// Runs a step with the settings, which a second initialize with a bad file loses.
  template <class Step>
  void withSettings(Step aStep);

  DiagnosticController& mrController;
  Call mCall;
};

template <class Step>
void DiagnosticController::Setting::withSettings(Step aStep) {
  orFail(kUnableToGetLock, [&] {
    kClientsAtRest.mayRead();
    if (mrController.mpGlobalSettings == nullptr) {
      throw kUnableToGetLock;
    }
    aStep(*mrController.mpGlobalSettings);
  });
}

template <class Read>
DiagnosticController::errorCode DiagnosticController::Setting::read(ClientCall aeCall, Read aRead) {
  return mCall.answerInside(aeCall, [&] {
    const LockScope lock(mrController.mmtxGlobalSettingsLock, 0, kUnableToGetLock);
    withSettings(aRead);
    return SUCCESS;
  });
}

template <class Validate, class Write>
DiagnosticController::errorCode DiagnosticController::Setting::change(
    Validate aValidate, Write aWrite, const char* apcLockFailureText) {
  return mCall.contain([&] {
    try {
      aValidate();
    } catch (const DiagCtrlInvalidParameter&) {
      return INAVLID_VALUE_PASSED;
    }
    return mCall.answerInside(ClientCall::changeSetting, [&] {
      const SettingsLock lock(mrController.mmtxGlobalSettingsLock, mCall.trace(),
                              apcLockFailureText);
      withSettings(aWrite);
      return SUCCESS;
    });
  });
}

DiagnosticController::errorCode DiagnosticController::getDebugLog(
    DiagCtrlConstants::debugLevel& areDebugLevel) noexcept {
  return Setting(*this, "DiagnosticController::getDebugLog")
      .read(ClientCall::readDebugLog,
            [&](GlobalSettings& arSettings) { areDebugLevel = arSettings.getDebugLog(); });
}

DiagnosticController::errorCode DiagnosticController::getRunMode(
    GlobalSettings::runMode& areRunMode) noexcept {
  return Setting(*this, "DiagnosticController::getRunMode")
      .read(ClientCall::readSetting,
            [&](GlobalSettings& arSettings) { areRunMode = arSettings.getRunMode(); });
}

DiagnosticController::errorCode DiagnosticController::getDiagLogMode(
    bool& arbDiagLogMode) noexcept {
  return Setting(*this, "DiagnosticController::getDiagLogMode")
      .read(ClientCall::readSetting,
            [&](GlobalSettings& arSettings) { arbDiagLogMode = arSettings.getDiagLogMode(); });
}

DiagnosticController::errorCode DiagnosticController::getHaltOnError(
    bool& arbHaltOnError) noexcept {
  return Setting(*this, "DiagnosticController::getHaltOnError")
      .read(ClientCall::readSetting,
            [&](GlobalSettings& arSettings) { arbHaltOnError = arSettings.getHaltOnError(); });
}

DiagnosticController::errorCode DiagnosticController::getDiagnosticMode(
    GlobalSettings::diagMode& areDiagnosticMode) noexcept {
  return Setting(*this, "DiagnosticController::getDiagnosticMode")
      .read(ClientCall::readSetting, [&](GlobalSettings& arSettings) {
        areDiagnosticMode = arSettings.getDiagnosticMode();
      });
}

DiagnosticController::errorCode DiagnosticController::setDebugLog(
    DiagCtrlConstants::debugLevel aeDebugLevel) noexcept {
  return Setting(*this, "DiagnosticController::setDebugLog")
      .change(
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
    GlobalSettings::runMode aeRunMode) noexcept {
  return Setting(*this, "DiagnosticController::setRunMode")
      .change(
          [&] {
            mpValidator->getAndValidateEnum(static_cast<unsigned int>(aeRunMode),
                                            DiagValidator::runMode);
          },
          [&](GlobalSettings& arSettings) { arSettings.setRunMode(aeRunMode); });
}

DiagnosticController::errorCode DiagnosticController::setDiagLogMode(bool abDiagLogMode) noexcept {
  return Setting(*this, "DiagnosticController::setDiagLogMode")
      .change([&] { mpValidator->validBool(abDiagLogMode); },
              [&](GlobalSettings& arSettings) { arSettings.setDiagLogMode(abDiagLogMode); });
}

DiagnosticController::errorCode DiagnosticController::setHaltOnError(bool abHaltOnError) noexcept {
  return Setting(*this, "DiagnosticController::setHaltOnError")
      .change([&] { mpValidator->validBool(abHaltOnError); },
              [&](GlobalSettings& arSettings) { arSettings.setHaltOnError(abHaltOnError); });
}

DiagnosticController::errorCode DiagnosticController::setDiagnosticMode(
    GlobalSettings::diagMode aeDiagnosticMode) noexcept {
  return Setting(*this, "DiagnosticController::setDiagnosticMode")
      .change(
          [&] {
            mpValidator->getAndValidateEnum(static_cast<unsigned int>(aeDiagnosticMode),
                                            DiagValidator::diagMode);
          },
          [&](GlobalSettings& arSettings) { arSettings.setDiagnosticMode(aeDiagnosticMode); },
          "INCORRECT_PHASE: ");
}

}  // namespace TarvexDiags::DiagCtrl
