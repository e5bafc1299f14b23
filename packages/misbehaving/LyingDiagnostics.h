#pragma once

#include <atomic>
#include <memory>

#include "Diag/IDiagnostics.h"

/// Stands before another object and tells untruths about it while one of the lying tests runs: that
/// it has ended, that it is done by some billion percent.
class LyingDiagnostics : public TarvexDiags::Diag::IDiagnostics {
 public:
  static constexpr int kLyingTest = 25;

  explicit LyingDiagnostics(std::unique_ptr<IDiagnostics> honest);
  ~LyingDiagnostics() override;

  TarvexDiags::Diag::DiagnosticResult* runDiagnostic(
      TarvexDiags::DeviceEnum::VirtualDevice& device,
      TarvexDiags::Diag::DiagnosticSettings* settings) override;
  bool IsDeviceSupported(TarvexDiags::DeviceEnum::VirtualDevice& device, int testId) override;
  TarvexDiags::Diag::DiagnosticStatus getDiagnosticStatus() override;
  void abortDiagnostic() override;
  void suspendDiagnostic() override;
  void resumeDiagnostic() override;
  std::vector<TarvexDiags::Diag::DiagnosticEvent*>* getDiagnosticEvents() override;
  std::vector<TarvexDiags::Diag::DiagnosticResult*>* getDiagnosticResults() override;

 private:
  const std::unique_ptr<IDiagnostics> m_honest;
  std::atomic<bool> m_isLying{false};
};
