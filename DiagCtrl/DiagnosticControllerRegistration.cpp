// Registration for messages, their notification and collection.

#include <functional>
#include <list>

#include "DiagCtrl/CallBackObject.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/internal/controller/Call.h"
#include "DiagCtrl/internal/controller/CallBackList.h"
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

/// A call that registers an object or collects messages.
class DiagnosticController::Registration {
 public:
  typedef unsigned long (EventManager::*CreateQueue)();

  /// @param apcMethod "Class::method", a literal.
  Registration(DiagnosticController& arController, const char* apcMethod)
      : mrController(arController), mCall(arController, apcMethod) {}

  /// Where a registration goes: the gate, the queue that is made, and the list of objects.
  struct Target {
    ClientCall call;
    CreateQueue createQueue;
    CallBackList list;
  };
  errorCode add(const Target& arTarget, CallBackObject* apCallBackObj,
                unsigned long& arulRegistrationId);

  /// What is collected, and what is traced of an unknown registration.
  template <class Messages>
  struct Source {
    Messages* (EventManager::*get)(unsigned long);
    const char* unknownText = nullptr;
  };
  template <class Messages>
  errorCode fetch(const Source<Messages>& arSource, long alRegistrationId, Messages*& arpMessages);
  errorCode fetchCtrlEvents(long alRegistrationId, CtrlEventVector*& arpMessages);

  /// Wakes the objects of a list. @param apcText what a failure to lock is named after.
  static void notifyAll(const CallBackList& arList, const char* apcText);

 private:
  EventManager& messages() const {
    kClientsAtRest.mayRead();
    return *mrController.mpEventManager;
  }

  DiagnosticController& mrController;
  Call mCall;
};

DiagnosticController::errorCode DiagnosticController::registerForDiagEvents(
    CallBackObject* apCallBackObj, unsigned long& ulDiagEventRegId) noexcept {
  return Registration(*this, "DiagnosticController::registerForDiagEvents")
      .add({.call = ClientCall::registerForEvents,
            .createQueue = &EventManager::createEventQueue,
            .list = CallBackList::ofEvents(*this)},
           apCallBackObj, ulDiagEventRegId);
}

DiagnosticController::errorCode DiagnosticController::registerForDiagResults(
    CallBackObject* apCallBackObj, unsigned long& ulDiagResultRegId) noexcept {
  return Registration(*this, "DiagnosticController::registerForDiagResults")
      .add({.call = ClientCall::registerForResults,
            .createQueue = &EventManager::createResultQueue,
            .list = CallBackList::ofResults(*this)},
           apCallBackObj, ulDiagResultRegId);
}

DiagnosticController::errorCode DiagnosticController::registerForDiagCtrlEvents(
    CallBackObject* apCallBackObj, unsigned long& ulDiagCtrlEventRegId) noexcept {
  return Registration(*this, "DiagnosticController::registerForDiagCtrlEvents")
      .add({.call = ClientCall::registerForCtrlEvents,
            .createQueue = &EventManager::createCtrlEventQueue,
            .list = CallBackList::ofCtrlEvents(*this)},
           apCallBackObj, ulDiagCtrlEventRegId);
}

// The queue comes first and its lock is free again before the list's is taken: a push holds them in
// that order.
DiagnosticController::errorCode DiagnosticController::Registration::add(
    const Target& arTarget, CallBackObject* apCallBackObj, unsigned long& arulRegistrationId) {
  if (apCallBackObj == nullptr) {
    mCall.contain([&] {
      mCall.trace().error("INVALID_OBJECT_PASSED: ");
      return SUCCESS;
    });
    return INVALID_OBJECT_PASSED;
  }
  return mCall.answerInside(arTarget.call, [&] {
    std::list<CallBackObject*> entry{apCallBackObj};  // made before the queue: both or none
    try {
      arulRegistrationId = std::invoke(arTarget.createQueue, messages());
    } catch (const DiagCtrlMutexException&) {
      Call::pushError(mrController, DiagCtrlEvent::UNABLE_TO_CREATE_QUEUE);
      mCall.trace().error("UNABLE_TO_REGISTER: ");
      return UNABLE_TO_REGISTER;
    }
    try {
      const LockScope lock(arTarget.list.lock, 0);
      arTarget.list.objects.splice(arTarget.list.objects.end(), entry);
    } catch (const DiagCtrlMutexException&) {
      mCall.trace().error("UNABLE_TO_GET_LOCK: ");
      return UNABLE_TO_GET_LOCK;
    }
    return SUCCESS;
  });
}

