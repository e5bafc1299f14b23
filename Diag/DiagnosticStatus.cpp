#include "Diag/DiagnosticStatus.h"

namespace TarvexDiags::Diag {

DiagnosticStatus::DiagnosticStatus() = default;

void DiagnosticStatus::setStatus(Status status) {
  m_status = status;
}

DiagnosticStatus::Status DiagnosticStatus::getStatus() const {
  return m_status;
}

void DiagnosticStatus::setProgress(Uint progress) {
  m_progress = progress;
}

Uint DiagnosticStatus::getProgress() const {
  return m_progress;
}

void DiagnosticStatus::setPassCount(Uint passCount) {
  m_passCount = passCount;
}

Uint DiagnosticStatus::getPassCount() const {
  return m_passCount;
}

void DiagnosticStatus::setTimeRemaining(int timeRemaining) {
  m_timeRemaining = timeRemaining;
}

int DiagnosticStatus::getTimeRemaining() const {
  return m_timeRemaining;
}

}  // namespace TarvexDiags::Diag
