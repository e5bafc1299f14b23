// Steering and watching queued requests.

#include <cxxabi.h>

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
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/TestRequest.h"
#include "DiagCtrl/TestRequestManager.h"
#include "DiagCtrl/internal/controller/Abort.h"
#include "DiagCtrl/internal/controller/Call.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/DiagnosticsPin.h"
#include "DiagCtrl/internal/controller/FindRequest.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/controller/RequestReference.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/ground/ClientCallCount.h"

namespace TarvexDiags::DiagCtrl {

namespace {

using Code = DiagnosticController;
using Status = Diag::DiagnosticStatus;

constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;
constexpr ClientFailure kIDiagnosticNotFound{DiagCtrlEvent::IDIAGNOSTIC_NOT_FOUND,
                                             Code::IDIAGNOSTIC_NOT_FOUND};

bool mayBeSuspended(TestRequest& arTestRequest) {
  const TestRequest::TestRequestStatus status = arTestRequest.getTestRequestStatus(kTimeOut);
  return status == TestRequest::RUNNING || status == TestRequest::WAIT;
}

}  // namespace

/// A call that steers or watches requests.
class DiagnosticController::Control {
 public:
  /// @param apcMethod "Class::method", a literal.
  Control(DiagnosticController& arController, const char* apcMethod)
      : mrController(arController), mCall(arController, apcMethod) {}

  /// One hold of the big lock over all requests; the first that is unknown ends the call.
  template <class Act>
  errorCode act(std::span<const unsigned long> aIds, Act aAct);
  errorCode abort(std::span<const unsigned long> aIds);
  errorCode abortAll();
  /// The answer of a package about the pass of a request.
  enum class WhenReleased : unsigned int { keepsLock, releasesLock };
  template <class Read>
  errorCode askPackage(unsigned long aulTestRequestId, WhenReleased aeWhenReleased, Read aRead);
  errorCode readRequestIds(std::vector<unsigned long>*& arpIds);
  /// Runs a step with what holds the requests.
  template <class Step>
  errorCode useRequests(ClientCall aeCall, const ClientFailure& arOnMissing, Step aStep);

 private:
  TestRequestManager& requests() const {
    kClientsAtRest.mayRead();
    return *mrController.mpTestRequestManager;
  }
  errorCode abortAllUnderLock();
  RequestReference lookUp(unsigned long aulTestRequestId);
  void requireSameLife(const ClientCallScope& arInside, ClientCall aeCall, unsigned long aulLife);

