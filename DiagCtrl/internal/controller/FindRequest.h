#pragma once

#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/TestRequestManager.h"
#include "DiagCtrl/internal/controller/RequestReference.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

/// Looks a request up; an unknown id is traced.
inline RequestReference findRequest(TestRequestManager& arTestRequestManager,
                                    const TraceScope& arTrace, unsigned long aulTestRequestId,
                                    long alTimeOutValue) {
  try {
    return arTestRequestManager.acquireTestRequest(aulTestRequestId, alTimeOutValue);
  } catch (const DiagCtrlObjectNotFound&) {
    arTrace.errorValue("REQUEST NOT FOUND, INVALID REQ ID:", aulTestRequestId);
    throw;
  }
}

}  // namespace TarvexDiags::DiagCtrl
