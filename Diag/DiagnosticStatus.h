#pragma once

#include "System/Export.h"
#include "System/SysUtil.h"

namespace TarvexDiags::Diag {

/**
 * @brief How a run stands: a small value that a package returns whenever it is asked.
 *
 * Thread-safety: a plain value.
 */
class TARVEXDIAGS_EXPORT DiagnosticStatus {
 public:
  enum Status : unsigned int {
    READY = 0,      ///< no pass is inside runDiagnostic, and one may start
    COMPLETED = 1,  ///< the run has ended and its result is queued
    EXECUTING = 2,  ///< inside runDiagnostic
    SUSPENDED = 3,  ///< inside runDiagnostic, held by suspendDiagnostic
    UNKNOWN = 4,    ///< nothing is known
  };

  /** @brief UNKNOWN, and 0 for the rest. */
  DiagnosticStatus();

  void setStatus(Status status);
  Status getStatus() const;

  /** @brief Sets how much of the run is done, in percent: 0 to 100. */
  void setProgress(Uint progress);
  Uint getProgress() const;

  /** @brief Sets the number of passes done. The controller reads it in stress mode only. */
  void setPassCount(Uint passCount);
  Uint getPassCount() const;

  /** @brief Sets the time that the run will still take, in seconds; 0 when it cannot be told. */
  void setTimeRemaining(int timeRemaining);
  int getTimeRemaining() const;

 private:
  Status m_status = UNKNOWN;
  Uint m_progress = 0;
  Uint m_passCount = 0;
  int m_timeRemaining = 0;
};

}  // namespace TarvexDiags::Diag
