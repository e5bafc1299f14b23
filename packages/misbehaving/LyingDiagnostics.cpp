#include "packages/misbehaving/LyingDiagnostics.h"

#include <algorithm>
#include <utility>

using namespace TarvexDiags;

LyingDiagnostics::LyingDiagnostics(std::unique_ptr<IDiagnostics> honest)
    : m_honest(std::move(honest)) {}

LyingDiagnostics::~LyingDiagnostics() = default;

Diag::DiagnosticResult* LyingDiagnostics::runDiagnostic(DeviceEnum::VirtualDevice& device,
                                                        Diag::DiagnosticSettings* settings) {
  const auto& tests = settings->getTestNumberVector();
  m_isLying = std::count(tests.begin(), tests.end(), kLyingTest) > 0;
  auto* const result = m_honest->runDiagnostic(device, settings);
  m_isLying = false;
  return result;
}

bool LyingDiagnostics::IsDeviceSupported(DeviceEnum::VirtualDevice& device, int testId) {
  return m_honest->IsDeviceSupported(device, testId);
}

Diag::DiagnosticStatus LyingDiagnostics::getDiagnosticStatus() {
  Diag::DiagnosticStatus status = m_honest->getDiagnosticStatus();
  if (m_isLying) {
    status.setStatus(Diag::DiagnosticStatus::COMPLETED);
    status.setProgress(4'000'000'000U);
    status.setPassCount(4'000'000'000U);
    status.setTimeRemaining(-1);
  }
  return status;
}

void LyingDiagnostics::abortDiagnostic() {
  m_honest->abortDiagnostic();
}

void LyingDiagnostics::suspendDiagnostic() {
  m_honest->suspendDiagnostic();
}

void LyingDiagnostics::resumeDiagnostic() {
  m_honest->resumeDiagnostic();
}

std::vector<Diag::DiagnosticEvent*>* LyingDiagnostics::getDiagnosticEvents() {
  return m_honest->getDiagnosticEvents();
}

std::vector<Diag::DiagnosticResult*>* LyingDiagnostics::getDiagnosticResults() {
  return m_honest->getDiagnosticResults();
}
