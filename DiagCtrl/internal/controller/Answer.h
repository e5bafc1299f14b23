#pragma once

#include <cxxabi.h>

#include <string>

#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/internal/controller/ClientFailure.h"
#include "DiagCtrl/internal/controller/PhaseGate.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/ground/ClientCallCount.h"

namespace TarvexDiags::DiagCtrl {

template <class Steps>
DiagnosticController::errorCode DiagnosticController::contain(Steps aSteps) {
  try {
    return aSteps();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    pushError(kUnableToGetLock.event);
    return kUnableToGetLock.result;
  }
}

template <class Steps>
DiagnosticController::errorCode DiagnosticController::answer(TraceScope& arTrace, Steps aSteps) {
  return contain([&] {
    try {
      return aSteps();
    } catch (const ClientFailure& failure) {
      arTrace.errorValueOf([&] { return std::string(arTrace.method()) + " failed"; },
                           failure.result);
      return fail(arTrace, failure.event, failure.result);
    } catch (const WrongPhase& wrong) {
      return refuse(gateRow(wrong.call), wrong.phase, arTrace);
    }
  });
}

template <class Steps>
DiagnosticController::errorCode DiagnosticController::answerInside(ClientCall aeCall,
                                                                   TraceScope& arTrace,
                                                                   Steps aSteps) {
  return contain([&] {
    const ClientCallScope inside(*mpClientCalls);
    if (const auto refused = refusalInside(inside, aeCall, arTrace)) {
      return *refused;
    }
    return answer(arTrace, aSteps);
  });
}

template <class Steps>
DiagnosticController::errorCode DiagnosticController::answerBehind(ClientCall aeCall,
                                                                   TraceScope& arTrace,
                                                                   Steps aSteps) {
  return contain([&] {
    if (const auto refused = refusal(aeCall, arTrace)) {
      return *refused;
    }
    return answer(arTrace, aSteps);
  });
}

}  // namespace TarvexDiags::DiagCtrl
