// Steering and watching queued requests.

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <span>
#include <vector>

#include "Diag/DiagnosticSettings.h"
#include "Diag/DiagnosticStatus.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagCtrlReleaseLibraryFailed.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackageInterface.h"
#include "DiagCtrl/TestRequest.h"
#include "DiagCtrl/TestRequestManager.h"
#include "DiagCtrl/internal/controller/Answer.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/DiagnosticsPin.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/controller/RequestReference.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/Swallow.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/ground/ClientCallCount.h"

namespace TarvexDiags::DiagCtrl {

namespace {

using Code = DiagnosticController;
using Status = Diag::DiagnosticStatus;

constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;
constexpr ClientFailure kRequestNotFound{DiagCtrlEvent::REQUEST_OBJECT_NOT_FOUND,
                                         Code::REQUEST_OBJECT_NOT_FOUND};
constexpr ClientFailure kIDiagnosticNotFound{DiagCtrlEvent::IDIAGNOSTIC_NOT_FOUND,
                                             Code::IDIAGNOSTIC_NOT_FOUND};

bool mayBeSuspended(TestRequest& arTestRequest) {
  const TestRequest::TestRequestStatus status = arTestRequest.getTestRequestStatus(kTimeOut);
  return status == TestRequest::RUNNING || status == TestRequest::WAIT;
}

}  // namespace

/// Looks a request up; an unknown id is traced.
RequestReference DiagnosticController::findRequest(const TraceScope& arTrace,
                                                   unsigned long aulTestRequestId,
                                                   long alTimeOutValue) {
  try {
    return mpTestRequestManager->acquireTestRequest(aulTestRequestId, alTimeOutValue);
  } catch (const DiagCtrlObjectNotFound&) {
    arTrace.errorValue("REQUEST NOT FOUND, INVALID REQ ID:", aulTestRequestId);
    throw;
  }
}

// One hold of the big lock over all requests; the first that is unknown ends the call.
template <class Act>
DiagnosticController::errorCode DiagnosticController::controlRequests(
    const char* apcMethod, std::span<const unsigned long> aIds, Act aAct) {
  TraceScope trace(mpDiagTracer, apcMethod);
  return answerBehind(ClientCall::control, trace, [&] {
    orFail(kUnableToGetLock, kRequestNotFound, [&] {
      const LockScope apiLock(mmtxApiPhaseLock, 0);
      requireManagers();
      for (const unsigned long id : aIds) {
        aAct(*findRequest(trace, id, kTimeOut), id);
      }
    });
    return SUCCESS;
  });
}

// The choice of the branch and the abort flag are one step; the rest follows outside of it.
void DiagnosticController::abortRequest(TestRequest& arTestRequest, long alTimeOutValue) {
  switch (arTestRequest.beginAbort(alTimeOutValue)) {
    case TestRequest::AbortedWhile::inPackage:
      if (const DiagnosticsPin diagnostics(arTestRequest); diagnostics) {
        // A package that throws was told all the same, and the mark on the request stands.
        swallowAll(false, [&] {
          diagnostics->abortDiagnostic();
          return true;
        });
      }
      return;
    case TestRequest::AbortedWhile::monitored:
      return;  // the monitor finishes the job
    case TestRequest::AbortedWhile::queued:
      break;
  }
  try {
    arTestRequest.releaseIDiagnostic(*mpDiagPackInterface, alTimeOutValue);
  } catch (const DiagCtrlReleaseLibraryFailed&) {
    pushError(DiagCtrlEvent::RELEASE_LIBRARY_FAILED);
  } catch (const DiagCtrlMutexException&) {
    pushError(DiagCtrlEvent::RELEASE_LIBRARY_FAILED);
  }
  const unsigned long id = arTestRequest.id();
  mpDiagUtil->pushDiagCtrlEvent(DiagCtrlEvent::TEST_REQUEST_ABORTED,
                                Diag::DiagnosticEvent::INFORMATION_EVENT,
                                static_cast<unsigned int>(id));
  mpDiagTracer->traceValue(DiagCtrlConstants::DIAG_INFORMATION, __FILE__, __LINE__,
                           "TEST_REQUEST_ABORTED", id);
}

DiagnosticController::errorCode DiagnosticController::abortTest(unsigned long ulRequestId) {
  return abortRequests({&ulRequestId, 1});
}

DiagnosticController::errorCode DiagnosticController::abortTest(
    std::vector<unsigned long>& requestIdVector) {
  return abortRequests(requestIdVector);
}

DiagnosticController::errorCode DiagnosticController::abortRequests(
    std::span<const unsigned long> aIds) {
  return controlRequests("DiagnosticController::abortTest", aIds,
                         [this](TestRequest& arTestRequest, unsigned long aulId) {
                           abortRequest(arTestRequest, kTimeOut);
                           mpTestRequestManager->removeFromTestReqIdList(aulId);
                         });
}

// A lock failure leaves the call. The flag is cleared before the lock is, so that the next caller
// never meets a flag that is only on its way out.
DiagnosticController::errorCode DiagnosticController::abortAllTest() {
  TraceScope trace(mpDiagTracer, "DiagnosticController::abortAllTest");
  if (const auto refused = refusal(ClientCall::abortAll, trace)) {
    return *refused;
  }
  std::exception_ptr lockFailure;
  const errorCode answered = answer(trace, [&] {
    try {
      LockScope apiLock(mmtxApiPhaseLock, -1);
      requireManagers();
      errorCode result = SUCCESS;
      try {
        result = abortAllRequests(trace);
      } catch (const std::bad_alloc&) {
        mbAbortAllFlag = false;  // it may be tried again
        throw;
      }
      if (result == SUCCESS) {
        mbAbortAllFlag = false;
      } else {
        apiLock.keepHeld();  // nobody goes on until a shut-down clears up
      }
      return result;
    } catch (const DiagCtrlMutexException&) {
      lockFailure = std::current_exception();
      return UNABLE_TO_GET_LOCK;
    }
  });
  if (lockFailure != nullptr) {
    std::rethrow_exception(lockFailure);
  }
  return answered;
}

// Neither takes nor gives back the big lock, which a shut-down holds already, and leaves the flag
// to the caller. It also stays set when an id has vanished: until the next shut-down.
DiagnosticController::errorCode DiagnosticController::abortAllRequests(const TraceScope& arTrace) {
  if (mbAbortAllFlag) {
    mpDiagUtil->pushDiagCtrlEvent(DiagCtrlEvent::ABORT_ALL_ALREADY_IN_PROCESS,
                                  Diag::DiagnosticEvent::WARNING_EVENT, 0);
    return ABORT_ALL_ALREADY_IN_PROCESS;
  }
  mbAbortAllFlag = true;
  for (const unsigned long id : mpTestRequestManager->getTestRequestIdList(-1)) {
    try {
      abortRequest(*findRequest(arTrace, id, -1), -1);
    } catch (const DiagCtrlObjectNotFound&) {
      throw kRequestNotFound;
    }
  }
  return SUCCESS;
}

// A worker can be inside although its request has left the list: aborted before, or finished by a
// package that reported completion too early. Nothing can be torn down before it has come out.
void DiagnosticController::abortWorkersLeft() {
  const TestRequestIdList ids = mpTestRequestManager->getTestRequestIdList(-1);
  for (const RequestReference& request : mpTestRequestManager->requestsInFlight()) {
    if (std::find(ids.begin(), ids.end(), request->getTestRequestId()) == ids.end()) {
      abortRequest(*request, -1);
    }
  }
}

DiagnosticController::errorCode DiagnosticController::suspendTest(unsigned long ulRequestId) {
  return controlRequests("DiagnosticController::suspendTest", {&ulRequestId, 1},
                         [](TestRequest& arTestRequest, unsigned long /*aulId*/) {
                           if (!mayBeSuspended(arTestRequest)) {
                             return;
                           }
                           const DiagnosticsPin diagnostics(arTestRequest);
                           if (!diagnostics) {
                             return;
                           }
                           orPackageFailed(kIDiagnosticNotFound, [&] {
                             const Status::Status status =
                                 diagnostics->getDiagnosticStatus().getStatus();
                             if (status == Status::EXECUTING || status == Status::READY) {
                               diagnostics->suspendDiagnostic();
                             }
                           });
                         });
}

DiagnosticController::errorCode DiagnosticController::resumeTest(unsigned long ulRequestId) {
  return controlRequests("DiagnosticController::resumeTest", {&ulRequestId, 1},
                         [](TestRequest& arTestRequest, unsigned long /*aulId*/) {
                           if (!mayBeSuspended(arTestRequest)) {
                             return;
                           }
                           if (const DiagnosticsPin diagnostics(arTestRequest); diagnostics) {
                             orPackageFailed(kIDiagnosticNotFound,
                                             [&] { diagnostics->resumeDiagnostic(); });
                           }
                         });
}

// While the call waits for its lock, which another may hold for ever, it is not counted and has
// nothing in its hands: it looks again at everything once it has the lock.
template <class Read>
DiagnosticController::errorCode DiagnosticController::askPackage(const char* apcMethod,
                                                                 unsigned long aulTestRequestId,
                                                                 bool abKeepsLockWhenReleased,
                                                                 Read aRead) {
  TraceScope trace(mpDiagTracer, apcMethod);
  unsigned long life = 0;
  const auto lookUp = [&] {
    return orFail(kUnableToGetLock, kRequestNotFound, [&] {
      return mpTestRequestManager->acquireTestRequest(aulTestRequestId, kTimeOut);
    });
  };
  const errorCode found = answerInside(ClientCall::askPackage, trace, [&] {
    life = mpClientCalls->life();
    lookUp();
    return SUCCESS;
  });
  if (found != SUCCESS) {
    return found;
  }
  return answer(trace, [&] {
    LockScope lock(mmtxDiagProgressLock, 0, kUnableToGetLock);
    const ClientCallScope inside(*mpClientCalls);
    requireSameLife(inside, ClientCall::askPackage, life);
    const RequestReference request = lookUp();
    const auto pinned = orFail(kIDiagnosticNotFound, kIDiagnosticNotFound,
                               [&] { return std::make_unique<DiagnosticsPin>(*request); });
    if (!*pinned) {
      if (abKeepsLockWhenReleased) {
        lock.keepHeld();  // as this call has always done: the next one of either kind blocks
      }
      throw kIDiagnosticNotFound;
    }
    orPackageFailed(kIDiagnosticNotFound, [&] { aRead((*pinned)->getDiagnosticStatus()); });
    return SUCCESS;
  });
}

/// Whether the controller is still the one that a call has met before it waited.
void DiagnosticController::requireSameLife(const ClientCallScope& arInside, ClientCall aeCall,
                                           unsigned long aulLife) {
  if (arInside.isTurnedAway() || mpClientCalls->life() != aulLife) {
    throw WrongPhase{aeCall, DiagControllerStatus::UNINITIALISED};
  }
  const diagCtrlPhase phase =
      orFail(kUnableToGetLock, kUnableToGetLock, [&] { return getDiagCtrlPhase(kTimeOut); });
  if (!isAllowed(gateRow(aeCall), phase)) {
    throw WrongPhase{aeCall, phase};
  }
}

DiagnosticController::errorCode DiagnosticController::getDiagnosticStatus(
    unsigned long aulTestRequestId, Diag::DiagnosticStatus::Status& aruiDiagStatus) {
  return askPackage("DiagnosticController::getDiagnosticStatus", aulTestRequestId, true,
                    [&](const Status& arStatus) { aruiDiagStatus = arStatus.getStatus(); });
}

DiagnosticController::errorCode DiagnosticController::getDiagnosticProgress(
    unsigned long aulTestRequestId, unsigned int& aruiDiagProgress) {
  return askPackage("DiagnosticController::getDiagnosticProgress", aulTestRequestId, false,
                    [&](const Status& arStatus) { aruiDiagProgress = arStatus.getProgress(); });
}

DiagnosticController::errorCode DiagnosticController::getRequestStatus(
    long lTestRequestId, TestRequest::TestRequestStatus& arStatus, int& aiCurPassCnt,
    int& aiTotalPassCnt, bool& abStrssMode) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::getRequestStatus");
  return answerInside(ClientCall::queryRequest, trace, [&] {
    orFail(kUnableToGetLock, kRequestNotFound, [&] {
      const RequestReference request = mpTestRequestManager->acquireTestRequest(
          static_cast<unsigned long>(lTestRequestId), kTimeOut);
      Diag::DiagnosticSettings& settings = *request->getDiagnosticSettings();
      arStatus = request->getTestRequestStatus(kTimeOut);
      aiCurPassCnt = settings.getPassCount();
      aiTotalPassCnt = settings.getRequestedPassCount();
      abStrssMode = settings.getStressMode() != 0;
    });
    return SUCCESS;
  });
}

