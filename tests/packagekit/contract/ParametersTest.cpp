// What one side writes of measurements and seeds the other side reads.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "packagekit/contract/DebugWish.h"
#include "packagekit/contract/Estimate.h"
#include "packagekit/contract/LogWish.h"
#include "packagekit/contract/Measurement.h"
#include "packagekit/contract/Seed.h"
#include "packagekit/contract/ThroughputWish.h"
#include "packagekit/contract/TimeWish.h"

namespace TarvexDiags::PackageKit::Contract {
namespace {

using ::testing::ElementsAre;

TEST(DebugWish, is_one_line_of_a_clients_text) {
  EXPECT_TRUE(isToBeDebugged(toDebugLine().c_str()));
  EXPECT_TRUE(isToBeDebugged((toSeedLine(7) + toDebugLine()).c_str()));
  EXPECT_EQ(seedOf((toDebugLine() + toSeedLine(7)).c_str()), 7U);
  EXPECT_FALSE(isToBeDebugged(nullptr));
  EXPECT_FALSE(isToBeDebugged(""));
  EXPECT_FALSE(isToBeDebugged("NoDebugWorker=TRUE\nDebugWorker=TRUEST\nDebugWorker=FALSE\n"));
}

TEST(LogWish, is_one_line_of_a_clients_text) {
  EXPECT_TRUE(isLogWanted(toLogWishLine().c_str()));
  EXPECT_TRUE(isLogWanted((toSeedLine(7) + toLogWishLine() + toDebugLine()).c_str()));
  EXPECT_FALSE(isLogWanted(nullptr));
  EXPECT_FALSE(isLogWanted("Seed=7\nTellLog=FALSE\nDoNotTellLog=TRUE\n"));
}

TEST(TimeWish, is_one_line_of_a_clients_text) {
  EXPECT_TRUE(isTimeWanted(toTimeWishLine().c_str()));
  EXPECT_TRUE(isTimeWanted((toSeedLine(7) + toTimeWishLine() + toDebugLine()).c_str()));
  EXPECT_FALSE(isTimeWanted(nullptr));
  EXPECT_FALSE(isTimeWanted("Seed=7\nTellTime=FALSE\nDoNotTellTime=TRUE\n"));
}

TEST(TimeDetail, is_taken_from_the_end_of_the_parameters_and_from_nowhere_else) {
  const std::chrono::system_clock::time_point time(std::chrono::milliseconds(1'700'000'000'123));
  std::vector<std::string> parameters{"one", toTimeDetail(time)};
  EXPECT_EQ(takeTime(parameters), time);
  EXPECT_THAT(parameters, ElementsAre("one"));
  EXPECT_FALSE(takeTime(parameters));
  parameters = {toTimeDetail(time), "two"};
  EXPECT_FALSE(takeTime(parameters));
  EXPECT_EQ(parameters.size(), 2U);
}

TEST(TimeDetail, that_is_no_time_stays_a_parameter) {
  for (const char* const text : {"", "RaisedAt=", "RaisedAt=-1", "RaisedAt=1x", "RaisedAt= 1",
                                 "RaisedAt=9000000000001", "RaisedAt=99999999999999999999"}) {
    std::vector<std::string> parameters{text};
    EXPECT_FALSE(takeTime(parameters)) << text;
    EXPECT_THAT(parameters, ElementsAre(text));
  }
}

TEST(ThroughputWish, is_one_line_of_a_clients_text) {
  EXPECT_TRUE(isThroughputWanted(toThroughputWishLine().c_str()));
  EXPECT_TRUE(isThroughputWanted((toLogWishLine() + toThroughputWishLine()).c_str()));
  EXPECT_FALSE(isThroughputWanted(nullptr));
  EXPECT_FALSE(isThroughputWanted("TellThroughput=FALSE\nDoNotTellThroughput=TRUE\n"));
}

TEST(Measurement, of_throughput_has_a_figure_and_a_unit) {
  const auto throughput = toThroughput(toParameters({"7", "Read", "pci0/disk0"}, {"12.5", "MB/s"}));
  ASSERT_TRUE(throughput);
  EXPECT_EQ(throughput->value, "12.5");
  EXPECT_EQ(throughput->unit, "MB/s");
  EXPECT_FALSE(toThroughput({"7", "Read", "pci0/disk0", "12.5"}));
}

TEST(Measurement, reads_back_as_it_was_written) {
  const auto parameters =
      toParameters({"7", "Sequential read", "pci0/disk0"}, toDetails({"rate", "12.5", "MB/s"}));
  EXPECT_THAT(parameters,
              ElementsAre("7", "Sequential read", "pci0/disk0", "rate", "12.5", "MB/s"));
  const auto measurement = toMeasurement(parameters);
  ASSERT_TRUE(measurement);
  EXPECT_EQ(measurement->name, "rate");
  EXPECT_EQ(measurement->value, "12.5");
  EXPECT_EQ(measurement->unit, "MB/s");
}

TEST(Measurement, is_none_with_too_few_parameters) {
  EXPECT_FALSE(toMeasurement({}));
  EXPECT_FALSE(toMeasurement({"7", "Sequential read", "pci0/disk0", "rate", "12.5"}));
}

TEST(Measurement, keeps_every_digit_of_a_figure) {
  for (const double figure : {0.0, 0.1, 1e300, -1.0 / 3, 4096.0}) {
    EXPECT_EQ(toNumber(toText(figure)), figure);
  }
}

TEST(Measurement, may_be_words) {
  for (const char* const words : {"", "none", "12 MB", "0x10", " 1"}) {
    EXPECT_FALSE(toNumber(words)) << words;
  }
}

TEST(Seed, reads_back_as_it_was_written) {
  for (const std::uint64_t seed :
       {std::uint64_t{1}, std::uint64_t{42}, std::uint64_t{std::numeric_limits<long>::max()}}) {
    EXPECT_EQ(seedOf(toSeedLine(seed).c_str()), seed);
  }
}

TEST(Seed, stands_on_a_line_of_any_text) {
  EXPECT_EQ(seedOf("Other=1\nSeed=7\nSeed=8\n"), 7U);
  EXPECT_EQ(seedOf("Seed=7"), 7U);
}

TEST(Seed, is_none_where_no_line_gives_one) {
  for (const char* const text : {"", "\n", "Seed", "Seed=", "Seed=x", "Seed=7x", "Seed=-7",
                                 "seed=7", " Seed=7", "Seeds=7"}) {
    EXPECT_EQ(seedOf(text), 0U) << text;
  }
  EXPECT_EQ(seedOf(nullptr), 0U);
}

TEST(Estimate, is_told_finer_than_whole_seconds) {
  EXPECT_EQ(wholeSeconds(0.2), 1);
  EXPECT_EQ(wholeSeconds(3), 3);
  EXPECT_EQ(wholeSeconds(1e30), std::numeric_limits<int>::max());
  EXPECT_DOUBLE_EQ(estimateFrom(1, toEstimate(0.25)), 0.25);
  EXPECT_DOUBLE_EQ(estimateFrom(7, {}), 7);
  EXPECT_DOUBLE_EQ(estimateFrom(7, {"0.25"}), 7) << "words of somebody else";
  EXPECT_DOUBLE_EQ(estimateFrom(-1, {"x"}), -1);
}

}  // namespace
}  // namespace TarvexDiags::PackageKit::Contract
