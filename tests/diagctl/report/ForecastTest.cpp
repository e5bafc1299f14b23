// How long tests take together.

#include <gtest/gtest.h>

#include "diagctl/report/Forecast.h"

namespace TarvexDiags::FrontEnd {
namespace {

TEST(Forecast, tests_of_one_resource_wait_for_each_other) {
  const TimeNeeded sum = timeNeeded({{"host/a", 10}, {"host/a", 20}, {"host/b", 25}});
  EXPECT_EQ(sum.oneAfterTheOther, 55);
  EXPECT_EQ(sum.sideBySide, 30);
  EXPECT_TRUE(sum.isComplete);
}

TEST(Forecast, a_resource_waits_for_those_above_it) {
  const TimeNeeded sum = timeNeeded({{"host/bus", 5}, {"host/bus/a", 10}, {"host/bus/b", 20}});
  EXPECT_EQ(sum.sideBySide, 25);
}

TEST(Forecast, tags_with_one_last_part_are_one_resource) {
  EXPECT_EQ(timeNeeded({{"left/a", 10}, {"right/a", 20}}).sideBySide, 30);
}

TEST(Forecast, what_takes_the_machine_runs_alone) {
  const TimeNeeded sum = timeNeeded({{"a", 10}, {"b", 20}, {"c", 7, true}, {"d", 8, true}});
  EXPECT_EQ(sum.sideBySide, 35);
}

TEST(Forecast, is_the_least_that_it_can_be_where_a_figure_is_unknown) {
  const TimeNeeded sum = timeNeeded({{"a", 10}, {"a", -1}});
  EXPECT_EQ(sum.sideBySide, 10);
  EXPECT_FALSE(sum.isComplete);
  EXPECT_TRUE(timeNeeded({}).isComplete);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
