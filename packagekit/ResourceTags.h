#pragma once

#include <string>
#include <vector>

namespace TarvexDiags::PackageKit {

/// @brief The component of a resource tag that locks go by.
std::string lastComponent(const std::string& resourceTag);

/// @brief Finds resource tags whose last components clash: such devices would share a lock.
/// @return a line for each clash, naming both tags; tags that are equal as a whole clash as well
[[nodiscard]] std::vector<std::string> findTagClashes(const std::vector<std::string>& resourceTags);

}  // namespace TarvexDiags::PackageKit
