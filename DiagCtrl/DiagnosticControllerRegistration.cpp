// Registration for messages, their notification and collection.

#include <functional>
#include <list>

#include "DiagCtrl/CallBackObject.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/internal/controller/Answer.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr auto kMinorLock = DiagCtrlBaseException::MutexException;
// The code of an unknown registration for results, for events too.
constexpr ClientFailure kUnknownRegistration{DiagCtrlEvent::RESULT_REG_ID_NOT_FOUND,
                                             DiagnosticController::RESULT_REG_ID_NOT_FOUND};

}  // namespace

/// Where a registration goes: the gate, the queue that is made, and the list of objects.
struct DiagnosticController::QueueTarget {
  const char* method;
  ClientCall call;
  unsigned long (EventManager::*createQueue)();
  CallBackList list;
};

DiagnosticController::errorCode DiagnosticController::registerForDiagEvents(
    CallBackObject* apCallBackObj, unsigned long& ulDiagEventRegId) {
  return registerFor({"DiagnosticController::registerForDiagEvents", ClientCall::registerForEvents,
                      &EventManager::createEventQueue, eventCallBacks()},
                     apCallBackObj, ulDiagEventRegId);
}

DiagnosticController::errorCode DiagnosticController::registerForDiagResults(
    CallBackObject* apCallBackObj, unsigned long& ulDiagResultRegId) {
  return registerFor(
      {"DiagnosticController::registerForDiagResults", ClientCall::registerForResults,
       &EventManager::createResultQueue, resultCallBacks()},
      apCallBackObj, ulDiagResultRegId);
}

DiagnosticController::errorCode DiagnosticController::registerForDiagCtrlEvents(
    CallBackObject* apCallBackObj, unsigned long& ulDiagCtrlEventRegId) {
  return registerFor(
      {"DiagnosticController::registerForDiagCtrlEvents", ClientCall::registerForCtrlEvents,
       &EventManager::createCtrlEventQueue, ctrlEventCallBacks()},
      apCallBackObj, ulDiagCtrlEventRegId);
}

// The queue comes first and its lock is free again before the list's is taken: a push holds them in
// that order.
DiagnosticController::errorCode DiagnosticController::registerFor(
    const QueueTarget& arTarget, CallBackObject* apCallBackObj, unsigned long& arulRegistrationId) {
  TraceScope trace(mpDiagTracer, arTarget.method);
  if (apCallBackObj == nullptr) {
    contain([&] {
      trace.error("INVALID_OBJECT_PASSED: ");
      return SUCCESS;
    });
    return INVALID_OBJECT_PASSED;
  }
  return answerInside(arTarget.call, trace, [&] {
    try {
      arulRegistrationId = std::invoke(arTarget.createQueue, *mpEventManager);
    } catch (const DiagCtrlMutexException&) {
      pushError(DiagCtrlEvent::UNABLE_TO_CREATE_QUEUE);
      trace.error("UNABLE_TO_REGISTER: ");
      return UNABLE_TO_REGISTER;
    }
    try {
      const LockScope lock(arTarget.list.lock, 0);
      arTarget.list.objects.push_back(apCallBackObj);
    } catch (const DiagCtrlMutexException&) {
      trace.error("UNABLE_TO_GET_LOCK: ");
      return UNABLE_TO_GET_LOCK;
    }
    return SUCCESS;
  });
}

void DiagnosticController::notifyAll(const char* apcMethod, const char* apcText,
                                     const CallBackList& arList) {
  const TraceScope trace(mpDiagTracer, apcMethod);
  const LockScope lock(arList.lock, 0, kMinorLock, apcText);
  for (CallBackObject* object : arList.objects) {
    object->notify();
  }
}

void DiagnosticController::notifyEvent() {
  notifyAll("DiagnosticController::notifyEvent", "DiagnosticController::notifyEvent()",
            eventCallBacks());
}

void DiagnosticController::notifyResult() {
  notifyAll("DiagnosticController::notifyResult", "DiagnosticController::notifyResult()",
            resultCallBacks());
}

void DiagnosticController::notifyCtrlEvent() {
  notifyAll("DiagnosticController::notifyCtrlEvent", "DiagnosticController::notifyCtrlEvent()",
            ctrlEventCallBacks());
}

template <class Messages>
DiagnosticController::errorCode DiagnosticController::fetchMessages(
    const char* apcMethod, const char* apcUnknownText,
    Messages* (EventManager::*apGet)(unsigned long), long alRegistrationId,
    Messages*& arpMessages) {
  TraceScope trace(mpDiagTracer, apcMethod);
  return answerInside(ClientCall::fetchMessages, trace, [&] {
    try {
      arpMessages =
          std::invoke(apGet, *mpEventManager, static_cast<unsigned long>(alRegistrationId));
    } catch (const DiagCtrlKeyNotExistException&) {
      if (apcUnknownText != nullptr) {
        trace.errorValue(apcUnknownText, static_cast<unsigned long>(alRegistrationId));
      }
      throw kUnknownRegistration;
    } catch (const DiagCtrlMutexException&) {
      throw kUnableToGetLock;
    }
    return SUCCESS;
  });
}

DiagnosticController::errorCode DiagnosticController::getDiagnosticEvents(
    long lEventRegId, EventVector*& rDiagEventVector) {
  return fetchMessages("DiagnosticController::getDiagnosticEvents", nullptr,
                       &EventManager::getEvents, lEventRegId, rDiagEventVector);
}

DiagnosticController::errorCode DiagnosticController::getDiagnosticResults(
    long lResultId, ResultVector*& arpDiagResultVector) {
  return fetchMessages("DiagnosticController::getDiagnosticResults",
                       "RESULT REG ID NOT FOUND, INCORRECT REG ID:", &EventManager::getResults,
                       lResultId, arpDiagResultVector);
}

DiagnosticController::errorCode DiagnosticController::getDiagnosticCtrlEvents(
    long lCtrlEventRegId, CtrlEventVector*& arpDiagCtrlEventVector) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::getDiagnosticCtrlEvents");
  return answerInside(ClientCall::fetchCtrlEvents, trace, [&] {
    try {
      arpDiagCtrlEventVector =
          mpEventManager->getCtrlEvents(static_cast<unsigned long>(lCtrlEventRegId));
    } catch (const DiagCtrlKeyNotExistException&) {
      trace.errorValue("CTRL EVENT REG ID NOT FOUND, INCORRECT REG ID:",
                       static_cast<unsigned long>(lCtrlEventRegId));
      return fail(trace, DiagCtrlEvent::CTRL_EV_REG_ID_NOT_FOUND, CTRL_EVENT_REG_ID_NOT_FOUND);
    } catch (const DiagCtrlMutexException&) {
      return UNABLE_TO_GET_LOCK;
    }
    return SUCCESS;
  });
}

DiagnosticController::errorCode DiagnosticController::getNumberOfRegistrations(
    unsigned int& auiEvtReg, unsigned int& auiResReg, unsigned int& auiCtrlEvtReg) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::getNumberOfRegistrations");
  const auto count = [](const CallBackList& arList) {
    const LockScope lock(arList.lock, 0);
    return static_cast<unsigned int>(arList.objects.size());
  };
  return answerInside(ClientCall::countRegistrations, trace, [&] {
    try {
      auiEvtReg = count(eventCallBacks());
      auiResReg = count(resultCallBacks());
      auiCtrlEvtReg = count(ctrlEventCallBacks());
    } catch (const DiagCtrlMutexException&) {
      return UNABLE_TO_GET_LOCK;
    }
    return SUCCESS;
  });
}

}  // namespace TarvexDiags::DiagCtrl
