#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace TarvexDiags::Network {

/// @brief The endless stream of bytes that is sent and expected: random, repeating after a prime
/// number of bytes, so that a stream that lost or repeated a segment, page or buffer never looks
/// right.
class Payload {
 public:
  static constexpr std::size_t kPeriod = 262'139;  // the largest prime below 256 KiB
  static constexpr std::size_t kLongest = std::size_t{256} << 10;

  explicit Payload(std::uint64_t seed);

  /// @param length up to `longest`. The bytes from a position of the stream on.
  std::span<const std::byte> at(std::uint64_t position, std::size_t length) const {
    return std::span(m_bytes).subspan(position % kPeriod, length);
  }

  /// @brief Where in the stream the bytes belong: the place nearest to the position. Nothing when
  /// they belong nowhere, or are too few to tell.
  std::optional<std::uint64_t> find(std::span<const std::byte> bytes, std::uint64_t position) const;

 private:
  std::vector<std::byte> m_bytes;
};

}  // namespace TarvexDiags::Network
