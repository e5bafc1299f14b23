// Whoever ends a run waits for no more than half a second to see that it was heard, though two busy
// loops a core have the priority of the tests.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/diagctl/Program.h"
#include "tests/support/BusyLoops.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using TestSupport::BusyLoops;

constexpr milliseconds kAnswer{500};
constexpr const char* kSaysSo = "ending";

class BusyMachine : public ::testing::Test {
 protected:
  static Program::Options onTerminal() {
    Program::Options options;
    options.onTerminal = true;
    return options;
  }

  /// From now on until the display says that the run ends.
  static milliseconds timeToAnswer(Program& program) {
    const auto begin = Clock::now();
    EXPECT_TRUE(program.waitFor(kSaysSo));
    return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
  }

  const BusyLoops loops;
  const std::vector<std::string> longRun = {
      "--allow-insecure", "run", "-p", "processor", "-t", "Integer arithmetic", "--passes", "100"};
};

TEST_F(BusyMachine, answers_a_key_within_half_a_second) {
  Program program(longRun, onTerminal());
  ASSERT_TRUE(program.waitFor("Integer arithmetic on"));
  program.type("q");
  EXPECT_LT(timeToAnswer(program), kAnswer);
  program.finish();
}

TEST_F(BusyMachine, answers_a_signal_within_half_a_second) {
  Program program(longRun, onTerminal());
  ASSERT_TRUE(program.waitFor("Integer arithmetic on"));
  program.signal(SIGINT);
  EXPECT_LT(timeToAnswer(program), kAnswer);
  program.finish();
}

TEST_F(BusyMachine, ends_within_half_a_second_of_the_first_failure_that_is_to_end_it) {
  std::vector<std::string> arguments = longRun;
  arguments.insert(arguments.end(),
                   {"--fail-fast", "-p", "memory", "-t", "Address lines", "--set",
                    "memory.1.InjectFault=4242", "--set", "memory.1.MaximumMegabytes=64"});
  Program program(arguments, onTerminal());
  ASSERT_TRUE(program.waitFor("FAILED"));
  EXPECT_LT(timeToAnswer(program), kAnswer);
  program.finish();
}

TEST_F(BusyMachine, ends_a_run_of_three_seconds_within_four) {
  const auto begin = Clock::now();
  Program program(
      {"--allow-insecure", "run", "-p", "processor", "-p", "memory", "--total-time", "3"},
      onTerminal());
  program.finish();
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(4));
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
