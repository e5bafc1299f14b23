#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "diagctl/report/Fleet.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/StepRecord.h"
#include "report/svg/Markup.h"

namespace TarvexDiags::FrontEnd::Html {

/// A run of a page that tells of several.
struct RunOfMany {
  std::string id;  ///< of its part of the page; empty: it stands in the list alone
  std::string machine;
  std::chrono::system_clock::time_point begin;
  RunVerdict verdict = RunVerdict::Passed;
  OutcomeSums sums;
};

/// How many runs came to what, and each of them, the worst first.
/// @param further how many there were beyond those.
void writeRuns(Svg::Markup& out, std::vector<RunOfMany> runs, std::size_t further);

/// What the tests of all runs came to together, the worst first.
void writeTestsOfMany(Svg::Markup& out, const Fleet& fleet);

}  // namespace TarvexDiags::FrontEnd::Html
