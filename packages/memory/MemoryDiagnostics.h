#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "packages/memory/Sweeper.h"

namespace TarvexDiags::Memory {

/// @brief The tests, by the numbers of their sections in the configuration file.
enum class TestNumber {
  AddressLines = 1,
  WalkingOnes = 2,
  WalkingZeros = 3,
  MovingInversions = 4,
  RandomPatterns = 5,
  BlockMove = 6,
  ModuloX = 7,
  BitFade = 8,
  BandwidthStress = 9,
};

/// @brief How thorough a test is to be. Thread-safety: a plain value.
struct TestOptions {
  std::uint64_t seed = 1;
  bool quick = false;                     ///< fewer patterns; the others hold as they stand
  int rounds = 1;                         ///< how often the patterns are gone through
  std::chrono::milliseconds hold{0};      ///< how long BitFade leaves the memory alone, each time
  std::chrono::milliseconds duration{0};  ///< how long BandwidthStress lasts at least
};

/// @brief What a test has done.
struct TestReport {
  bool completed;  ///< false: asked to stop, or too many faults to go on
  std::uint64_t miscompares;
  std::uint64_t bytesVerified;
  double seconds;  ///< of the whole test, holds included
};

/// @brief Runs a test on the sweeper's region; faults go to its observer.
TestReport runTest(TestNumber number, Sweeper& sweeper, const TestOptions& options);

/// @brief The chain of sweeps that goes from pattern to pattern: each but the first and last
/// verifies the one before and writes the next in one pass, rising and falling in turn.
std::vector<Sweep> marchThrough(const std::vector<Pattern>& patterns);

}  // namespace TarvexDiags::Memory
