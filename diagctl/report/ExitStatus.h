#pragma once

#include <cstddef>

#include "diagctl/report/RunVerdict.h"

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

/// What was skipped and counts as no verdict.
enum class FailOnSkip { Nothing, Privilege, Everything };

/// What spoils a run beside its tests.
struct RunConditions {
  std::size_t failedPackages = 0;  ///< packages that could not be loaded: no verdict on theirs
  bool isStrict = false;           ///< a warning counts as no verdict
  FailOnSkip failOnSkip = FailOnSkip::Nothing;
};

/// What a run comes to where a warning, or what was skipped, may count as no verdict.
[[nodiscard]] RunVerdict verdictOf(const RunRecord& record, const RunConditions& conditions);

/// In plain style.
[[nodiscard]] int exitCodeOf(RunVerdict verdict);

[[nodiscard]] int exitCodeOf(const RunSummary& summary, const RunConditions& conditions);

/// Whether a step that came to this keeps a run from ending with 0.
bool isTrouble(StepRecord::Outcome outcome, const RunConditions& conditions);

/// The same for a record, live or of a log, which knows its lost packages by itself.
[[nodiscard]] int exitCodeOf(const RunRecord& record, const RunConditions& conditions);

/// The same outcome in another style; wrong usage is the same in each.
[[nodiscard]] int translate(int code, const RunSummary& summary, ExitStyle style);

}  // namespace TarvexDiags::FrontEnd