void DiagnosticController::Registration::notifyAll(const CallBackList& arList,
                                                   const char* apcText) {
  const LockScope lock(arList.lock, 0, kMinorLock, apcText);
  for (CallBackObject* object : arList.objects) {
    object->notify();
  }
}

void DiagnosticController::notifyEvent() {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::notifyEvent");
  Registration::notifyAll(CallBackList::ofEvents(*this), "DiagnosticController::notifyEvent()");
}

void DiagnosticController::notifyResult() {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::notifyResult");
  Registration::notifyAll(CallBackList::ofResults(*this), "DiagnosticController::notifyResult()");
}

void DiagnosticController::notifyCtrlEvent() {
  const TraceScope trace(mpDiagTracer, "DiagnosticController::notifyCtrlEvent");
  Registration::notifyAll(CallBackList::ofCtrlEvents(*this),
                          "DiagnosticController::notifyCtrlEvent()");
}

template <class Messages>
DiagnosticController::errorCode DiagnosticController::Registration::fetch(
    const Source<Messages>& arSource, long alRegistrationId, Messages*& arpMessages) {
  return mCall.answerInside(ClientCall::fetchMessages, [&] {
    const auto id = static_cast<unsigned long>(alRegistrationId);
    try {
      arpMessages = std::invoke(arSource.get, messages(), id);
    } catch (const DiagCtrlKeyNotExistException&) {
      if (arSource.unknownText != nullptr) {
        mCall.trace().errorValue(arSource.unknownText, id);
      }
      throw kUnknownRegistration;
    } catch (const DiagCtrlMutexException&) {
      throw kUnableToGetLock;
    }
    return SUCCESS;
  });
}

DiagnosticController::errorCode DiagnosticController::getDiagnosticEvents(
    long lEventRegId, EventVector*& rDiagEventVector) noexcept {
  return Registration(*this, "DiagnosticController::getDiagnosticEvents")
      .fetch<EventVector>({.get = &EventManager::getEvents}, lEventRegId, rDiagEventVector);
}

DiagnosticController::errorCode DiagnosticController::getDiagnosticResults(
    long lResultId, ResultVector*& arpDiagResultVector) noexcept {
  return Registration(*this, "DiagnosticController::getDiagnosticResults")
      .fetch<ResultVector>({.get = &EventManager::getResults,
                            .unknownText = "RESULT REG ID NOT FOUND, INCORRECT REG ID:"},
                           lResultId, arpDiagResultVector);
}

DiagnosticController::errorCode DiagnosticController::getDiagnosticCtrlEvents(
    long lCtrlEventRegId, CtrlEventVector*& arpDiagCtrlEventVector) noexcept {
  return Registration(*this, "DiagnosticController::getDiagnosticCtrlEvents")
      .fetchCtrlEvents(lCtrlEventRegId, arpDiagCtrlEventVector);
}

DiagnosticController::errorCode DiagnosticController::Registration::fetchCtrlEvents(
    long alRegistrationId, CtrlEventVector*& arpMessages) {
  return mCall.answerInside(ClientCall::fetchCtrlEvents, [&] {
    const auto id = static_cast<unsigned long>(alRegistrationId);
    try {
      arpMessages = messages().getCtrlEvents(id);
    } catch (const DiagCtrlKeyNotExistException&) {
      mCall.trace().errorValue("CTRL EVENT REG ID NOT FOUND, INCORRECT REG ID:", id);
      return mCall.fail({DiagCtrlEvent::CTRL_EV_REG_ID_NOT_FOUND, CTRL_EVENT_REG_ID_NOT_FOUND});
    } catch (const DiagCtrlMutexException&) {
      return UNABLE_TO_GET_LOCK;
    }
    return SUCCESS;
  });
}

DiagnosticController::errorCode DiagnosticController::getNumberOfRegistrations(
    unsigned int& auiEvtReg, unsigned int& auiResReg, unsigned int& auiCtrlEvtReg) noexcept {
  Call call(*this, "DiagnosticController::getNumberOfRegistrations");
  const auto count = [](const CallBackList& arList) {
    const LockScope lock(arList.lock, 0);
    return static_cast<unsigned int>(arList.objects.size());
  };
  return call.answerInside(ClientCall::countRegistrations, [&] {
    try {
      auiEvtReg = count(CallBackList::ofEvents(*this));
      auiResReg = count(CallBackList::ofResults(*this));
      auiCtrlEvtReg = count(CallBackList::ofCtrlEvents(*this));
    } catch (const DiagCtrlMutexException&) {
      return UNABLE_TO_GET_LOCK;
    }
    return SUCCESS;
  });
}

}  // namespace TarvexDiags::DiagCtrl
