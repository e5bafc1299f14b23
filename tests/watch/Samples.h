#pragma once

#include <gmock/gmock.h>

#include <optional>
#include <ostream>
#include <string>

#include "watch/Finding.h"

namespace TarvexDiags::Watching {

/// How a sample looks in a test's message.
inline void PrintTo(const Sample& sample, std::ostream* stream) {
  *stream << sample.sensor << " " << sample.value << " " << sample.unit;
}

/// @brief Matches a sample.
inline auto isSample(const std::string& sensor, double value, const std::string& unit,
                     std::optional<double> limit = std::nullopt) {
  return ::testing::AllOf(::testing::Field(&Sample::sensor, sensor),
                          ::testing::Field(&Sample::value, ::testing::DoubleNear(value, 1e-6)),
                          ::testing::Field(&Sample::unit, unit),
                          ::testing::Field(&Sample::limit, limit));
}

}  // namespace TarvexDiags::Watching
