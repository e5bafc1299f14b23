#pragma once

#include <vector>

#include "diagctl/session/Selection.h"
#include "diagctl/session/Session.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// How long one test on one device takes.
struct Estimate {
  SelectedPair pair;
  long seconds = -1;  ///< of all passes; -1: cannot be told
};

struct EstimateSums {
  long serial = 0;
  long parallel = 0;  ///< the device with most to do
  bool isComplete = true;
};

/// Asks the packages: each request is queued in estimation mode, in which a package tells its
/// figure and tests nothing. A package that tells none has the figure of its description.
std::vector<Estimate> estimate(Session& session, const std::vector<SelectedPair>& pairs, int passes,
                               bool isQuick);

EstimateSums sum(const std::vector<Estimate>& estimates);

void writeEstimates(Printer& out, const std::vector<Estimate>& estimates);

}  // namespace TarvexDiags::FrontEnd
