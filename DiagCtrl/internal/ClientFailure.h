#pragma once

#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagnosticController.h"

namespace TarvexDiags::DiagCtrl {

/// What a client call answers to a failure. Travels as an exception to the end of the call, so that
/// locks and half-made objects are gone before the event is raised.
struct ClientFailure {
  DiagCtrlEvent::eventCode event;
  DiagnosticController::errorCode result;
};

constexpr ClientFailure kUnableToGetLock{DiagCtrlEvent::UNABLE_TO_GET_LOCK,
                                         DiagnosticController::UNABLE_TO_GET_LOCK};
constexpr ClientFailure kIncorrectPhase{DiagCtrlEvent::INCORRECT_PHASE,
                                        DiagnosticController::INCORRECT_PHASE};
constexpr ClientFailure kObjectNotFound{DiagCtrlEvent::OBJECT_NOT_FOUND,
                                        DiagnosticController::OBJECT_NOT_FOUND};
constexpr ClientFailure kTestObjectNotFound{DiagCtrlEvent::TEST_OBJECT_NOT_FOUND,
                                            DiagnosticController::TEST_OBJECT_NOT_FOUND};

/// Runs one step of a client call: what it throws becomes the call's answer.
/// @param aOnMutex   a lock could not be taken. @param aOnMissing something does not exist.
template <class Step>
decltype(auto) orFail(ClientFailure aOnMutex, ClientFailure aOnMissing, Step aStep) {
  try {
    return aStep();
  } catch (const DiagCtrlMutexException&) {
    throw aOnMutex;
  } catch (const DiagCtrlObjectNotFound&) {
    throw aOnMissing;
  } catch (const DiagCtrlKeyNotExistException&) {
    throw aOnMissing;
  }
}

}  // namespace TarvexDiags::DiagCtrl
