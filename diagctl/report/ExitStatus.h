#pragma once

#include <cstddef>

namespace TarvexDiags::FrontEnd {

/// How a run that ended is told to the caller of the program.
enum class ExitStyle {
  Plain,   ///< 0 passed, 1 hardware failure, 2 no verdict, 3 nothing ran
  Nagios,  ///< 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN
  Npd,     ///< node problem detector: 0 OK, 1 not OK, 2 unknown
};

namespace ExitCode {
inline constexpr int kPassed = 0;
inline constexpr int kHardwareFailure = 1;
inline constexpr int kNoVerdict = 2;
inline constexpr int kNothingRan = 3;
inline constexpr int kUsage = 64;
inline constexpr int kSignalBase = 128;
}  // namespace ExitCode

/// What became of a run, for the exit status.
struct RunSummary {
  std::size_t passed = 0;
  std::size_t failed = 0;
  std::size_t warned = 0;    ///< ended without a verdict, or with a warning
  std::size_t troubled = 0;  ///< the tool could not do its work
  std::size_t aborted = 0;   ///< ended by a person, a signal or the total time
  std::size_t skipped = 0;   ///< not possible here

  std::size_t ran() const { return passed + failed + warned + troubled; }
};

/// What spoils a run beside its tests.
struct RunConditions {
  std::size_t failedPackages = 0;    ///< packages that could not be loaded: no verdict on theirs
  bool hasUnmatchedPattern = false;  ///< something that was asked for does not exist
  bool isStrict = false;             ///< a warning counts as no verdict
};

int exitCodeOf(const RunSummary& summary, const RunConditions& conditions);

/// The same outcome in another style.
int translate(int code, const RunSummary& summary, ExitStyle style);

}  // namespace TarvexDiags::FrontEnd
