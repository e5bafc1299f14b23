#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace TarvexDiags::Storage {

/// @brief The data that is written and verified: random bytes that neither compress nor repeat
/// within a transfer, and in each sector a stamp of seed and place. So a write that went elsewhere,
/// was lost or came from an earlier run is told from one that was garbled.
class TestPattern {
 public:
  static constexpr std::size_t kSector = 512;

  /// @param length longest transfer, a multiple of the sector.
  TestPattern(std::uint64_t seed, std::size_t length);

  /// @brief Fills a buffer with the random bytes; once is enough, as stamping leaves them alone.
  void fill(std::span<std::byte> buffer) const;

  /// @brief Makes a filled buffer the data of the place.
  void stamp(std::span<std::byte> buffer, std::uint64_t offset) const;

  /// @brief The place whose data the sector is, whatever place it was read from.
  std::optional<std::uint64_t> placeOf(std::span<const std::byte> sectorData) const;

 private:
  std::uint64_t m_seed;
  std::vector<std::byte> m_random;
};

}  // namespace TarvexDiags::Storage
