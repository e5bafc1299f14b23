// Long series in little space.

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

#include "report/svg/ThinnedSeries.h"

namespace TarvexDiags::Svg {
namespace {

TEST(ThinnedSeries, keeps_a_short_one_as_it_is) {
  ThinnedSeries series(4);
  for (const double y : {3.0, 1.0, 2.0}) {
    series.add({y * 10, y});
  }
  const std::vector<Point> points = series.points();
  ASSERT_EQ(points.size(), 3U);
  EXPECT_EQ(points[1].x, 10);
  EXPECT_EQ(points[1].y, 1);
}

TEST(ThinnedSeries, keeps_a_peak_and_a_drop_of_one_point_among_many) {
  for (const std::size_t most : {2U, 3U, 100U, 101U}) {
    ThinnedSeries series(most);
    for (int place = 0; place < 100'000; ++place) {
      const double y = place == 12'347 ? 99 : place == 76'543 ? -7 : 20 + place % 10;
      series.add({static_cast<double>(place), y});
    }
    EXPECT_EQ(series.count(), 100'000U);
    EXPECT_LE(series.buckets().size(), most);
    EXPECT_GT(series.buckets().size(), most / 2 - 1);
    bool hasPeak = false;
    bool hasDrop = false;
    double before = -1;
    for (const Point& point : series.points()) {
      EXPECT_GE(point.x, before);
      before = point.x;
      hasPeak = hasPeak || (point.x == 12'347 && point.y == 99);
      hasDrop = hasDrop || (point.x == 76'543 && point.y == -7);
    }
    EXPECT_TRUE(hasPeak) << most;
    EXPECT_TRUE(hasDrop) << most;
  }
}

TEST(ThinnedSeries, knows_the_time_and_number_of_each_bucket) {
  ThinnedSeries series(2);
  for (int place = 0; place < 5; ++place) {
    series.add({static_cast<double>(place), 1});
  }
  ASSERT_EQ(series.buckets().size(), 2U);
  EXPECT_EQ(series.buckets()[0].from, 0);
  EXPECT_EQ(series.buckets()[0].to, 3);
  EXPECT_EQ(series.buckets()[0].count, 4U);
  EXPECT_EQ(series.buckets()[1].from, 4);
}

TEST(ThinnedSeries, is_thinned_further_and_keeps_the_extremes) {
  ThinnedSeries series(100);
  for (int place = 0; place < 100; ++place) {
    series.add({static_cast<double>(place), place == 50 ? 9.0 : 1.0});
  }
  const ThinnedSeries fewer = series.thinned(10);
  EXPECT_LE(fewer.buckets().size(), 10U);
  EXPECT_EQ(fewer.count(), 100U);
  EXPECT_EQ(series.buckets().size(), 100U);
  double highest = 0;
  for (const ThinnedSeries::Bucket& bucket : fewer.buckets()) {
    highest = std::fmax(highest, bucket.highest.y);
  }
  EXPECT_EQ(highest, 9);
}

TEST(ThinnedSeries, leaves_out_what_is_no_number) {
  ThinnedSeries series(4);
  series.add({0, std::numeric_limits<double>::infinity()});
  series.add({std::numeric_limits<double>::quiet_NaN(), 1});
  EXPECT_EQ(series.count(), 0U);
  EXPECT_TRUE(series.points().empty());
}

}  // namespace
}  // namespace TarvexDiags::Svg
