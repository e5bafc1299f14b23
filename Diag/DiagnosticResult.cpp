#include "Diag/DiagnosticResult.h"

namespace TarvexDiags::Diag {

namespace {

std::string nameOf(DiagnosticResult::TestResult result) {
  switch (result) {
    case DiagnosticResult::PASSED:
      return "PASSED";
    case DiagnosticResult::UNUSUAL_STATUS:
      return "UNUSUAL_STATUS";
    case DiagnosticResult::FAILED:
      return "FAILED";
  }
  return std::to_string(static_cast<unsigned int>(result));
}

}  // namespace

DiagnosticResult::DiagnosticResult() = default;
DiagnosticResult::DiagnosticResult(const DiagnosticResult& other) = default;
DiagnosticResult& DiagnosticResult::operator=(const DiagnosticResult& other) = default;
DiagnosticResult::~DiagnosticResult() = default;

const std::string& DiagnosticResult::dump() {
  return keepDump(describe() + ", result " + nameOf(m_testResult) + ", estimated time " +
                  std::to_string(m_estimatedTime));
}

void DiagnosticResult::setTestResult(TestResult testResult) {
  m_testResult = testResult;
}

DiagnosticResult::TestResult DiagnosticResult::getTestResult() const {
  return m_testResult;
}

void DiagnosticResult::setEstimatedTime(int estimatedTime) {
  m_estimatedTime = estimatedTime;
}

int DiagnosticResult::getEstimatedTime() const {
  return m_estimatedTime;
}

}  // namespace TarvexDiags::Diag
