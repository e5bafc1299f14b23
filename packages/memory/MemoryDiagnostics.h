#pragma once

#include <chrono>
#include <cstdint>
#include <span>

#include "packages/memory/Sweeper.h"

namespace TarvexDiags::Memory {

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

/// @brief One of the tests: its row is all that there is to know of it.
struct MemoryTest {
  int number = 0;  ///< of its section in the configuration file
  /// Runs it. False: asked to stop, or too many faults to go on.
  bool (*body)(Sweeper& sweeper, const TestOptions& options) = nullptr;
  int walks = 0;       ///< through the memory in each round of the full form, for the estimate:
                       ///< one that writes scattered counts as three
  int quickWalks = 0;  ///< the same of the short form
  bool holds = false;  ///< leaves the memory alone for TestOptions::hold, twice in each round
  bool lasts = false;  ///< goes on for TestOptions::duration
};

/// @brief All tests, by rising numbers.
std::span<const MemoryTest> memoryTests();

/// @brief Runs a test on the sweeper's region; faults go to its observer.
TestReport runTest(const MemoryTest& test, Sweeper& sweeper, const TestOptions& options);

}  // namespace TarvexDiags::Memory
