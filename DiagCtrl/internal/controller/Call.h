#pragma once

#include <cxxabi.h>

#include <optional>
#include <string>

#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/ground/ClientCallCount.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

/// One client call on its way through the controller: its trace, the phase gate, and its answer.
class DiagnosticController::Call {
 public:
  /// @param apcMethod "Class::method", a literal.
  Call(DiagnosticController& arController, const char* apcMethod)
      : mrController(arController), mTrace(arController.mpDiagTracer, apcMethod) {}
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  DiagnosticController& controller() const noexcept { return mrController; }
  const TraceScope& trace() const noexcept { return mTrace; }

  /// Reads the phase. @return the answer to a call that is not served now, whose event it raised.
  std::optional<errorCode> refusal(ClientCall aeCall);
  /// Ends the trace and raises the event. @return `aFailure.result`.
  errorCode fail(const ClientFailure& arFailure);
  /// Raises an error of the controller, once the call uses nothing any more.
  static void pushError(const DiagnosticController& arController, DiagCtrlEvent::eventCode aeEvent);

  /// Lets nothing out of a call: what has no answer of its own, memory that is not there say, is
  /// answered like a lock that cannot be had.
  template <class Steps>
  errorCode contain(Steps aSteps);
  /// Runs the steps of a call; a ClientFailure becomes its event and its code.
  template <class Steps>
  errorCode answer(Steps aSteps);
  /// The same behind the gate.
  template <class Steps>
  errorCode answerBehind(ClientCall aeCall, Steps aSteps);
  /// The same for a call that uses the machinery without the big lock: a shut-down waits for it, or
  /// turns it away.
  template <class Steps>
  errorCode answerInside(ClientCall aeCall, Steps aSteps);

  /// A package of the catalogue, or the failure of the call.
  DiagnosticPackage& packageOf(int aiPackageIndex);
  /// Fails a call that waited for the big lock behind a shut-down and finds the machinery gone.
  static void requireManagers(const DiagnosticController& arController)
      TARVEXDIAGS_REQUIRES(arController.mmtxApiPhaseLock);
  /// Said where the big lock was taken out of the compiler's sight: around a step, or by the
  /// resetting thread, which takes down and starts again.
  static void holdsApiPhaseLock(const DiagnosticController& arController) noexcept
      TARVEXDIAGS_ASSERT_CAPABILITY(arController.mmtxApiPhaseLock) {
    static_cast<void>(arController);
  }

 private:
  std::optional<errorCode> refusalInside(const ClientCallScope& arInside, ClientCall aeCall);
  errorCode refuse(const GateRow& arRow, diagCtrlPhase aePhase);

  DiagnosticController& mrController;
  TraceScope mTrace;
};

template <class Steps>
DiagnosticController::errorCode DiagnosticController::Call::contain(Steps aSteps) {
  try {
    return aSteps();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    pushError(mrController, kUnableToGetLock.event);
    return kUnableToGetLock.result;
  }
}

template <class Steps>
DiagnosticController::errorCode DiagnosticController::Call::answer(Steps aSteps) {
  return contain([&] {
    try {
      return aSteps();
    } catch (const ClientFailure& failure) {
      mTrace.errorValueOf([&] { return std::string(mTrace.method()) + " failed"; }, failure.result);
      return fail(failure);
    } catch (const WrongPhase& wrong) {
      return refuse(gateRow(wrong.call), wrong.phase);
    }
  });
}

template <class Steps>
DiagnosticController::errorCode DiagnosticController::Call::answerInside(ClientCall aeCall,
                                                                         Steps aSteps) {
  return contain([&] {
    const ClientCallScope inside(*mrController.mpClientCalls);
    if (const auto refused = refusalInside(inside, aeCall)) {
      return *refused;
    }
    return answer(aSteps);
  });
}

template <class Steps>
DiagnosticController::errorCode DiagnosticController::Call::answerBehind(ClientCall aeCall,
                                                                         Steps aSteps) {
  return contain([&] {
    if (const auto refused = refusal(aeCall)) {
      return *refused;
    }
    return answer(aSteps);
  });
}

}  // namespace TarvexDiags::DiagCtrl
