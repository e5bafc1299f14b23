#pragma once

#include <array>
#include <cstdint>

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

}  // namespace TarvexDiags::Processor
