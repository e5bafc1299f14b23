#pragma once

#include <functional>
#include <string>

#include "Diag/DiagnosticEvent.h"
#include "diagctl/report/RunEvents.h"

namespace TarvexDiags::FrontEnd {

/// Tells of faults of the machine that show beside what is tested: poisoned
/// memory under a test of something else. They are a step of the run's own,
/// which the first of them begins, so that the test has no verdict and the
/// hardware has one.
class MachineWatch {
 public:
  /// @param tell tells and records.
  explicit MachineWatch(std::function<void(RunEventBody)> tell) : m_tell(std::move(tell)) {}

  /// Takes an event of any test; most do not concern the machine.
  void take(const Diag::DiagnosticEvent& event);

  /// Tells the end, if there was a beginning. Nothing follows.
  void end();

 private:
  std::function<void(RunEventBody)> m_tell;
  bool m_hasBegun = false;
};

}  // namespace TarvexDiags::FrontEnd
