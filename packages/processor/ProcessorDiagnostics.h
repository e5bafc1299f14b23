#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "packages/processor/Verifier.h"

namespace TarvexDiags::Processor {

/// @brief The tests, by the numbers of their sections in the configuration file.
enum class TestNumber {
  Integer = 1,
  FloatingPoint = 2,
  Vectors = 3,
  Cryptography = 4,
  Atomics = 5,
  Loads = 6,
  RandomGenerator = 7,
  SustainedLoad = 8,  ///< all but the atomics and the random generator, to warm the core up
};

/// @brief What a test has done.
struct TestReport {
  bool completed;  ///< false: asked to stop
  std::uint64_t wrongResults;
  std::uint64_t checkedResults;
  double seconds;
  double verifiedSeconds;  ///< spent in work whose results were compared, and in comparing them
};

/// @brief The checks of a test that this processor has the instructions for.
std::vector<Check> availableChecks(TestNumber number);

/// @brief Names of those that it has none for.
std::vector<std::string> missingChecks(TestNumber number);

/// @brief Runs the checks of a test in turn on the calling thread, which the caller has pinned:
/// each at least once, then on until the time is over.
TestReport runTest(TestNumber number, Verifier& verifier, std::chrono::milliseconds duration);

}  // namespace TarvexDiags::Processor
