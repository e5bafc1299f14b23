#pragma once

#include <cxxabi.h>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"

namespace TarvexDiags::DiagCtrl {

/// What a client call answers to a failure. Travels as an exception to the end of the call, so that
/// locks and half-made objects are gone before the event is raised.
struct ClientFailure {
  DiagCtrlEvent::eventCode event;
  DiagnosticController::errorCode result;
};

/// A call that has found the phase gone while it waited: answered as at the gate.
struct WrongPhase {
  ClientCall call;
  DiagControllerStatus::diagCtrlPhase phase;
};

constexpr ClientFailure kUnableToGetLock{DiagCtrlEvent::UNABLE_TO_GET_LOCK,
                                         DiagnosticController::UNABLE_TO_GET_LOCK};
constexpr ClientFailure kIncorrectPhase{DiagCtrlEvent::INCORRECT_PHASE,
                                        DiagnosticController::INCORRECT_PHASE};
constexpr ClientFailure kObjectNotFound{DiagCtrlEvent::OBJECT_NOT_FOUND,
                                        DiagnosticController::OBJECT_NOT_FOUND};
constexpr ClientFailure kTestObjectNotFound{DiagCtrlEvent::TEST_OBJECT_NOT_FOUND,
                                            DiagnosticController::TEST_OBJECT_NOT_FOUND};
constexpr ClientFailure kPackageNotFound{DiagCtrlEvent::PACKAGE_NOT_FOUND,
                                         DiagnosticController::PACKAGE_NOT_FOUND};
constexpr ClientFailure kRequestNotFound{DiagCtrlEvent::REQUEST_OBJECT_NOT_FOUND,
                                         DiagnosticController::REQUEST_OBJECT_NOT_FOUND};
/// A lock failure on the way to a package, to the tests on offer and to the disabled devices raises
/// the event of a missing object, but returns the code of the lock.
constexpr ClientFailure kPackageLockFailed{DiagCtrlEvent::OBJECT_NOT_FOUND,
                                           DiagnosticController::UNABLE_TO_GET_LOCK};

/// What a client call answers to the failures of one of its steps.
struct StepFailures {
  ClientFailure onLock;     ///< a lock could not be taken
  ClientFailure onMissing;  ///< something does not exist
};

/// Runs one step of a client call: what it throws becomes the call's answer.
template <class Step>
decltype(auto) orFail(const StepFailures& arFailures, Step aStep) {
  try {
    return aStep();
  } catch (const DiagCtrlMutexException&) {
    throw arFailures.onLock;
  } catch (const DiagCtrlObjectNotFound&) {
    throw arFailures.onMissing;
  } catch (const DiagCtrlKeyNotExistException&) {
    throw arFailures.onMissing;
  }
}

/// The same for a step whose failures have one answer.
template <class Step>
decltype(auto) orFail(const ClientFailure& arFailure, Step aStep) {
  return orFail(StepFailures{.onLock = arFailure, .onMissing = arFailure}, aStep);
}

/// Runs a step that calls into a package. What the package throws is not the client's to see: it
/// becomes the call's answer, while the package's code is still loaded.
template <class Step>
decltype(auto) orPackageFailed(ClientFailure aOnForeign, Step aStep) {
  try {
    return aStep();
  } catch (const ClientFailure&) {
    throw;
  } catch (const DiagCtrlBaseException&) {
    throw;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    throw aOnForeign;
  }
}

}  // namespace TarvexDiags::DiagCtrl
