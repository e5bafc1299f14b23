#pragma once

#include <string>

#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/internal/ClientFailure.h"
#include "DiagCtrl/internal/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

template <class Steps>
DiagnosticController::errorCode DiagnosticController::answer(TraceScope& arTrace, Steps aSteps) {
  try {
    return aSteps();
  } catch (const ClientFailure& failure) {
    arTrace.errorValue(std::string(arTrace.method()) + " failed", failure.result);
    return fail(arTrace, failure.event, failure.result);
  }
}

}  // namespace TarvexDiags::DiagCtrl
