#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace TarvexDiags::Storage {

/// @brief A piece of a disk, in bytes.
struct Zone {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

/// @brief Zones of a disk that hold about the wanted bytes: the whole when wanted is 0 or reaches
/// the size, else pieces of the given length spread evenly, the first at the start and the last at
/// the end of the disk. In rising order, without overlap, all multiples of the block.
std::vector<Zone> spreadZones(std::uint64_t size, std::uint64_t wanted, std::uint64_t zone,
                              std::uint32_t block);

/// @brief Random places for reads of one length, all within the disk and aligned to the length.
class RandomPlaces {
 public:
  RandomPlaces(std::uint64_t size, std::uint32_t length, std::uint64_t seed)
      : m_random(seed), m_places(0, size / length - 1), m_length(length) {}

  std::uint64_t next() { return m_places(m_random) * m_length; }

 private:
  std::mt19937_64 m_random;
  std::uniform_int_distribution<std::uint64_t> m_places;
  std::uint64_t m_length;
};

/// @brief Walks zones in pieces of at most the given length.
class ZoneWalk {
 public:
  ZoneWalk(std::vector<Zone> zones, std::uint64_t piece)
      : m_zones(std::move(zones)), m_piece(piece) {}

  /// @brief The next piece; of length 0 at the end.
  Zone next() { return next(m_piece); }
  /// @brief The same, no longer than that.
  Zone next(std::uint64_t most);

  std::uint64_t total() const;

 private:
  std::vector<Zone> m_zones;
  std::uint64_t m_piece;
  std::size_t m_index = 0;
  std::uint64_t m_done = 0;  ///< of the zone at hand
};

}  // namespace TarvexDiags::Storage
