#pragma once

#include <algorithm>
#include <string_view>

namespace TarvexDiags::PackageKit::Contract {

/// @brief A word of key `TestCapabilities`: the test computes on its device, and neither the kernel
/// nor a driver has a part in its crash. So a crash is repeated, here and on another device, before
/// anybody is blamed for it.
inline constexpr std::string_view kComputing = "computing";

/// @brief A word of key `TestCapabilities`: the test takes its device out of service meanwhile, or
/// overwrites what is on it. A front end runs it only for somebody who allowed that in so many
/// words.
inline constexpr std::string_view kDestructive = "destructive";

/// @brief Whether key `TestCapabilities`, words between commas or blanks, has a word.
constexpr bool hasCapability(std::string_view capabilities, std::string_view word) {
  constexpr std::string_view separators = ", \t";
  while (!capabilities.empty()) {
    const std::size_t end = std::min(capabilities.find_first_of(separators), capabilities.size());
    if (capabilities.substr(0, end) == word) {
      return true;
    }
    capabilities.remove_prefix(std::min(end + 1, capabilities.size()));
  }
  return false;
}

}  // namespace TarvexDiags::PackageKit::Contract
