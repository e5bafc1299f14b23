#pragma once

#include <cstddef>
#include <string>

#include "diagctl/report/RunEvents.h"
#include "diagctl/report/StepRecord.h"

namespace TarvexDiags::FrontEnd {

/// How many steps of a run came to what.
struct RunSummary {
  std::size_t passed = 0;
  std::size_t failed = 0;
  std::size_t warned = 0;    ///< ended without a verdict, or with a warning
  std::size_t troubled = 0;  ///< the tool could not do its work
  std::size_t aborted = 0;   ///< ended by a person, a signal or the total time
  std::size_t notRun = 0;    ///< the run was ended before their turn
  std::size_t skipped = 0;   ///< not possible here, for lack of a privilege or in this mode
  std::size_t skippedForPrivilege = 0;  ///< of those

  std::size_t ran() const { return passed + failed + warned + troubled; }

  RunSummary& operator+=(const RunSummary& other);
};

[[nodiscard]] RunSummary summaryOf(const RunRecord& record);

/// What a run came to as a whole. What stands further up takes precedence: the exit code, the end
/// of the stream and the line for monitors all follow from it.
enum class RunVerdict {
  Failed,      ///< a failure of the hardware
  Troubled,    ///< the tool could not do its work, or a package was lost
  Aborted,     ///< something was ended before its time
  NothingRan,  ///< nothing was found to run
  Warned,
  Passed,
};

/// @param lostPackages packages that could not be loaded: there is no verdict on their tests.
[[nodiscard]] RunVerdict verdictOf(const RunSummary& summary, std::size_t lostPackages);

/// The same for a record, live or of a log: a run that was cut short, or says of itself that it has
/// no result for all, has passed nothing; one that says of itself that it failed has.
[[nodiscard]] RunVerdict verdictOf(const RunRecord& record);

/// Of two runs: the one that takes precedence.
[[nodiscard]] RunVerdict worseOf(RunVerdict one, RunVerdict other);

/// For people: "FAILED: the hardware is at fault".
std::string toText(RunVerdict verdict);

/// The end of the stream of a run that came to this.
[[nodiscard]] RunEnded endOf(RunVerdict verdict);

}  // namespace TarvexDiags::FrontEnd
