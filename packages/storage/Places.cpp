#include "packages/storage/Places.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace TarvexDiags::Storage {

std::vector<Zone> spreadZones(std::uint64_t size, std::uint64_t wanted, std::uint64_t zone,
                              std::uint32_t block) {
  size -= size % block;
  zone = std::max<std::uint64_t>(zone / block, 1) * block;
  if (size == 0) {
    return {};
  }
  if (wanted == 0 || wanted >= size || zone >= size) {
    return {{0, size}};
  }
  const std::uint64_t count = std::max<std::uint64_t>(wanted / zone, 2);
  if (count * zone >= size) {
    return {{0, size}};
  }
  std::vector<Zone> zones;
  const std::uint64_t lastStart = (size - zone) / block;
  for (std::uint64_t index = 0; index < count; ++index) {
    const auto start = static_cast<std::uint64_t>(static_cast<long double>(lastStart) *
                                                  static_cast<long double>(index) /
                                                  static_cast<long double>(count - 1));
    zones.push_back({std::min(start, lastStart) * block, zone});
  }
  return zones;
}

Zone ZoneWalk::next(std::uint64_t most) {
  while (m_index < m_zones.size()) {
    const Zone& zone = m_zones[m_index];
    if (m_done < zone.length) {
      const Zone piece{zone.offset + m_done, std::min({m_piece, most, zone.length - m_done})};
      m_done += piece.length;
      return piece;
    }
    ++m_index;
    m_done = 0;
  }
  return {};
}

std::uint64_t ZoneWalk::total() const {
  return std::accumulate(m_zones.begin(), m_zones.end(), std::uint64_t{0},
                         [](std::uint64_t sum, const Zone& zone) { return sum + zone.length; });
}

}  // namespace TarvexDiags::Storage
