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

/// @brief The kit's own reasons why a test is not possible: tokens of its texts.
inline constexpr const char* kNoReason = "KIT_NO_REASON";
inline constexpr const char* kNoSuchTest = "KIT_NO_SUCH_TEST";
inline constexpr const char* kNotOffered = "KIT_NOT_OFFERED";  ///< detail: the diagnostic mode
/// A pair that can never be: clients neither offer nor list it.
inline constexpr const char* kNotForThisKind = "KIT_NOT_FOR_THIS_KIND";
inline constexpr std::array<const char*, 4> kReasons = {kNoReason, kNoSuchTest, kNotOffered,
                                                        kNotForThisKind};

/// @brief A detail that no language has a word for, as it stands behind its reason: " (/dev/sda)".
/// Nothing for no detail.
inline std::string inBrackets(const std::string& detail) {
  return detail.empty() ? std::string() : " (" + detail + ")";
}

}  // namespace TarvexDiags::PackageKit::Contract
