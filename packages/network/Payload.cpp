#include "packages/network/Payload.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace TarvexDiags::Network {
namespace {

/// @brief So many random bytes occur once in a period.
constexpr std::size_t telling = 16;

}  // namespace

Payload::Payload(std::uint64_t seed) : m_bytes(period + longest) {
  std::mt19937_64 random(seed);
  for (std::size_t at = 0; at < period; at += sizeof(std::uint64_t)) {
    const std::uint64_t value = random();
    std::memcpy(&m_bytes[at], &value, std::min(sizeof value, period - at));
  }
  for (std::size_t at = period; at < m_bytes.size(); ++at) {
    m_bytes[at] = m_bytes[at - period];
  }
}

std::optional<std::uint64_t> Payload::find(std::span<const std::byte> bytes,
                                           std::uint64_t position) const {
  if (bytes.size() < telling) {
    return std::nullopt;
  }
  const auto end = m_bytes.begin() + static_cast<std::ptrdiff_t>(period + telling);
  const auto found = std::search(m_bytes.begin(), end, bytes.begin(),
                                 bytes.begin() + static_cast<std::ptrdiff_t>(telling));
  if (found == end) {
    return std::nullopt;
  }
  const auto place = static_cast<std::uint64_t>(found - m_bytes.begin()) % period;
  const std::uint64_t ahead = (place + period - position % period) % period;
  const bool behind = ahead > period / 2 && position + ahead >= period;
  return behind ? position + ahead - period : position + ahead;
}

}  // namespace TarvexDiags::Network
