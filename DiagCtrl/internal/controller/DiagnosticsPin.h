#pragma once

#include "Diag/IDiagnostics.h"
#include "DiagCtrl/TestRequest.h"

namespace TarvexDiags::DiagCtrl {

/// Keeps a request's package object alive for a scope.
class DiagnosticsPin {
 public:
  explicit DiagnosticsPin(TestRequest& arTestRequest)
      : mrTestRequest(arTestRequest), mpIDiagnostics(arTestRequest.pinIDiagnostics()) {}
  ~DiagnosticsPin() {
    if (mpIDiagnostics != nullptr) {
      mrTestRequest.unpinIDiagnostics();
    }
  }
  DiagnosticsPin(const DiagnosticsPin&) = delete;
  DiagnosticsPin& operator=(const DiagnosticsPin&) = delete;

  explicit operator bool() const noexcept { return mpIDiagnostics != nullptr; }
  Diag::IDiagnostics* operator->() const noexcept { return mpIDiagnostics; }

 private:
  TestRequest& mrTestRequest;
  Diag::IDiagnostics* mpIDiagnostics;
};

}  // namespace TarvexDiags::DiagCtrl
