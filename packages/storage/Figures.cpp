#include "packages/storage/Figures.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace TarvexDiags::Storage {

Nanoseconds Latencies::quantile(double share) {
  if (m_values.empty()) {
    return Nanoseconds{0};
  }
  const auto last = static_cast<double>(m_values.size() - 1);
  const auto place = m_values.begin() + std::lround(share * last);
  std::nth_element(m_values.begin(), place, m_values.end());
  return *place;
}

double rateOf(std::uint64_t bytes, Nanoseconds elapsed) {
  const double seconds = std::chrono::duration<double>(elapsed).count();
  return seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
}

std::string rateText(double bytesPerSecond) {
  return fmt::format("{:.1f} MB/s", bytesPerSecond / 1e6);
}

std::string latencyText(Nanoseconds latency) {
  const auto nanoseconds = static_cast<double>(latency.count());
  return nanoseconds < 1e6 ? fmt::format("{:.0f} us", nanoseconds / 1e3)
                           : fmt::format("{:.1f} ms", nanoseconds / 1e6);
}

std::string sizeText(std::uint64_t bytes) {
  constexpr std::array<const char*, 6> units{"B", "kB", "MB", "GB", "TB", "PB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (value >= 1000 && unit + 1 < units.size()) {
    value /= 1000;
    ++unit;
  }
  return unit == 0 ? fmt::format("{} B", bytes) : fmt::format("{:.2f} {}", value, units[unit]);
}

}  // namespace TarvexDiags::Storage
