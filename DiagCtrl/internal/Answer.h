#pragma once

#include <string>

#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/internal/ClientCallCount.h"
#include "DiagCtrl/internal/ClientFailure.h"
#include "DiagCtrl/internal/PhaseGate.h"
#include "DiagCtrl/internal/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

template <class Steps>
DiagnosticController::errorCode DiagnosticController::answer(TraceScope& arTrace, Steps aSteps) {
  try {
    return aSteps();
  } catch (const ClientFailure& failure) {
    arTrace.errorValue(std::string(arTrace.method()) + " failed", failure.result);
    return fail(arTrace, failure.event, failure.result);
  } catch (const WrongPhase& wrong) {
    return refuse(gateRow(wrong.call), wrong.phase, arTrace);
  }
}

template <class Steps>
DiagnosticController::errorCode DiagnosticController::answerInside(ClientCall aeCall,
                                                                   TraceScope& arTrace,
                                                                   Steps aSteps) {
  const ClientCallScope inside(*mpClientCalls);
  if (const auto refused = refusalInside(inside, aeCall, arTrace)) {
    return *refused;
  }
  return answer(arTrace, aSteps);
}

}  // namespace TarvexDiags::DiagCtrl
