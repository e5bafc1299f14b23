#pragma once

#include <vector>

#include "diagctl/report/RunEvents.h"
#include "diagctl/session/Catalogue.h"

namespace TarvexDiags::FrontEnd {

/// A package of two tests on one device: "Sequential read" is enabled there, "Random read"
/// disabled.
Catalogue oneDeviceCatalogue();

/// The stream of a run with an event of each kind but progress.
std::vector<RunEvent> wholeRun();

}  // namespace TarvexDiags::FrontEnd
