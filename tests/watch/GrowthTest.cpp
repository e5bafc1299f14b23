#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "watch/Growth.h"

namespace TarvexDiags::Watching {
namespace {

TEST(GrowthTest, counts_from_the_first_number_on) {
  Growth growth;
  EXPECT_EQ(growth.to(7), 0U);
  EXPECT_EQ(growth.to(7), 0U);
  EXPECT_EQ(growth.to(10), 3U);
}

TEST(GrowthTest, goes_on_over_the_end_of_a_range) {
  Growth growth(100);
  growth.to(98);
  EXPECT_EQ(growth.to(5), 7U);
}

TEST(GrowthTest, takes_what_a_counter_shows_that_was_set_back) {
  Growth growth;
  growth.to(98);
  EXPECT_EQ(growth.to(5), 5U);
  EXPECT_EQ(growth.to(6), 1U);
}

TEST(GrowthsTest, count_what_appears_later_from_nothing) {
  Growths growths;
  EXPECT_EQ(growths.to("first", 5), 0U);
  growths.open();
  EXPECT_EQ(growths.to("second", 2), 2U);
  EXPECT_EQ(growths.to("first", 6), 1U);
}

}  // namespace
}  // namespace TarvexDiags::Watching
