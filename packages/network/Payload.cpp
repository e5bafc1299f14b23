#include "packages/network/Payload.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace TarvexDiags::Network {
namespace {

/// @brief So many random bytes occur once in a period.
constexpr std::size_t kTelling = 16;

}  // namespace

Payload::Payload(std::uint64_t seed) : m_bytes(kPeriod + kLongest) {
  std::mt19937_64 random(seed);
  for (std::size_t at = 0; at < kPeriod; at += sizeof(std::uint64_t)) {
    const std::uint64_t value = random();
    std::memcpy(&m_bytes[at], &value, std::min(sizeof value, kPeriod - at));
  }
  for (std::size_t at = kPeriod; at < m_bytes.size(); ++at) {
    m_bytes[at] = m_bytes[at - kPeriod];
  }
}

std::optional<std::uint64_t> Payload::find(std::span<const std::byte> bytes,
                                           std::uint64_t position) const {
  if (bytes.size() < kTelling) {
    return std::nullopt;
  }
  const auto end = m_bytes.begin() + static_cast<std::ptrdiff_t>(kPeriod + kTelling);
  const auto found = std::search(m_bytes.begin(), end, bytes.begin(),
                                 bytes.begin() + static_cast<std::ptrdiff_t>(kTelling));
  if (found == end) {
    return std::nullopt;
  }
  const auto place = static_cast<std::uint64_t>(found - m_bytes.begin()) % kPeriod;
  const std::uint64_t ahead = (place + kPeriod - position % kPeriod) % kPeriod;
  const bool behind = ahead > kPeriod / 2 && position + ahead >= kPeriod;
  return behind ? position + ahead - kPeriod : position + ahead;
}

}  // namespace TarvexDiags::Network