// The client gets a vector whatever follows, and owns it.
DiagnosticController::errorCode DiagnosticController::getRequestIdList(
    std::vector<unsigned long>*& arTestRequestIdList) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::getRequestIdList");
  return contain([&] {
    arTestRequestIdList = new std::vector<unsigned long>;
    return readRequestIds(trace, *arTestRequestIdList);
  });
}

DiagnosticController::errorCode DiagnosticController::readRequestIds(
    TraceScope& arTrace, std::vector<unsigned long>& arIds) {
  return answerInside(ClientCall::queryRequest, arTrace, [&] {
    orFail(kUnableToGetLock, kUnableToGetLock, [&] {
      const TestRequestIdList ids = mpTestRequestManager->getTestRequestIdList(kTimeOut);
      arIds.assign(ids.begin(), ids.end());
    });
    return SUCCESS;
  });
}

DiagnosticController::errorCode DiagnosticController::getTestRequest(int requestId,
                                                                     TestRequest*& arpRequest) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::getTestRequest");
  return answerInside(ClientCall::queryRequest, trace, [&] {
    arpRequest = orFail(kUnableToGetLock, kObjectNotFound, [&] {
      return mpTestRequestManager->getTestRequestObj(static_cast<unsigned long>(requestId),
                                                     kTimeOut);
    });
    return SUCCESS;
  });
}

DiagnosticController::errorCode DiagnosticController::clearRequestIdList() {
  TraceScope trace(mpDiagTracer, "DiagnosticController::clearRequestIdList");
  return answerInside(ClientCall::clearRequests, trace, [&] {
    orFail(kUnableToGetLock, kUnableToGetLock,
           [&] { mpTestRequestManager->clearTestRequestMap(); });
    return SUCCESS;
  });
}

}  // namespace TarvexDiags::DiagCtrl
