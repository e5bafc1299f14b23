#pragma once

#include "diagctl/report/RunEvents.h"

namespace TarvexDiags::FrontEnd {

/// Turns the stream of a run into one format.
class Reporter {
 public:
  Reporter() = default;
  Reporter(const Reporter&) = delete;
  Reporter& operator=(const Reporter&) = delete;
  virtual ~Reporter() = default;

  /// Called for each event, in order, on one thread.
  virtual void handle(const RunEvent& event) = 0;
  /// Called once behind the last event, also of a run that was cut short.
  virtual void finish() = 0;
};

}  // namespace TarvexDiags::FrontEnd
