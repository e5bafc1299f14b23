#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "packagekit/contract/Seed.h"

namespace TarvexDiags::PackageKit::Contract {

/// @brief What became of a test that was run once more because it had crashed.
enum class Repetition : unsigned char {
  Crashed,
  Ended,    ///< with a verdict or a warning, and without a crash
  Unclear,  ///< it did not run, or not to an end that tells anything
  NoPlace,  ///< there is no device to run it on
};

/// @brief Who is to blame for the crash of a computing test.
enum class CrashCause : unsigned char {
  Device,   ///< the hardware failed
  Package,  ///< it crashes elsewhere too: no verdict on the hardware
  Chance,   ///< it does not happen again: a warning
  Unknown,  ///< the repetitions do not tell: no verdict
};

/// @brief The judgement on a crash.
/// @param here the repetition on the device of the crash
/// @param elsewhere the repetition on another device of the package. Without one nobody can tell a
///   crash of the device from one of the package, but still one that does not come back.
constexpr CrashCause causeOfCrash(Repetition here, Repetition elsewhere) {
  if (elsewhere == Repetition::Crashed) {
    return CrashCause::Package;
  }
  if (here == Repetition::Ended && elsewhere != Repetition::Unclear) {
    return CrashCause::Chance;
  }
  return here == Repetition::Crashed && elsewhere == Repetition::Ended ? CrashCause::Device
                                                                       : CrashCause::Unknown;
}

/// @brief Whether a signal is one that a wrong computation can end in.
constexpr bool isSignalOfCrash(std::string_view signal) {
  constexpr std::array<std::string_view, 5> signals = {"SIGSEGV", "SIGILL", "SIGFPE", "SIGBUS",
                                                       "SIGABRT"};
  return std::find(signals.begin(), signals.end(), signal) != signals.end();
}

/// @brief The signal that the parameters of event WORKER_CRASHED tell; nothing if there are too
/// few.
inline std::optional<std::string> toSignal(const std::vector<std::string>& parameters) {
  constexpr std::size_t kSignal = 3;  // behind what it is about
  return parameters.size() > kSignal ? std::optional(parameters[kSignal]) : std::nullopt;
}

/// @brief The seed that the parameters of event TEST_STARTED tell; 0 if they tell none.
inline std::uint64_t toSeed(const std::vector<std::string>& parameters) {
  constexpr std::size_t kPlace = 4;  // behind what it is about and the number of the pass
  return parameters.size() > kPlace
             ? seedOf((std::string(kSeedKey) + "=" + parameters[kPlace]).c_str())
             : 0;
}

}  // namespace TarvexDiags::PackageKit::Contract
