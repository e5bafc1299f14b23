#include "report/svg/Ticks.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace TarvexDiags::Svg {

namespace {

constexpr double kLargestWritten = 1e7;  ///< beyond, a number is no longer read digit by digit
constexpr int kMostDecimals = 6;
// Beyond these no axis is of use to anybody, and steps would no longer be numbers.
constexpr double kMostValue = 1e300;
constexpr double kMostSeconds = 1e12;

double roundStep(double least) {
  const double power = std::pow(10.0, std::floor(std::log10(least)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= least * (1 - 1e-9)) {
      return factor * power;
    }
  }
  return 10 * power;
}

std::string numberText(double value, double step) {
  if (std::fabs(value) >= kLargestWritten || (value != 0 && std::fabs(value) < 1e-4)) {
    return fmt::format("{:.4g}", value);
  }
  const auto decimals =
      std::clamp(static_cast<int>(-std::floor(std::log10(step) + 1e-9)), 0, kMostDecimals);
  return fmt::format("{:.{}f}", value, decimals);
}

// Without a span, the axis has one around the value.
void widen(double& lowest, double& highest) {
  if (highest / 2 - lowest / 2 > std::max(std::fabs(highest), std::fabs(lowest)) * 1e-9) {
    return;
  }
  const double margin = lowest == 0 ? 1 : std::fabs(lowest) / 10;
  lowest -= margin;
  highest += margin;
}

double timeStep(double least) {
  constexpr std::array kSteps = {1.0,    2.0,    5.0,    10.0,   15.0,   30.0,
                                 60.0,   120.0,  300.0,  600.0,  900.0,  1800.0,
                                 3600.0, 7200.0, 1.08e4, 2.16e4, 4.32e4, 8.64e4};
  if (least <= kSteps.front()) {
    return roundStep(least);
  }
  const auto* const step = std::lower_bound(kSteps.begin(), kSteps.end(), least);
  return step != kSteps.end() ? *step : kSteps.back() * roundStep(least / kSteps.back());
}

std::string timeText(double seconds, double step) {
  if (step < 1) {
    return numberText(seconds, step) + " s";
  }
  const double minutes = std::floor(seconds / 60);
  const double hours = std::floor(minutes / 60);
  const double second = seconds - 60 * minutes;
  return hours > 0 ? fmt::format("{:.0f}:{:02.0f}:{:02.0f}", hours, minutes - 60 * hours, second)
                   : fmt::format("{:.0f}:{:02.0f}", minutes, second);
}

}  // namespace

std::vector<Tick> ticksAround(double lowest, double highest, std::size_t most) {
  lowest = std::clamp(lowest, -kMostValue, kMostValue);
  highest = std::clamp(highest, -kMostValue, kMostValue);
  widen(lowest, highest);
  const double step = roundStep(
      2 * ((highest / 2 - lowest / 2) / static_cast<double>(std::max<std::size_t>(most, 2) - 1)));
  const double first = std::floor(lowest / step + 1e-9);
  std::vector<Tick> ticks;
  do {
    const double value = (first + static_cast<double>(ticks.size())) * step;
    ticks.push_back({value, numberText(value, step)});
  } while (ticks.back().value < highest - step * 1e-9 && ticks.size() <= most + 1);
  return ticks;
}

std::vector<Tick> timesWithin(double seconds, std::size_t most) {
  seconds = std::min(seconds, kMostSeconds);
  const double step = timeStep(seconds / static_cast<double>(std::max<std::size_t>(most, 2) - 1));
  std::vector<Tick> ticks;
  for (std::size_t place = 0; place < most; ++place) {
    const double value = static_cast<double>(place) * step;
    if (value > seconds * (1 + 1e-9)) {
      break;
    }
    ticks.push_back({value, timeText(value, step)});
  }
  return ticks;
}

}  // namespace TarvexDiags::Svg
