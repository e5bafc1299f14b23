#include "DiagCtrl/internal/controller/Abort.h"

#include <algorithm>

#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagCtrlReleaseLibraryFailed.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/TestRequest.h"
#include "DiagCtrl/TestRequestManager.h"
#include "DiagCtrl/internal/controller/Call.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/DiagnosticsPin.h"
#include "DiagCtrl/internal/controller/FindRequest.h"
#include "DiagCtrl/internal/controller/RequestReference.h"
#include "DiagCtrl/internal/foundation/Swallow.h"

namespace TarvexDiags::DiagCtrl {

// The choice of the branch and the abort flag are one step; the rest follows outside of it.
void DiagnosticController::Abort::request(DiagnosticController& arController,
                                          TestRequest& arTestRequest, long alTimeOutValue) {
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
  kClientsAtRest.mayRead();
  try {
    arTestRequest.releaseIDiagnostic(*arController.mpDiagPackInterface, alTimeOutValue);
  } catch (const DiagCtrlReleaseLibraryFailed&) {
    Call::pushError(arController, DiagCtrlEvent::RELEASE_LIBRARY_FAILED);
  } catch (const DiagCtrlMutexException&) {
    Call::pushError(arController, DiagCtrlEvent::RELEASE_LIBRARY_FAILED);
  }
  const unsigned long id = arTestRequest.id();
  arController.mpDiagUtil->pushDiagCtrlEvent(DiagCtrlEvent::TEST_REQUEST_ABORTED,
                                             Diag::DiagnosticEvent::INFORMATION_EVENT,
                                             static_cast<unsigned int>(id));
  arController.mpDiagTracer->traceValue(DiagCtrlConstants::DIAG_INFORMATION, __FILE__, __LINE__,
                                        "TEST_REQUEST_ABORTED", id);
}

DiagnosticController::errorCode DiagnosticController::Abort::all(DiagnosticController& arController,
                                                                 const TraceScope& arTrace) {
  if (arController.mbAbortAllFlag) {
    arController.mpDiagUtil->pushDiagCtrlEvent(DiagCtrlEvent::ABORT_ALL_ALREADY_IN_PROCESS,
                                               Diag::DiagnosticEvent::WARNING_EVENT, 0);
    return ABORT_ALL_ALREADY_IN_PROCESS;
  }
  arController.mbAbortAllFlag = true;
  kClientsAtRest.mayRead();
  TestRequestManager& manager = *arController.mpTestRequestManager;
  for (const unsigned long id : manager.getTestRequestIdList(-1)) {
    try {
      request(arController, *findRequest(manager, arTrace, id, -1), -1);
    } catch (const DiagCtrlObjectNotFound&) {
      throw kRequestNotFound;
    }
  }
  return SUCCESS;
}

// A thread can be inside although its request has left the list: aborted before, or finished by a
// package that reported completion too early. Nothing can be torn down before it has come out.
void DiagnosticController::Abort::workersLeft(DiagnosticController& arController) {
  kClientsAtRest.mayRead();
  TestRequestManager& manager = *arController.mpTestRequestManager;
  const TestRequestIdList ids = manager.getTestRequestIdList(-1);
  for (const RequestReference& inFlight : manager.requestsInFlight()) {
    if (std::find(ids.begin(), ids.end(), inFlight->getTestRequestId()) == ids.end()) {
      request(arController, *inFlight, -1);
    }
  }
}

void DiagnosticController::Abort::oneByOne(DiagnosticController& arController) {
  kClientsAtRest.mayRead();
  unsigned long id = 0;
  while (const RequestReference next =
             arController.mpTestRequestManager->acquireUnfinishedAfter(id)) {
    swallowAll(false, [&] { return request(arController, *next, -1), true; });
    id = next->getTestRequestId();
  }
}

}  // namespace TarvexDiags::DiagCtrl
