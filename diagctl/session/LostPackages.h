#pragma once

#include <map>
#include <string>
#include <vector>

#include "diagctl/session/Catalogue.h"

namespace TarvexDiags::FrontEnd {

/// The packages of a directory that are neither in the catalogue nor disabled, in the order in
/// which the controller looks at them, each with its reason.
/// @param told what the controller told of packages that it left out, in its order: it names none.
/// @param failures what packages told themselves of why their devices were not found, by base name
std::vector<LostPackage> findLostPackages(const std::string& directory, const Catalogue& catalogue,
                                          const std::vector<std::string>& told,
                                          const std::map<std::string, std::string>& failures);

/// For people: "package storage was left out: ...".
std::string describe(const LostPackage& package);

}  // namespace TarvexDiags::FrontEnd
