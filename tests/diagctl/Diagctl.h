#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/diagctl/Program.h"
#include "tests/diagctl/Workplace.h"

namespace TarvexDiags::DiagctlTest {

inline constexpr int kPassed = 0;
inline constexpr int kHardwareFailure = 1;
inline constexpr int kNoVerdict = 2;
inline constexpr int kNothingRan = 3;
inline constexpr int kUsage = 64;

/// The program with a control file and packages of the test's own.
class Diagctl : public ::testing::Test {
 protected:
  std::vector<std::string> withControlFile(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"--config", place.controlFile()});
    return arguments;
  }

  Outcome run(const std::vector<std::string>& arguments, const Program::Options& options = {}) {
    return diagctl(withControlFile(arguments), options);
  }

  /// One passing test on each of two devices, one that fails, warns, and says nothing.
  void addMixedPackage() {
    place.addPackage("MIX",
                     {{.name = "Good"},
                      {.name = "Bad", .behaviour = "fail", .more = "Event=7"},
                      {.name = "Weak", .behaviour = "warn", .more = "Event=8"},
                      {.name = "Silent", .behaviour = "nothing"},
                      {.name = "Picky", .more = "UnsupportedOn=Left\nEstimate=90"}},
                     {{"Left", "bus/left"}, {"Right", "bus/right"}});
  }

  /// A test of a minute, which hears of aborts or not.
  void addSlowPackage(const std::string& behaviour = "pass") {
    place.addPackage("SLOW", {{.name = "Long", .behaviour = behaviour, .milliseconds = 60'000}},
                     {{"One", "bus/one"}});
  }

  Workplace place;
};

}  // namespace TarvexDiags::DiagctlTest
