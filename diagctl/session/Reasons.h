#pragma once

#include <string>
#include <vector>

#include "diagctl/session/Catalogue.h"
#include "diagctl/session/Texts.h"
#include "packagekit/contract/SupportLines.h"

namespace TarvexDiags::FrontEnd {

/// The kind of a reason that a package gives.
SkipKind skipKindOf(const std::string& reason);

/// Fills in why tests are not supported, and which pairs are impossible, as far as packages said so
/// while they were enumerated: the controller knows a yes or no alone.
/// @param texts must have kept those of the packages.
void addReasons(Catalogue& catalogue, const std::vector<PackageKit::Contract::SupportLine>& lines,
                const Texts& texts);

}  // namespace TarvexDiags::FrontEnd
