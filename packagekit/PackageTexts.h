#pragma once

#include <string>
#include <vector>

namespace TarvexDiags::PackageKit {

/// @brief Checks that a package can be understood in every language: for the tests of each package.
///
/// For each language (see contract/Texts.h) there must be a file `<language>/<name>.cfg` with a
/// section of the language's name. For each token in the sections Information, Warning, Error and
/// DeviceStatus of `<name>.cfg`, and for each value of the keys `NameToken` and `DescriptionToken`
/// of sections Package and TestID<n>, it must hold a text under the token; for events and device
/// statuses also a recommended next action under the token with "_ACTION" at its end. All languages
/// must use the same variables ("$1$") in a text. Codes must be decimal, in the range of packages
/// or the kit's own, each once in its section.
///
/// @param directory where the package lies
/// @param name its base name
/// @return what is wrong, a line for each fault; empty when all is well
[[nodiscard]] std::vector<std::string> checkPackageTexts(const std::string& directory,
                                                         const std::string& name);

}  // namespace TarvexDiags::PackageKit
