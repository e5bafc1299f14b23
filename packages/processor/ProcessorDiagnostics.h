#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <vector>

#include "packages/processor/Verifier.h"

namespace TarvexDiags::Processor {

/// @brief What a test needs beside a core that has its instructions.
enum class Needs {
  Nothing,
  Partner,  ///< another core
  Counters  ///< the kernel's counts of the core's health
};

/// @brief One of the tests: its row is all that there is to know of it.
struct ProcessorTest {
  int number = 0;  ///< of its section in the configuration file
  /// Its checks, those included that the processor has no instructions for.
  std::vector<Check> (*checks)() = nullptr;
  Needs needs = Needs::Nothing;
  /// Whether the core rests as long as it works, in turns of several lengths.
  bool rests = false;
};

/// @brief All tests, by rising numbers.
std::span<const ProcessorTest> processorTests();

/// @brief What a test has done.
struct TestReport {
  bool completed;  ///< false: asked to stop
  std::uint64_t wrongResults;
  std::uint64_t checkedResults;
  double seconds;
  double verifiedSeconds;  ///< spent in work whose results were compared, and in comparing them
};

/// @brief The checks of a test that this processor has the instructions for.
std::vector<Check> availableChecks(const ProcessorTest& test);

/// @brief Names of those that it has none for.
std::vector<std::string> missingChecks(const ProcessorTest& test);

/// @brief Runs the checks of a test in turn on the calling thread, which the caller has pinned:
/// each at least once, then on until the time is over.
TestReport runTest(const ProcessorTest& test, Verifier& verifier,
                   std::chrono::milliseconds duration);

}  // namespace TarvexDiags::Processor
