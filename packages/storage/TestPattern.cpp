#include "packages/storage/TestPattern.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace TarvexDiags::Storage {
namespace {

/// @brief What opens each sector. The second word guards the first: random bytes do not pass.
struct Stamp {
  std::uint64_t place = 0;
  std::uint64_t guard = 0;
};

// Any odd number does; this one (2^64 divided by the golden ratio) changes about half of the bits.
constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15U;

Stamp stampOf(std::uint64_t seed, std::uint64_t place) {
  return {place, (place + 1) * kSpread ^ seed};
}

}  // namespace

TestPattern::TestPattern(std::uint64_t seed, std::size_t length) : m_seed(seed), m_random(length) {
  std::mt19937_64 random(seed);
  for (std::size_t at = 0; at < length; at += sizeof(std::uint64_t)) {
    const std::uint64_t value = random();
    std::memcpy(m_random.data() + at, &value, sizeof value);
  }
}

void TestPattern::fill(std::span<std::byte> buffer) const {
  std::memcpy(buffer.data(), m_random.data(), std::min(buffer.size(), m_random.size()));
}

void TestPattern::stamp(std::span<std::byte> buffer, std::uint64_t offset) const {
  for (std::size_t at = 0; at < buffer.size(); at += kSector) {
    const Stamp stamp = stampOf(m_seed, offset + at);
    std::memcpy(buffer.data() + at, &stamp, sizeof stamp);
  }
}

std::optional<std::uint64_t> TestPattern::placeOf(std::span<const std::byte> sectorData) const {
  Stamp stamp;
  std::memcpy(&stamp, sectorData.data(), sizeof stamp);
  if (stamp.guard != stampOf(m_seed, stamp.place).guard) {
    return std::nullopt;
  }
  return stamp.place;
}

}  // namespace TarvexDiags::Storage
