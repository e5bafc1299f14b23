// How long a set of tests will take.

#include <memory>
#include <numeric>
#include <vector>

#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticSettings.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "DiagCtrl/TestRequestManager.h"
#include "DiagCtrl/internal/controller/Answer.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/controller/RequestReference.h"
#include "DiagCtrl/internal/foundation/Swallow.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;
constexpr int kNoEstimate = -1;
// Estimates are taken from the first registration of results, whoever made it.
constexpr unsigned long kResultRegistration = 1;

/// A failure that ends the collection with a trace line and no event.
struct UnknownFailure {};

/// Runs a step; a failure that has no event of its own is an unknown one.
template <class Step>
decltype(auto) orUnknown(Step aStep) {
  try {
    return aStep();
  } catch (const ClientFailure&) {
    throw;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    throw UnknownFailure{};
  }
}

}  // namespace

DiagnosticController::errorCode DiagnosticController::runEstimation(
    const std::vector<int>& aPackageIndexVec, const std::vector<int>& aDeviceIdVec,
    const std::vector<int>& aTestIdVec, std::vector<int>& apTestRequestIdVec,
    Diag::DiagnosticSettings& arDiagSettings) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::runEstimation");
  if (const auto refused = refusal(ClientCall::runEstimation, trace)) {
    return *refused;
  }
  for (std::size_t i = 0; i < aPackageIndexVec.size(); ++i) {
    std::vector<int> test{aTestIdVec.at(i)};
    arDiagSettings.setHaltOnError(true);
    arDiagSettings.setRequestedPassCount(1);
    unsigned long requestId = 0;
    const errorCode result =
        queueTest(aPackageIndexVec[i], static_cast<unsigned int>(aDeviceIdVec.at(i)), test,
                  arDiagSettings, true, requestId);
    if (result != SUCCESS) {
      if (abortAllTest() != SUCCESS) {
        trace.warning("UNABLE_TO_ABORT_TESTS: ");
        pushError(DiagCtrlEvent::UNABLE_TO_ABORT_TESTS);
      }
      return result;
    }
    apTestRequestIdVec.push_back(static_cast<int>(requestId));
  }
  return SUCCESS;
}

bool DiagnosticController::getEstimatedTime(const std::vector<int>& apTestRequestIdVec,
                                            std::vector<int>& apTimeRemainingVec,
                                            int& totalTimeRemaining) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::getEstimatedTime");
  totalTimeRemaining = kNoEstimate;
  const errorCode result = contain([&] {
    if (apTestRequestIdVec.empty()) {
      trace.error("DiagnosticController::getEstimatedTime- invalid size for apTestRequestIdVec");
      return SUCCESS;
    }
    return answerInside(ClientCall::readEstimate, trace, [&] {
      totalTimeRemaining = estimate(trace, apTestRequestIdVec, apTimeRemainingVec);
      return SUCCESS;
    });
  });
  return result != INCORRECT_PHASE;
}

/// The sum of the figures; none if one is missing, or on any failure.
int DiagnosticController::estimate(TraceScope& arTrace, const std::vector<int>& arRequestIds,
                                   std::vector<int>& arFigures) {
  try {
    if (collectEstimates(arRequestIds.size(), arFigures)) {
      return getToTalTimeRemaining(arRequestIds, arFigures);
    }
  } catch (const ClientFailure& failure) {
    fail(arTrace, failure.event, failure.result);
  } catch (const UnknownFailure&) {
    arTrace.error("DiagnosticController::getEstimatedTime- Unknown Exception");
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    // No registration of results, say: there is no estimate then.
  }
  return kNoEstimate;
}

// Results drained here stay allocated, also when there were too few of them. @return whether every
// result had a figure.
bool DiagnosticController::collectEstimates(std::size_t aRequestCount,
                                            std::vector<int>& apTimeRemainingVec) {
  const ResultVector& results = *mpEventManager->getResults(kResultRegistration);
  if (results.size() < aRequestCount) {
    return false;
  }
  for (Diag::DiagnosticResult* result : results) {
    int figure = result->getEstimatedTime();
    if (figure == 0) {
      figure = configuredEstimate(result->getTestRequestId());
    }
    apTimeRemainingVec.push_back(figure);
    if (figure == kNoEstimate) {
      return false;
    }
  }
  return true;
}

// The figure of the package's configuration file, by way of the request.
int DiagnosticController::configuredEstimate(unsigned long aulTestRequestId) {
  constexpr ClientFailure kRequestNotFound{DiagCtrlEvent::REQUEST_OBJECT_NOT_FOUND,
                                           REQUEST_OBJECT_NOT_FOUND};
  PackageTestInfo* test = orUnknown([&] {
    const RequestReference request = orFail(kUnableToGetLock, kRequestNotFound, [&] {
      return mpTestRequestManager->acquireTestRequest(aulTestRequestId, kTimeOut);
    });
    DiagnosticPackage& package =
        orFail(kObjectNotFound, kObjectNotFound,
               [&]() -> DiagnosticPackage& { return request->getDiagPackageRef(); });
    return orFail(kTestObjectNotFound, kTestObjectNotFound, [&] {
      const DiagIntList tests = request->getTestIdList();
      if (tests.empty()) {
        throw UnknownFailure{};
      }
      return package.getTestInfoFromPackage(tests.front());
    });
  });
  return orFail(kUnableToGetLock, kUnableToGetLock, [&] { return test->getTestEstimatedTime(); });
}

int DiagnosticController::getToTalTimeRemaining(const std::vector<int>& /*apTestRequestIdVec*/,
                                                const std::vector<int>& apTimeRemainingVec) {
  TraceScope trace(mpDiagTracer, "DiagnosticController::getToTalTimeRemaining");
  // Unsigned: a sum that overflows wraps, and that is all.
  unsigned int sum = 0;
  answerInside(ClientCall::sumEstimates, trace, [&] {
    sum = std::accumulate(apTimeRemainingVec.begin(), apTimeRemainingVec.end(), 0U,
                          [](unsigned int auiSum, int aiFigure) {
                            return auiSum + static_cast<unsigned int>(aiFigure);
                          });
    return SUCCESS;
  });
  return static_cast<int>(sum);
}

bool DiagnosticController::getTimeRemaining(const std::vector<int>& /*apTestRequestIdVec*/,
                                            std::vector<int>& /*apTimeRemainingVec*/,
                                            int& /*totalTimeRemaining*/) {
  return false;
}

}  // namespace TarvexDiags::DiagCtrl
