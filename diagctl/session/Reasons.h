#pragma once

#include <string>

#include "diagctl/session/Catalogue.h"

namespace TarvexDiags::FrontEnd {

/// Fills in why tests are not supported, as far as packages say so: the controller knows a yes or
/// no alone, and a package of the kit writes its reason into its log, NAME.log in the directory of
/// logs, while this process enumerates.
void readReasons(Catalogue& catalogue, const std::string& logDirectory);

}  // namespace TarvexDiags::FrontEnd
