#pragma once

#include <string>
#include <vector>

#include "diagctl/check/Check.h"

namespace TarvexDiags::FrontEnd {

/// All faults of one package: its description, its shared object and exports, its tokens, and its
/// texts in each language of the directory.
/// @param mayLoad whether the shared object may be loaded to look at its exports.
void checkPackage(const std::string& descriptionFile, bool mayLoad, std::vector<Problem>& problems);

}  // namespace TarvexDiags::FrontEnd
