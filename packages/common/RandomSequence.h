#pragma once

#include <cstdint>

namespace TarvexDiags::Common {

/// @brief One step of a mixing function that makes a well-spread number of each counter value.
///
/// SplitMix64: Steele, Lea and Flood, "Fast splittable pseudorandom number generators", 2014.
constexpr std::uint64_t mixed(std::uint64_t counter) {
  counter += 0x9e3779b97f4a7c15U;
  counter = (counter ^ (counter >> 30)) * 0xbf58476d1ce4e5b9U;
  counter = (counter ^ (counter >> 27)) * 0x94d049bb133111ebU;
  return counter ^ (counter >> 31);
}

/// @brief A reproducible sequence of numbers: the same seed gives the same sequence on each
/// machine.
///
/// Thread-safety: one thread at a time.
class RandomSequence {
 public:
  explicit constexpr RandomSequence(std::uint64_t seed) : m_counter(mixed(seed)) {}
  constexpr std::uint64_t next() { return mixed(m_counter++); }

 private:
  std::uint64_t m_counter;
};

}  // namespace TarvexDiags::Common
