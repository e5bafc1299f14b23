#pragma once

#include <chrono>
#include <optional>

#include "DiagCtrl/DiagnosticController.h"

namespace TarvexDiags::FrontEnd {

/// Tells how far requests have come. What makes a request an ended one is settled here alone.
class RequestWatch {
 public:
  /// The pass that a request is at.
  struct Pass {
    int number = 0;
    int of = 0;
  };

  /// @param controller kept alive by the caller.
  explicit RequestWatch(DiagCtrl::DiagnosticController& controller) : m_controller(controller) {}

  /// Whether nothing more comes of a request: its status is final and its package's object is gone.
  /// An aborted one is final long before its package has returned. One that the controller does not
  /// know has ended.
  bool hasEnded(unsigned long requestId) const;

  /// Whether the last pass of a request was judged; its package's object may still be there.
  bool isJudged(unsigned long requestId) const;

  /// Waits until a request has ended. @param giveUp the limit. @return whether it has ended.
  [[nodiscard]] bool waitForEnd(unsigned long requestId,
                                std::chrono::steady_clock::time_point giveUp) const;

  /// The pass that runs; nothing while none does.
  std::optional<Pass> runningPass(unsigned long requestId) const;

  /// How much of the pass is done, in percent; nothing while the package cannot tell.
  std::optional<unsigned int> progress(unsigned long requestId) const;

 private:
  DiagCtrl::TestRequest* find(unsigned long requestId) const;

  DiagCtrl::DiagnosticController& m_controller;
};

}  // namespace TarvexDiags::FrontEnd
