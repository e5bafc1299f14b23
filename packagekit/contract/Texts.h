#pragma once

#include <array>
#include <string>

namespace TarvexDiags::PackageKit::Contract {

/// @brief The languages of every text: a package has a file for each, and so has the kit.
inline constexpr std::array<const char*, 6> kLanguages = {"en", "de", "fr", "es", "zh", "ja"};

/// @brief Where a text is looked up that its language lacks.
inline constexpr const char* kFallbackLanguage = kLanguages[0];

/// @brief The token of the recommended next action, beside the text of a token.
inline std::string toActionToken(const std::string& token) {
  return token + "_ACTION";
}

}  // namespace TarvexDiags::PackageKit::Contract
