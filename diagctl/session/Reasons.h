#pragma once

#include <vector>

#include "diagctl/session/Catalogue.h"
#include "packagekit/contract/SupportLines.h"

namespace TarvexDiags::FrontEnd {

/// Fills in why tests are not supported, as far as packages said so while they were enumerated: the
/// controller knows a yes or no alone.
void addReasons(Catalogue& catalogue, const std::vector<PackageKit::Contract::SupportLine>& lines);

}  // namespace TarvexDiags::FrontEnd
