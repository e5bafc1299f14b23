#include "packagekit/ResourceTags.h"

#include <map>

namespace TarvexDiags::PackageKit {

std::string lastComponent(const std::string& resourceTag) {
  const auto separator = resourceTag.rfind('/');
  return separator == std::string::npos ? resourceTag : resourceTag.substr(separator + 1);
}

std::vector<std::string> findTagClashes(const std::vector<std::string>& resourceTags) {
  std::map<std::string, std::string> holders;
  std::vector<std::string> clashes;
  for (const std::string& tag : resourceTags) {
    const auto holder = holders.emplace(lastComponent(tag), tag);
    if (!holder.second) {
      clashes.push_back(holder.first->second + " and " + tag);
    }
  }
  return clashes;
}

}  // namespace TarvexDiags::PackageKit
