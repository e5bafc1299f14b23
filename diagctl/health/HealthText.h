#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "diagctl/health/HealthResult.h"

namespace TarvexDiags::FrontEnd {

/// Who reads what a check came to, and acts by its exit code.
enum class HealthStyle {
  Plain,   ///< as of a run
  Slurm,   ///< 1 for a failure of the hardware, else 0: what is not 0 takes the node from its users
  Nagios,  ///< as of a run in that style
  Npd,     ///< the same
  Nhc,     ///< as Slurm
};

/// What a vanished device is to such a reader who does not say it.
VanishedAs vanishedFor(HealthStyle style);

int exitCodeFor(const HealthAccount& account, HealthStyle style);

/// How many bytes the first line takes at most, which some readers cut it to.
inline constexpr std::size_t kLongestHealthLine = 80;

/// The account in one line of printable text without "|": "FAIL Memory Walking ones Node 0 (+2)",
/// in the words of a monitoring plug-in "CRITICAL - Memory Walking ones Node 0 (+2)".
/// @param remark stands at its end, whole; empty for none.
std::string lineOf(const HealthAccount& account, HealthStyle style, const std::string& remark);

/// "FAILED Walking ones on Node 0 (DIMM_A1)" of the weightiest finding, in at most so many bytes.
std::string reasonOf(const HealthAccount& account, std::size_t most);

/// The findings with what to do about them, a line each.
std::string detailsOf(const HealthAccount& account);

/// Figures behind the line of a monitoring plug-in.
/// @param seconds that the check has taken. @param age of its result, in seconds.
std::string performanceOf(const HealthAccount& account, double seconds, double age);

/// "12 s", "5 min", "3 h", "2 d".
std::string shortTime(std::chrono::seconds time);

}  // namespace TarvexDiags::FrontEnd
