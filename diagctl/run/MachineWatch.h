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
  /// The step.
  static constexpr const char* kStep = kMachineStep;

  /// @param tell tells and records.
  explicit MachineWatch(std::function<void(RunEventBody)> tell) : m_tell(std::move(tell)) {}

  /// Takes an event of any test; most do not concern the machine.
  void take(const Diag::DiagnosticEvent& event);

  /// Tells the beginning of the step, unless it was told. Whoever tells in it does so first.
  void begin();

  /// Tells the end, if there was a beginning. Nothing follows.
  void end(RunStatus status = RunStatus::Complete);

 private:
  std::function<void(RunEventBody)> m_tell;
  bool m_hasBegun = false;
  bool m_isPoisoned = false;  ///< the memory, which was told
};

}  // namespace TarvexDiags::FrontEnd
