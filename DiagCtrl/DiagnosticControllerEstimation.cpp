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
#include "DiagCtrl/internal/controller/Call.h"
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

/// The figures of a set of tests that were queued for them.
class DiagnosticController::Estimation {
 public:
  Estimation(DiagnosticController& arController, const std::vector<int>& arRequestIds,
             std::vector<int>& arFigures)
      : mrController(arController),
        mrRequestIds(arRequestIds),
        mrFigures(arFigures),
        mCall(arController, "DiagnosticController::getEstimatedTime") {}

  /// The answer to the call; the sum stays untouched if there is no estimate.
  errorCode answer(int& ariTotal);

 private:
  int sum();
  bool collect();
  int configuredEstimate(unsigned long aulTestRequestId);

  DiagnosticController& mrController;
  const std::vector<int>& mrRequestIds;
  std::vector<int>& mrFigures;
  Call mCall;
};

DiagnosticController::errorCode DiagnosticController::runEstimation(
    const std::vector<int>& aPackageIndexVec, const std::vector<int>& aDeviceIdVec,
    const std::vector<int>& aTestIdVec, std::vector<int>& apTestRequestIdVec,
    Diag::DiagnosticSettings& arDiagSettings) {
  Call call(*this, "DiagnosticController::runEstimation");
  if (const auto refused = call.refusal(ClientCall::runEstimation)) {
    return *refused;
  }
  std::vector<int> test;
  const errorCode prepared = call.contain([&] {
    test.resize(1);
    apTestRequestIdVec.reserve(apTestRequestIdVec.size() + aPackageIndexVec.size());
    return SUCCESS;  // the id of a request that was queued is not lost
  });
  if (prepared != SUCCESS) {
    return prepared;
  }
  for (std::size_t i = 0; i < aPackageIndexVec.size(); ++i) {
    test[0] = aTestIdVec.at(i);
    arDiagSettings.setHaltOnError(true);
    arDiagSettings.setRequestedPassCount(1);
    unsigned long requestId = 0;
    const errorCode result =
        queueTest(aPackageIndexVec[i], static_cast<unsigned int>(aDeviceIdVec.at(i)), test,
                  arDiagSettings, true, requestId);
    if (result != SUCCESS) {
      if (abortAllTest() != SUCCESS) {
        call.trace().warning("UNABLE_TO_ABORT_TESTS: ");
        Call::pushError(*this, DiagCtrlEvent::UNABLE_TO_ABORT_TESTS);
      }
      return result;
    }
    apTestRequestIdVec.push_back(static_cast<int>(requestId));
  }
  return SUCCESS;
}

bool DiagnosticController::getEstimatedTime(const std::vector<int>& apTestRequestIdVec,
                                            std::vector<int>& apTimeRemainingVec,
                                            int& totalTimeRemaining) noexcept {
  totalTimeRemaining = kNoEstimate;
  return Estimation(*this, apTestRequestIdVec, apTimeRemainingVec).answer(totalTimeRemaining) !=
         INCORRECT_PHASE;
}

DiagnosticController::errorCode DiagnosticController::Estimation::answer(int& ariTotal) {
  return mCall.contain([&] {
    if (mrRequestIds.empty()) {
      mCall.trace().error(
          "DiagnosticController::getEstimatedTime- invalid size for apTestRequestIdVec");
      return SUCCESS;
    }
    return mCall.answerInside(ClientCall::readEstimate, [&] {
      ariTotal = sum();
      return SUCCESS;
    });
  });
}

/// The sum of the figures; none if one is missing, or on any failure.
int DiagnosticController::Estimation::sum() {
  try {
    if (collect()) {
      return mrController.getToTalTimeRemaining(mrRequestIds, mrFigures);
    }
  } catch (const ClientFailure& failure) {
    mCall.fail(failure);
  } catch (const UnknownFailure&) {
    mCall.trace().error("DiagnosticController::getEstimatedTime- Unknown Exception");
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    // No registration of results, say: there is no estimate then.
  }
  return kNoEstimate;
}

// Results drained here stay allocated, also when there were too few of them. @return whether every
// result had a figure.
bool DiagnosticController::Estimation::collect() {
  kClientsAtRest.mayRead();
  const ResultVector& results = *mrController.mpEventManager->getResults(kResultRegistration);
  if (results.size() < mrRequestIds.size()) {
    return false;
  }
  for (Diag::DiagnosticResult* result : results) {
    int figure = result->getEstimatedTime();
    if (figure == 0) {
      figure = configuredEstimate(result->getTestRequestId());
    }
    mrFigures.push_back(figure);
    if (figure == kNoEstimate) {
      return false;
    }
  }
  return true;
}

// The figure of the package's configuration file, by way of the request.
int DiagnosticController::Estimation::configuredEstimate(unsigned long aulTestRequestId) {
  PackageTestInfo* test = orUnknown([&] {
    const RequestReference request =
        orFail({.onLock = kUnableToGetLock, .onMissing = kRequestNotFound}, [&] {
          kClientsAtRest.mayRead();
          return mrController.mpTestRequestManager->acquireTestRequest(aulTestRequestId, kTimeOut);
        });
    DiagnosticPackage& package = orFail(
        kObjectNotFound, [&]() -> DiagnosticPackage& { return request->getDiagPackageRef(); });
    return orFail(kTestObjectNotFound, [&] {
      const DiagIntList tests = request->getTestIdList();
      if (tests.empty()) {
        throw UnknownFailure{};
      }
      return package.getTestInfoFromPackage(tests.front());
    });
  });
  return orFail(kUnableToGetLock, [&] { return test->getTestEstimatedTime(); });
}

int DiagnosticController::getToTalTimeRemaining(
    const std::vector<int>& /*apTestRequestIdVec*/,
    const std::vector<int>& apTimeRemainingVec) noexcept {
  Call call(*this, "DiagnosticController::getToTalTimeRemaining");
  // Unsigned: a sum that overflows wraps, and that is all.
  unsigned int sum = 0;
  call.answerInside(ClientCall::sumEstimates, [&] {
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
                                            int& /*totalTimeRemaining*/) noexcept {
  return false;
}

}  // namespace TarvexDiags::DiagCtrl
