#pragma once

#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

/// How requests are aborted, by the calls of a client and by a shut-down.
class DiagnosticController::Abort {
 public:
  static void request(DiagnosticController& arController, TestRequest& arTestRequest,
                      long alTimeOutValue);
  /// Every request on the list of ids. Neither takes nor gives back the big lock, which a shut-down
  /// holds already, and leaves `mbAbortAllFlag` to the caller. The flag also stays set when an id
  /// has vanished: until the next shut-down.
  static errorCode all(DiagnosticController& arController, const TraceScope& arTrace)
      TARVEXDIAGS_REQUIRES(arController.mmtxApiPhaseLock);
  /// Requests with a pass thread inside whose id has left the list.
  static void workersLeft(DiagnosticController& arController);
  /// Every unfinished request, without memory: a test that nobody aborts would hold a shut-down up.
  static void oneByOne(DiagnosticController& arController);
};

}  // namespace TarvexDiags::DiagCtrl
