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

/// @brief Whether key `TestCapabilities` has a word, whatever stands between its words and however
/// it is written: who is asked before a test must not depend on a comma.
constexpr bool hasCapability(std::string_view capabilities, std::string_view word) {
  const auto lower = [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  };
  const auto isOfWord = [&](char letter) {
    return (lower(letter) >= 'a' && lower(letter) <= 'z') || letter == '-' || letter == '_' ||
           (letter >= '0' && letter <= '9');
  };
  while (!capabilities.empty()) {
    const auto* const end = std::find_if_not(capabilities.begin(), capabilities.end(), isOfWord);
    if (std::equal(capabilities.begin(), end, word.begin(), word.end(),
                   [&](char one, char other) { return lower(one) == lower(other); })) {
      return true;
    }
    const auto length = static_cast<std::size_t>(end - capabilities.begin());
    capabilities.remove_prefix(std::min(length + 1, capabilities.size()));
  }
  return false;
}

}  // namespace TarvexDiags::PackageKit::Contract
