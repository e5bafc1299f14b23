#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "diagctl/report/Fleet.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/Spool.h"
#include "diagctl/report/StepRecord.h"
#include "report/svg/Markup.h"

namespace TarvexDiags::FrontEnd::Html {

/// A run of a page that tells of several.
struct RunOfMany {
  std::string id;    ///< of its part, unique among all pages
  std::string link;  ///< to its part; empty: it stands in the list alone
  std::chrono::system_clock::time_point begin;
  RunVerdict verdict = RunVerdict::Passed;
  OutcomeSums sums;
  Spool::Piece part;
};

/// Its runs, in the order in which they were read.
struct MachineOfMany {
  const Fleet::Machine* told = nullptr;  ///< by which it is known
  std::vector<RunOfMany> runs;
  std::string file;  ///< of its page; empty: it has none

  /// Of its worst run.
  RunVerdict verdict() const;
};

using VerdictCounts = std::map<RunVerdict, std::size_t>;

/// How many machines came to what, and each of them with what is worst, the worst first.
/// @param further runs that are not held.
void writeMachines(Svg::Markup& out, const std::vector<MachineOfMany*>& machines,
                   const Fleet& fleet, const VerdictCounts& further);

/// How many runs of a machine came to what, and each of them, the worst first.
void writeRuns(Svg::Markup& out, const MachineOfMany& machine, const VerdictCounts& further);

/// What the tests of all runs came to together, the worst first.
void writeTestsOfMany(Svg::Markup& out, const Fleet& fleet);

}  // namespace TarvexDiags::FrontEnd::Html
