#include "DiagCtrl/internal/controller/Call.h"

#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagUtil.h"

namespace TarvexDiags::DiagCtrl {

namespace {

using Controller = DiagnosticController;

}  // namespace

std::optional<Controller::errorCode> Controller::Call::refusal(ClientCall aeCall) {
  const GateRow& row = gateRow(aeCall);
  diagCtrlPhase phase = DiagControllerStatus::UNINITIALISED;
  try {
    phase = mrController.getDiagCtrlPhase(row.readTimeOut);
  } catch (const DiagCtrlMutexException&) {
    if (row.trace != GateRow::afterEvent) {
      mTrace.close();
    }
    if (row.raisesLockFailure) {
      pushError(mrController, DiagCtrlEvent::UNABLE_TO_GET_LOCK);
    }
    if (row.trace == GateRow::afterEvent) {
      mTrace.error("UNABLE_TO_GET_LOCK: ");
    }
    return UNABLE_TO_GET_LOCK;
  }
  if (isAllowed(row, phase)) {
    return std::nullopt;
  }
  return refuse(row, phase);
}

// A call that is turned away meets the controller as it will be in a moment.
std::optional<Controller::errorCode> Controller::Call::refusalInside(
    const ClientCallScope& arInside, ClientCall aeCall) {
  if (arInside.isTurnedAway()) {
    return refuse(gateRow(aeCall), DiagControllerStatus::UNINITIALISED);
  }
  return refusal(aeCall);
}

Controller::errorCode Controller::Call::refuse(const GateRow& arRow, diagCtrlPhase aePhase) {
  const auto traceRefusal = [&] {
    mTrace.errorValueOf([&] { return std::string(mTrace.method()) + arRow.text; }, aePhase);
  };
  if (arRow.trace == GateRow::before) {
    traceRefusal();
  }
  if (arRow.trace != GateRow::afterEvent) {
    mTrace.close();
  }
  if (arRow.wrongPhaseEvent.has_value()) {
    pushError(mrController, *arRow.wrongPhaseEvent);
  }
  if (arRow.trace == GateRow::afterEvent) {
    traceRefusal();
  }
  return INCORRECT_PHASE;
}

Controller::errorCode Controller::Call::fail(const ClientFailure& arFailure) {
  mTrace.close();
  pushError(mrController, arFailure.event);
  return arFailure.result;
}

void Controller::Call::pushError(const DiagnosticController& arController,
                                 DiagCtrlEvent::eventCode aeEvent) {
  ClientCallScope::leaveCurrent();
  arController.mpDiagUtil->pushDiagCtrlEvent(aeEvent, Diag::DiagnosticEvent::ERROR_EVENT, 0);
}

DiagnosticPackage& Controller::Call::packageOf(int aiPackageIndex) {
  return *orFail({.onLock = kPackageLockFailed, .onMissing = kObjectNotFound},
                 [&] { return mrController.getDiagPackagePtr(aiPackageIndex); });
}

void Controller::Call::requireManagers(const DiagnosticController& arController) {
  kClientsAtRest.mayRead();
  if (arController.mpTestRequestManager == nullptr) {
    throw kIncorrectPhase;
  }
}

}  // namespace TarvexDiags::DiagCtrl