  DiagnosticController& mrController;
  Call mCall;
};

template <class Act>
DiagnosticController::errorCode DiagnosticController::Control::act(
    std::span<const unsigned long> aIds, Act aAct) {
  return mCall.answerBehind(ClientCall::control, [&] {
    orFail({.onLock = kUnableToGetLock, .onMissing = kRequestNotFound}, [&] {
      const LockScope apiLock(mrController.mmtxApiPhaseLock, 0);
      Call::requireManagers(mrController);
      for (const unsigned long id : aIds) {
        aAct(*findRequest(requests(), mCall.trace(), id, kTimeOut), id);
      }
    });
    return SUCCESS;
  });
}

template <class Step>
DiagnosticController::errorCode DiagnosticController::Control::useRequests(
    ClientCall aeCall, const ClientFailure& arOnMissing, Step aStep) {
  return mCall.answerInside(aeCall, [&] {
    orFail({.onLock = kUnableToGetLock, .onMissing = arOnMissing}, [&] { aStep(requests()); });
    return SUCCESS;
  });
}

DiagnosticController::errorCode DiagnosticController::Control::abort(
    std::span<const unsigned long> aIds) {
  return act(aIds, [this](TestRequest& arTestRequest, unsigned long aulId) {
    Abort::request(mrController, arTestRequest, kTimeOut);
    requests().removeFromTestReqIdList(aulId);
  });
}

DiagnosticController::errorCode DiagnosticController::abortTest(unsigned long ulRequestId) {
  return Control(*this, "DiagnosticController::abortTest").abort({&ulRequestId, 1});
}

DiagnosticController::errorCode DiagnosticController::abortTest(
    std::vector<unsigned long>& requestIdVector) {
  return Control(*this, "DiagnosticController::abortTest").abort(requestIdVector);
}

DiagnosticController::errorCode DiagnosticController::abortAllTest() {
  return Control(*this, "DiagnosticController::abortAllTest").abortAll();
}

// A lock failure leaves the call.
DiagnosticController::errorCode DiagnosticController::Control::abortAll() {
  if (const auto refused = mCall.refusal(ClientCall::abortAll)) {
    return *refused;
  }
  std::exception_ptr lockFailure;
  const errorCode answered = mCall.answer([&] {
    try {
      return abortAllUnderLock();
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

// The flag is cleared before the lock is, so that the next caller never meets a flag that is only
// on its way out.
DiagnosticController::errorCode DiagnosticController::Control::abortAllUnderLock() {
  LockScope apiLock(mrController.mmtxApiPhaseLock, -1);
  Call::requireManagers(mrController);
  errorCode result = SUCCESS;
  try {
    result = Abort::all(mrController, mCall.trace());
  } catch (const std::bad_alloc&) {
    mrController.mbAbortAllFlag = false;  // it may be tried again
    throw;
  } catch (const abi::__forced_unwind&) {
    mrController.mbAbortAllFlag = false;
    throw;
  }
  if (result == SUCCESS) {
    mrController.mbAbortAllFlag = false;
  } else {
    apiLock.keepHeld();  // nobody goes on until a shut-down clears up
  }
  return result;
}

DiagnosticController::errorCode DiagnosticController::suspendTest(unsigned long ulRequestId) {
  return Control(*this, "DiagnosticController::suspendTest")
      .act({&ulRequestId, 1}, [](TestRequest& arTestRequest, unsigned long /*aulId*/) {
        if (!mayBeSuspended(arTestRequest)) {
          return;
        }
        const DiagnosticsPin diagnostics(arTestRequest);
        if (!diagnostics) {
          return;
        }
        orPackageFailed(kIDiagnosticNotFound, [&] {
          const Status::Status status = diagnostics->getDiagnosticStatus().getStatus();
          if (status == Status::EXECUTING || status == Status::READY) {
            diagnostics->suspendDiagnostic();
          }
        });
      });
}

DiagnosticController::errorCode DiagnosticController::resumeTest(unsigned long ulRequestId) {
  return Control(*this, "DiagnosticController::resumeTest")
      .act({&ulRequestId, 1}, [](TestRequest& arTestRequest, unsigned long /*aulId*/) {
        if (!mayBeSuspended(arTestRequest)) {
          return;
        }
        if (const DiagnosticsPin diagnostics(arTestRequest); diagnostics) {
          orPackageFailed(kIDiagnosticNotFound, [&] { diagnostics->resumeDiagnostic(); });
        }
      });
}

RequestReference DiagnosticController::Control::lookUp(unsigned long aulTestRequestId) {
  return orFail({.onLock = kUnableToGetLock, .onMissing = kRequestNotFound},
                [&] { return requests().acquireTestRequest(aulTestRequestId, kTimeOut); });
}

// While the call waits for its lock, which another may hold for ever, it is not counted and has
// nothing in its hands: it looks again at everything once it has the lock.
template <class Read>
DiagnosticController::errorCode DiagnosticController::Control::askPackage(
    unsigned long aulTestRequestId, WhenReleased aeWhenReleased, Read aRead) {
  unsigned long life = 0;
  const errorCode found = mCall.answerInside(ClientCall::askPackage, [&] {
    life = mrController.mpClientCalls->life();
    lookUp(aulTestRequestId);
    return SUCCESS;
  });
  if (found != SUCCESS) {
    return found;
  }
  return mCall.answer([&] {
    LockScope lock(mrController.mmtxDiagProgressLock, 0, kUnableToGetLock);
    const ClientCallScope inside(*mrController.mpClientCalls);
    requireSameLife(inside, ClientCall::askPackage, life);
    const RequestReference request = lookUp(aulTestRequestId);
    const auto pinned =
        orFail(kIDiagnosticNotFound, [&] { return std::make_unique<DiagnosticsPin>(*request); });
    if (!*pinned) {
      if (aeWhenReleased == WhenReleased::keepsLock) {
        lock.keepHeld();  // as this call has always done: the next one of either kind blocks
      }
      throw kIDiagnosticNotFound;
    }
    orPackageFailed(kIDiagnosticNotFound, [&] { aRead((*pinned)->getDiagnosticStatus()); });
    return SUCCESS;
  });
}

/// Whether the controller is still the one that a call has met before it waited.
void DiagnosticController::Control::requireSameLife(const ClientCallScope& arInside,
                                                    ClientCall aeCall, unsigned long aulLife) {
  if (arInside.isTurnedAway() || mrController.mpClientCalls->life() != aulLife) {
    throw WrongPhase{aeCall, DiagControllerStatus::UNINITIALISED};
  }
  const diagCtrlPhase phase =
      orFail(kUnableToGetLock, [&] { return mrController.getDiagCtrlPhase(kTimeOut); });
  if (!isAllowed(gateRow(aeCall), phase)) {
    throw WrongPhase{aeCall, phase};
  }
}

DiagnosticController::errorCode DiagnosticController::getDiagnosticStatus(
    unsigned long aulTestRequestId, Diag::DiagnosticStatus::Status& aruiDiagStatus) {
  return Control(*this, "DiagnosticController::getDiagnosticStatus")
      .askPackage(aulTestRequestId, Control::WhenReleased::keepsLock,
                  [&](const Status& arStatus) { aruiDiagStatus = arStatus.getStatus(); });
}

DiagnosticController::errorCode DiagnosticController::getDiagnosticProgress(
    unsigned long aulTestRequestId, unsigned int& aruiDiagProgress) {
  return Control(*this, "DiagnosticController::getDiagnosticProgress")
      .askPackage(aulTestRequestId, Control::WhenReleased::releasesLock,
                  [&](const Status& arStatus) { aruiDiagProgress = arStatus.getProgress(); });
}

DiagnosticController::errorCode DiagnosticController::getRequestStatus(
    long lTestRequestId, TestRequest::TestRequestStatus& arStatus, int& aiCurPassCnt,
    int& aiTotalPassCnt, bool& abStrssMode) noexcept {
  return Control(*this, "DiagnosticController::getRequestStatus")
      .useRequests(ClientCall::queryRequest, kRequestNotFound, [&](TestRequestManager& arRequests) {
        const RequestReference request =
            arRequests.acquireTestRequest(static_cast<unsigned long>(lTestRequestId), kTimeOut);
        Diag::DiagnosticSettings& settings = *request->getDiagnosticSettings();
        arStatus = request->getTestRequestStatus(kTimeOut);
        aiCurPassCnt = settings.getPassCount();
        aiTotalPassCnt = settings.getRequestedPassCount();
        abStrssMode = settings.getStressMode() != 0;
      });
}

DiagnosticController::errorCode DiagnosticController::getRequestIdList(
    std::vector<unsigned long>*& arTestRequestIdList) noexcept {
  return Control(*this, "DiagnosticController::getRequestIdList")
      .readRequestIds(arTestRequestIdList);
}

// The client gets a vector whatever follows, and owns it.
DiagnosticController::errorCode DiagnosticController::Control::readRequestIds(
    std::vector<unsigned long>*& arpIds) {
  return mCall.contain([&] {
    arpIds = new std::vector<unsigned long>;
    return useRequests(ClientCall::queryRequest, kUnableToGetLock,
                       [&](TestRequestManager& arRequests) {
                         const TestRequestIdList ids = arRequests.getTestRequestIdList(kTimeOut);
                         arpIds->assign(ids.begin(), ids.end());
                       });
  });
}

DiagnosticController::errorCode DiagnosticController::getTestRequest(
    int requestId, TestRequest*& arpRequest) noexcept {
  return Control(*this, "DiagnosticController::getTestRequest")
      .useRequests(ClientCall::queryRequest, kObjectNotFound, [&](TestRequestManager& arRequests) {
        arpRequest = arRequests.getTestRequestObj(static_cast<unsigned long>(requestId), kTimeOut);
      });
}

DiagnosticController::errorCode DiagnosticController::clearRequestIdList() noexcept {
  return Control(*this, "DiagnosticController::clearRequestIdList")
      .useRequests(ClientCall::clearRequests, kUnableToGetLock,
                   [&](TestRequestManager& arRequests) { arRequests.clearTestRequestMap(); });
}

}  // namespace TarvexDiags::DiagCtrl
