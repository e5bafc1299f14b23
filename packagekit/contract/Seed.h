#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

namespace TarvexDiags::PackageKit::Contract {

/// @brief The name of the seed: as a key of a package's configuration, and in a client's text.
inline constexpr const char* kSeedKey = "Seed";

/// @brief The line by which a client hands its seed to the tests of a request: the text to which
/// the parameter pointer of its settings leads consists of such lines.
/// @param seed from 1 to the largest `long`
inline std::string toSeedLine(std::uint64_t seed) {
  return std::string(kSeedKey) + "=" + std::to_string(seed) + "\n";
}

/// @brief The seed in a client's text; 0 if it gives none. The first line of a seed counts.
/// @param text of any lines; null for none
inline std::uint64_t seedOf(const char* text) {
  const std::string head = std::string(kSeedKey) + "=";
  for (std::string_view rest = text == nullptr ? "" : text; !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    if (line.substr(0, head.size()) != head) {
      continue;
    }
    const std::string_view digits = line.substr(head.size());
    long seed = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), seed);
    const bool isWhole = result.ec == std::errc() && result.ptr == digits.data() + digits.size();
    return isWhole && seed > 0 ? static_cast<std::uint64_t>(seed) : 0;
  }
  return 0;
}

}  // namespace TarvexDiags::PackageKit::Contract
