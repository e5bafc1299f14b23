#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "packages/processor/Verifier.h"

namespace TarvexDiags::Processor {

/// The loads run for seeds 1 to this; the result of each is known.
constexpr std::uint64_t kLoadSeeds = 8;

/// @brief A load, and what it gives for each seed.
struct Load {
  const char* name;
  std::uint64_t (*run)(std::uint64_t seed);
  std::array<std::uint64_t, kLoadSeeds> golden;
};

extern const std::array<Load, 5> kLoads;

/// @brief What the product of matrices of whole numbers gives, which has one right result.
inline std::uint64_t productOfWholeNumbers(std::uint64_t seed) {
  return kLoads.back().golden[(seed - 1) % kLoadSeeds];
}

/// @brief The first random numbers of a seed.
std::vector<std::uint64_t> numbersFrom(std::uint64_t seed, std::size_t count);

/// @brief Order counts: each number moves what came before.
std::uint64_t digestOf(const std::vector<std::uint64_t>& numbers);

/// @brief Looks whether digestOf itself is computed right: where two digests are compared that both
/// come from it, a wrong one could be the same for everything.
void verifyDigest(Verifier& verifier);

}  // namespace TarvexDiags::Processor
