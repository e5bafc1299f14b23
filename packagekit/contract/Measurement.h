#pragma once

#include <charconv>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace TarvexDiags::PackageKit::Contract {

/// @brief Which test on which device an event of the kit is about: its first three parameters.
struct TestReference {
  std::string testId;  ///< the number of the test, decimal
  std::string testName;
  std::string resourceTag;
};

/// @brief What a measurement says.
struct Measurement {
  std::string name;
  std::string value;  ///< see toText and toNumber
  std::string unit;   ///< may be empty
};

/// @brief How many details the event of a measurement has.
inline constexpr std::size_t kMeasurementDetails = 3;

/// @brief The parameters of an event of the kit: what it is about, then its details.
inline std::vector<std::string> toParameters(TestReference about,
                                             std::vector<std::string> details) {
  std::vector<std::string> parameters{std::move(about.testId), std::move(about.testName),
                                      std::move(about.resourceTag)};
  parameters.insert(parameters.end(), std::make_move_iterator(details.begin()),
                    std::make_move_iterator(details.end()));
  return parameters;
}

/// @brief A measurement as the details of its event.
inline std::vector<std::string> toDetails(Measurement measurement) {
  return {std::move(measurement.name), std::move(measurement.value), std::move(measurement.unit)};
}

/// @brief Reads the parameters of a measurement's event; nothing if there are too few.
inline std::optional<Measurement> toMeasurement(const std::vector<std::string>& parameters) {
  constexpr std::size_t kName = 3;  // behind what it is about
  constexpr std::size_t kValue = kName + 1;
  constexpr std::size_t kUnit = kValue + 1;
  if (parameters.size() <= kUnit) {
    return std::nullopt;
  }
  return Measurement{parameters[kName], parameters[kValue], parameters[kUnit]};
}

/// @brief How many details the event of a throughput has: its figure and its unit.
inline constexpr std::size_t kThroughputDetails = 2;

/// @brief Reads the parameters of a throughput's event; nothing if there are too few.
/// @return without a name
inline std::optional<Measurement> toThroughput(const std::vector<std::string>& parameters) {
  constexpr std::size_t kValue = 3;  // behind what it is about
  if (parameters.size() < kValue + kThroughputDetails) {
    return std::nullopt;
  }
  return Measurement{"", parameters[kValue], parameters[kValue + 1]};
}

/// @brief A figure as the value of a measurement: the shortest text that reads back as the same.
inline std::string toText(double figure) {
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, figure);
  return {buffer, result.ptr};
}

/// @brief The figure that the value of a measurement is; nothing for words.
inline std::optional<double> toNumber(const std::string& value) {
  double number = 0;
  const char* const end = value.data() + value.size();
  const auto result = std::from_chars(value.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end) {
    return std::nullopt;
  }
  return number;
}

}  // namespace TarvexDiags::PackageKit::Contract
