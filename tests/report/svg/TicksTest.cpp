// Numbers and times on axes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "report/svg/Ticks.h"

namespace TarvexDiags::Svg {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> textsOf(const std::vector<Tick>& ticks) {
  std::vector<std::string> texts;
  for (const Tick& tick : ticks) {
    texts.push_back(tick.text);
  }
  return texts;
}

TEST(Ticks, are_round_numbers_around_the_values) {
  EXPECT_THAT(textsOf(ticksAround(41, 78.5, 5)), ElementsAre("40", "50", "60", "70", "80"));
  EXPECT_THAT(textsOf(ticksAround(0, 0.9, 4)), ElementsAre("0.0", "0.5", "1.0"));
  EXPECT_THAT(textsOf(ticksAround(-3, 3, 4)), ElementsAre("-4", "-2", "0", "2", "4"));
  EXPECT_THAT(textsOf(ticksAround(1'000, 21'594, 3)), ElementsAre("0", "20000", "40000"));
}

TEST(Ticks, hold_all_values_whatever_those_are) {
  constexpr double kLargest = 1e300;
  for (const auto& [lowest, highest] : std::vector<std::pair<double, double>>{{0, 0},
                                                                              {5, 5},
                                                                              {-7, -7},
                                                                              {1e15, 1e15 + 1},
                                                                              {-kLargest, kLargest},
                                                                              {1e-9, 2e-9},
                                                                              {0, kLargest},
                                                                              {0, 5e-324},
                                                                              {3, 3.0000001}}) {
    const std::vector<Tick> ticks = ticksAround(lowest, highest, 5);
    EXPECT_GE(ticks.size(), 2U) << lowest;
    EXPECT_LE(ticks.size(), 8U) << lowest;
    EXPECT_LE(ticks.front().value, lowest);
    EXPECT_GE(ticks.back().value, highest - std::fabs(highest) * 1e-6);
  }
}

TEST(Ticks, of_times_are_those_of_a_clock) {
  EXPECT_THAT(textsOf(timesWithin(1, 3)), ElementsAre("0.0 s", "0.5 s", "1.0 s"));
  EXPECT_THAT(textsOf(timesWithin(100, 5)), ElementsAre("0:00", "0:30", "1:00", "1:30"));
  EXPECT_THAT(textsOf(timesWithin(3'700, 5)), ElementsAre("0:00", "30:00", "1:00:00"));
  EXPECT_THAT(textsOf(timesWithin(86'400, 4)), ElementsAre("0:00", "12:00:00", "24:00:00"));
}

TEST(Ticks, of_times_stay_within_any_span) {
  for (const double seconds : {1e-3, 0.7, 59.0, 61.0, 1e5, 3e6, 1e9, 1e300}) {
    const std::vector<Tick> ticks = timesWithin(seconds, 5);
    EXPECT_GE(ticks.size(), 2U) << seconds;
    EXPECT_LE(ticks.size(), 5U) << seconds;
    EXPECT_LE(ticks.back().value, seconds * 1.001);
  }
}

}  // namespace
}  // namespace TarvexDiags::Svg
