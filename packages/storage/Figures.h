#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace TarvexDiags::Storage {

using Nanoseconds = std::chrono::nanoseconds;

/// @brief Latencies of a run, for medians and the like.
class Latencies {
 public:
  void add(Nanoseconds latency) { m_values.push_back(latency); }
  std::size_t count() const { return m_values.size(); }
  /// @param share between 0 and 1: 0.5 is the median, 1 the slowest. 0 when there is no latency.
  Nanoseconds quantile(double share);

 private:
  std::vector<Nanoseconds> m_values;
};

/// @brief Bytes a second; 0 for no time.
double rateOf(std::uint64_t bytes, Nanoseconds elapsed);

/// @brief "1234.5 MB/s", with 10^6 bytes to the MB as disks are sold.
std::string rateText(double bytesPerSecond);

/// @brief "85 us", "12.3 ms".
std::string latencyText(Nanoseconds latency);

/// @brief "1.00 TB".
std::string sizeText(std::uint64_t bytes);

}  // namespace TarvexDiags::Storage
