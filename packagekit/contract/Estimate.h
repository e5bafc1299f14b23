#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "packagekit/contract/Measurement.h"

namespace TarvexDiags::PackageKit::Contract {

/// @brief The key of a test's section for what its short form takes, in seconds, beside
/// `TestEstimatedTime`.
inline constexpr const char* kQuickEstimateKey = "QuickTestEstimatedTime";

/// @brief Seconds as the controller counts them: none too few, and not 0 for a moment.
inline int wholeSeconds(double seconds) {
  constexpr double kMost = std::numeric_limits<int>::max();
  return static_cast<int>(std::min(std::ceil(std::max(seconds, 0.0)), kMost));
}

/// @brief An estimate as the parameters of its result, which tell it finer than whole seconds.
inline std::vector<std::string> toEstimate(double seconds) {
  return {toText(seconds)};
}

/// @brief The estimate that a result tells. @param whole what its `getEstimatedTime` says:
/// parameters that do not fit it are none of the kit's.
inline double estimateFrom(int whole, const std::vector<std::string>& parameters) {
  const auto fine = parameters.size() == 1 ? toNumber(parameters.front()) : std::nullopt;
  return fine && *fine > 0 && wholeSeconds(*fine) == whole ? *fine : whole;
}

}  // namespace TarvexDiags::PackageKit::Contract
