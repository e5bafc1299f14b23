#pragma once

#include <string>

#include "Diag/DiagnosticEvent.h"
#include "System/Export.h"

namespace TarvexDiags::Diag {

/**
 * @brief The verdict of one pass of a request, with whatever an event carries beside it.
 *
 * Thread-safety: as DiagnosticEvent.
 */
class TARVEXDIAGS_EXPORT DiagnosticResult : public DiagnosticEvent {
 public:
  enum TestResult : unsigned int { PASSED = 0, UNUSUAL_STATUS = 1, FAILED = 2 };

  /** @brief UNUSUAL_STATUS, so that a verdict nobody gave is never taken for a pass; no estimate.
   */
  DiagnosticResult();
  DiagnosticResult(const DiagnosticResult& other);
  DiagnosticResult& operator=(const DiagnosticResult& other);
  ~DiagnosticResult() override;

  /** @brief As for an event, with the verdict and the estimate at the end. */
  const std::string& dump() override;

  void setTestResult(TestResult testResult);
  TestResult getTestResult() const;

  /** @brief Sets the time that the tests of the request would take, in seconds; 0 is no figure. */
  void setEstimatedTime(int estimatedTime);
  int getEstimatedTime() const;

 private:
  TestResult m_testResult = UNUSUAL_STATUS;
  int m_estimatedTime = 0;
};

}  // namespace TarvexDiags::Diag
