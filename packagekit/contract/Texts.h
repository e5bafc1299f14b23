#pragma once

#include <array>
#include <string>

namespace TarvexDiags::PackageKit::Contract {

/// @brief The languages of every text: a package has a file for each, and so has the kit.
inline constexpr std::array<const char*, 6> kLanguages = {"en", "de", "fr", "es", "zh", "ja"};

/// @brief Where a text is looked up that its language lacks.
inline constexpr const char* kFallbackLanguage = kLanguages[0];

/// @brief What stands between tokens where a parameter is a list of them.
inline constexpr const char* kBetweenWords = "; ";

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

/// What became of a worker, or of what it said: parameters of the kit's events.
inline constexpr const char* kNoProcess = "KIT_NO_PROCESS";
inline constexpr const char* kNotReadyInTime = "KIT_NOT_READY_IN_TIME";
inline constexpr const char* kHostLacksMemory = "KIT_HOST_LACKS_MEMORY";
inline constexpr const char* kTestLacksMemory = "KIT_TEST_LACKS_MEMORY";
inline constexpr const char* kUnknownException = "KIT_UNKNOWN_EXCEPTION";
/// How a device is known to have vanished where its test does not say more.
inline constexpr const char* kNoSuchDevice = "KIT_NO_SUCH_DEVICE";
inline constexpr const char* kNoMedium = "KIT_NO_MEDIUM";
inline constexpr const char* kFrameTooShort = "KIT_FRAME_TOO_SHORT";
inline constexpr const char* kFrameOutOfRange = "KIT_FRAME_OUT_OF_RANGE";
inline constexpr const char* kNoFrame = "KIT_NO_FRAME";
inline constexpr const char* kFrameOfOtherVersion = "KIT_FRAME_OF_OTHER_VERSION";
inline constexpr const char* kFrameTooLong = "KIT_FRAME_TOO_LONG";
inline constexpr const char* kFrameDamaged = "KIT_FRAME_DAMAGED";
inline constexpr const char* kFrameUnknown = "KIT_FRAME_UNKNOWN";
inline constexpr const char* kEventNotAllowed = "KIT_EVENT_NOT_ALLOWED";
inline constexpr const char* kTestNotDue = "KIT_TEST_NOT_DUE";
inline constexpr const char* kEndNotDue = "KIT_END_NOT_DUE";
inline constexpr const char* kVerdictNotAllowed = "KIT_VERDICT_NOT_ALLOWED";
inline constexpr const char* kPassEndNotDue = "KIT_PASS_END_NOT_DUE";
inline constexpr std::array kWords = {
    kNoProcess,           kNotReadyInTime, kHostLacksMemory, kTestLacksMemory,
    kUnknownException,    kFrameTooShort,  kFrameOutOfRange, kNoFrame,
    kFrameOfOtherVersion, kFrameTooLong,   kFrameDamaged,    kFrameUnknown,
    kEventNotAllowed,     kTestNotDue,     kEndNotDue,       kVerdictNotAllowed,
    kPassEndNotDue,       kNoSuchDevice,   kNoMedium};

}  // namespace TarvexDiags::PackageKit::Contract
