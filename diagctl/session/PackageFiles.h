#pragma once

#include <set>
#include <string>

namespace TarvexDiags::FrontEnd {

/// The base names of the packages in a directory: of each description whose library can be read.
/// Empty for a directory that cannot be, or ends early.
std::set<std::string> packagesIn(const std::string& directory);

/// The paths of what a package consists of.
std::string descriptionOf(const std::string& directory, const std::string& package);
std::string libraryOf(const std::string& directory, const std::string& package);

}  // namespace TarvexDiags::FrontEnd
