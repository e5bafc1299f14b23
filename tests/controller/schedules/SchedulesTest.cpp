// The tools that make threads meet in unusual orders do what they promise: a schedule comes again
// with its seed, and a delay stands in front of the operation that it names.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::TestSupport {

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

struct Outcome {
  std::string output;  ///< both streams
  int status = 0;
  milliseconds time{0};
};

/// Runs the probe in a shell, with these variables.
Outcome runProbe(const std::string& variables, int calls = 0) {
  const auto begin = std::chrono::steady_clock::now();
  const std::string command =
      "env " + variables + " " TARVEX_SCHEDULE_PROBE " " + std::to_string(calls) + " 2>&1";
  std::FILE* const pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    throw std::runtime_error("no shell");
  }
  Outcome outcome;
  std::array<char, 4096> buffer{};
  while (std::fgets(buffer.data(), buffer.size(), pipe) != nullptr) {
    outcome.output += buffer.data();
  }
  outcome.status = pclose(pipe);
  outcome.time = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
  return outcome;
}

class SchedulesTest : public testing::Test {
 protected:
  /// One line for each sleep: thread, point, call, length in microseconds.
  std::vector<std::string> trailOf(const std::string& variables) {
    const std::string file = m_directory.path() + "/trail" + std::to_string(++m_trails);
    const Outcome outcome = runProbe(
        "LD_PRELOAD=" TARVEX_SCHEDULE_FUZZER " TARVEX_SCHEDULE_TRAIL=" + file + " " + variables);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    std::ifstream stream(file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
      lines.push_back(line);
    }
    return lines;
  }
  static long lengthIn(const std::string& line) {
    return std::stol(line.substr(line.rfind(' ') + 1));
  }

 private:
  TemporaryDirectory m_directory;
  int m_trails = 0;
};

TEST_F(SchedulesTest, a_schedule_comes_again_with_its_seed) {
  const std::string strength = " TARVEX_SCHEDULE_ONE_IN=10 TARVEX_SCHEDULE_MICROSECONDS=100";
  const auto first = trailOf("TARVEX_SCHEDULE_SEED=7" + strength);
  EXPECT_THAT(first, Not(IsEmpty()));
  EXPECT_EQ(trailOf("TARVEX_SCHEDULE_SEED=7" + strength), first);
  EXPECT_NE(trailOf("TARVEX_SCHEDULE_SEED=8" + strength), first);
}

TEST_F(SchedulesTest, each_thread_sleeps_at_points_of_its_own) {
  const auto lines = trailOf("TARVEX_SCHEDULE_ONE_IN=10 TARVEX_SCHEDULE_MICROSECONDS=0");
  std::set<std::string> threads;
  std::set<std::string> points;
  for (const std::string& line : lines) {
    std::istringstream words(line);
    std::string thread;
    std::string point;
    words >> thread >> point;
    threads.insert(thread);
    points.insert(point);
  }
  EXPECT_THAT(threads, SizeIs(testing::AllOf(testing::Ge(3U), testing::Le(4U))));
  EXPECT_GT(points.size(), lines.size() / 2) << "threads that sleep in step meet as ever";
}

TEST_F(SchedulesTest, frequency_and_length_are_as_told) {
  const auto often = trailOf("TARVEX_SCHEDULE_ONE_IN=2 TARVEX_SCHEDULE_MICROSECONDS=50");
  // Two hundred turns of three threads, with two calls and four points each: 2,400 points or more.
  EXPECT_NEAR(static_cast<double>(often.size()), 1200, 200);
  EXPECT_LT(trailOf("TARVEX_SCHEDULE_ONE_IN=20 TARVEX_SCHEDULE_MICROSECONDS=50").size(), 240U);
  long longest = 0;
  long shortOnes = 0;
  for (const std::string& line : often) {
    longest = std::max(longest, lengthIn(line));
    shortOnes += lengthIn(line) <= 50 / 8 ? 1 : 0;
  }
  EXPECT_LT(longest, 50);
  EXPECT_GT(longest, 40);
  EXPECT_GT(shortOnes, static_cast<long>(often.size()) / 3) << "short sleeps are the most frequent";
  EXPECT_THAT(trailOf("TARVEX_SCHEDULE_ONE_IN=0"), IsEmpty());
}

TEST_F(SchedulesTest, sleeps_take_their_time) {
  const auto lines = trailOf("TARVEX_SCHEDULE_ONE_IN=40 TARVEX_SCHEDULE_MICROSECONDS=20000");
  long total = 0;
  for (const std::string& line : lines) {
    total += lengthIn(line);
  }
  const Outcome outcome = runProbe("LD_PRELOAD=" TARVEX_SCHEDULE_FUZZER
                                   " TARVEX_SCHEDULE_ONE_IN=40 TARVEX_SCHEDULE_MICROSECONDS=20000");
  EXPECT_GE(outcome.time, milliseconds(total / 1000)) << "no two threads of the probe run at once";
}

TEST(CallDelayTest, a_delay_stands_in_front_of_each_call_of_the_operation) {
  const Outcome outcome = runProbe("LD_AUDIT=" TARVEX_CALL_DELAY
                                   " TARVEX_CALL_DELAYS=ResourceLockManager::setSystemLockFlag:20",
                                   10);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, IsEmpty());
  EXPECT_GE(outcome.time, milliseconds(200));
}

TEST(CallDelayTest, an_operation_that_was_never_called_is_told) {
  const Outcome outcome =
      runProbe("LD_AUDIT=" TARVEX_CALL_DELAY
               " TARVEX_CALL_DELAYS=ResourceLockManager::getInstance:1,SystemLockFlag:30000",
               2);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, HasSubstr("never called: SystemLockFlag\n")) << "a part of a name";
  EXPECT_THAT(outcome.output, Not(HasSubstr("getInstance")));
  EXPECT_LT(outcome.time, milliseconds(30000));
}

TEST(CallDelayTest, a_delay_that_cannot_be_read_ends_the_program) {
  const Outcome outcome = runProbe("LD_AUDIT=" TARVEX_CALL_DELAY
                                   " TARVEX_CALL_DELAYS=ResourceLockManager::getInstance");
  EXPECT_NE(outcome.status, 0);
  EXPECT_THAT(outcome.output, HasSubstr("not operation:milliseconds"));
}

}  // namespace

}  // namespace TarvexDiags::TestSupport
