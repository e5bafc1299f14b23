#pragma once

#include <vector>

#include "diagctl/report/RunEvents.h"
#include "inventory/Parts.h"

namespace TarvexDiags::FrontEnd {

/// Says of the devices under test which parts they are, and adds the machine's other parts, so that
/// whoever orders another one needs the log alone.
void addParts(RunStarted& start, const std::vector<Inventory::Part>& parts);

}  // namespace TarvexDiags::FrontEnd
