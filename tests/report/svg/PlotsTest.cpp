// Each kind of plot.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "report/svg/BarPlot.h"
#include "report/svg/LinePlot.h"
#include "report/svg/StripPlot.h"
#include "report/svg/Timeline.h"
#include "tests/report/svg/WellFormed.h"

namespace TarvexDiags::Svg {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSubsetOf;
using ::testing::Not;

constexpr const char* kHostile = "</title><script>1</script>\"'&";

template <class Plot>
std::string drawn(const Plot& plot) {
  Markup out;
  write(out, plot);
  return out.written();
}

// Sound for an independent parser, and told to who does not see it.
Parsed sound(const std::string& drawing) {
  Parsed parsed = parse(drawing);
  EXPECT_EQ(parsed.fault, "") << drawing;
  EXPECT_EQ(parsed.elements["script"], 0U);
  EXPECT_EQ(parsed.attributes.front()["role"], "img");
  EXPECT_THAT(parsed.referred, Not(IsEmpty()));
  EXPECT_THAT(parsed.referred, IsSubsetOf(parsed.ids));
  EXPECT_THAT(drawing, Not(HasSubstr("nan")));
  EXPECT_THAT(drawing, Not(HasSubstr("inf")));
  return parsed;
}

std::vector<std::map<std::string, std::string>> elementsOf(const Parsed& parsed,
                                                           const std::string& ofClass) {
  std::vector<std::map<std::string, std::string>> found;
  for (const auto& attributes : parsed.attributes) {
    const auto value = attributes.find("class");
    if (value != attributes.end() && value->second == ofClass) {
      found.push_back(attributes);
    }
  }
  return found;
}

TEST(LinePlot, draws_its_points_from_left_to_right_and_the_limit_above) {
  const Parsed parsed =
      sound(drawn(LinePlot{{"t", "Core", "From 40 to 70"}, {{0, 40}, {5, 70}, {10, 50}}, 10, 95}));
  const auto series = elementsOf(parsed, "series");
  ASSERT_EQ(series.size(), 1U);
  EXPECT_EQ(series[0].at("d"), "M56 116L204 63L352 98.3");
  ASSERT_EQ(elementsOf(parsed, "limit").size(), 1U);
  EXPECT_EQ(elementsOf(parsed, "limit")[0].at("y1"), "18.8");
  EXPECT_THAT(parsed.texts, Contains("100"));
  EXPECT_THAT(parsed.texts, Contains("From 40 to 70"));
}

TEST(LinePlot, shows_a_single_point_and_stands_no_points_and_the_largest_numbers) {
  EXPECT_EQ(elementsOf(sound(drawn(LinePlot{{"t", "", ""}, {{0, 40}}, 0, {}})), "dot").size(), 1U);
  EXPECT_THAT(elementsOf(sound(drawn(LinePlot{{"t", "", ""}, {}, 10, {}})), "series"), IsEmpty());
  constexpr double kLargest = std::numeric_limits<double>::max();
  sound(drawn(LinePlot{
      {"t", kHostile, kHostile}, {{0, -kLargest}, {1, kLargest}, {kLargest, 0}}, kLargest, {}}));
}

TEST(StripPlot, has_a_dot_for_each_sibling_and_a_line_at_the_median) {
  const Parsed parsed = sound(drawn(StripPlot{
      {"s", "Speed", ""},
      {{"Read", {{"sda", 10}, {"sdb", 11}, {"sdc", 2}}}, {"Write", {{"sda", 5}}}, {"None", {}}}}));
  EXPECT_EQ(elementsOf(parsed, "dot").size(), 4U);
  ASSERT_EQ(elementsOf(parsed, "median").size(), 2U);
  EXPECT_EQ(elementsOf(parsed, "median")[0].at("x1"), "236.7");
  EXPECT_EQ(elementsOf(parsed, "dot")[1].at("cx"), "237") << "the median, on its pixel";
  EXPECT_THAT(parsed.texts, Contains("sdc"));
}

TEST(StripPlot, of_ten_thousand_siblings_stays_small) {
  StripPlot plot{{"s", kHostile, ""}, {{kHostile, {}}}};
  for (int place = 0; place < 10'000; ++place) {
    plot.rows[0].dots.push_back({kHostile + std::to_string(place), place * 0.01});
  }
  const std::string drawing = drawn(plot);
  sound(drawing);
  EXPECT_LT(drawing.size(), 100'000U);
}

TEST(BarPlot, is_against_the_largest_or_each_against_its_whole) {
  const Parsed parsed = sound(drawn(BarPlot{{"b", "Covered", ""},
                                            {{"one", "5", 5, 0, 10.0},
                                             {kHostile, "50", 50, 0, 100.0},
                                             {"part", "50 of 200", 50, 200, {}},
                                             {"no", "0", 0, 0, {}}}}));
  const auto bars = elementsOf(parsed, "bar");
  ASSERT_EQ(bars.size(), 4U);
  EXPECT_EQ(bars[0].at("width"), "18");
  EXPECT_EQ(bars[1].at("width"), "180");
  EXPECT_EQ(bars[2].at("width"), "90");
  EXPECT_EQ(bars[3].at("width"), "0");
  ASSERT_EQ(elementsOf(parsed, "limit").size(), 2U);
  EXPECT_EQ(elementsOf(parsed, "limit")[1].at("x1"), "360");
}

TEST(Timeline, has_a_lane_for_each_part_with_its_spans_and_marks) {
  const Timeline timeline{
      {"l", "What ran", ""},
      100,
      {{"Disk", {{0, 50, {"passed", 0.6}, ""}, {50, 100, {"failed", 1}, "It broke."}}, {}},
       {"Node",
        {},
        {{10, Timeline::Shape::Triangle, "warned", "Hot"},
         {20, Timeline::Shape::Cross, "failed", kHostile},
         {30, Timeline::Shape::Square, "other", ""}}}}};
  const Parsed parsed = sound(drawn(timeline));
  EXPECT_EQ(elementsOf(parsed, "passed")[0].at("d"), "M6 24.4h354v9.6h-354z");
  EXPECT_EQ(elementsOf(parsed, "failed").size(), 2U);
  EXPECT_EQ(elementsOf(parsed, "warned")[0].at("d"), "M76.8 61l5 10h-10z");
  EXPECT_EQ(elementsOf(parsed, "failed")[1].at("d"), "M142.6 61l10 10M152.6 61l-10 10");
  EXPECT_THAT(parsed.texts, Contains("It broke."));
}

TEST(Timeline, tells_what_spans_are_by_signs_that_do_not_cover_each_other) {
  const Timeline timeline{{"l", "", ""},
                          100,
                          {{"Disk",
                            {{0, 50, {"passed", 0.5, "+"}, ""},
                             {50, 51, {"failed", 1, "x"}, "It broke."},
                             {51, 52, {"failed", 1, "x"}, "Again."},
                             {52, 53, {"warned", 1, "!"}, "Hot."},
                             {100, 100, {"failed", 1, "x"}, "At the end."}},
                            {}}}};
  const std::vector<std::map<std::string, std::string>> signs =
      elementsOf(sound(drawn(timeline)), "sign");
  ASSERT_EQ(signs.size(), 3U);
  EXPECT_EQ(signs[0].at("x"), "360");
  EXPECT_EQ(signs[1].at("x"), "374.2");
  EXPECT_EQ(signs[2].at("x"), "704");
}

TEST(Timeline, draws_what_nearly_touches_as_one_and_nothing_too_short_to_be_seen) {
  Timeline timeline{{"l", "", ""}, 1'000'000, {{"Disk", {}, {}}}};
  for (int place = 0; place < 100'000; ++place) {
    timeline.lanes[0].spans.push_back({place * 10.0, place * 10.0 + 1, {"passed", 1}, ""});
  }
  EXPECT_LT(drawn(timeline).size(), 10'000U);
  timeline.lanes[0].spans = {{500'000, 500'001, {"passed", 1}, ""}};
  EXPECT_THAT(elementsOf(sound(drawn(timeline)), "passed")[0].at("d"), HasSubstr("h2v16"));
  timeline.lanes[0].spans = {{2'000'000, 1'000, {"passed", 1}, ""}};
  EXPECT_THAT(elementsOf(sound(drawn(timeline)), "passed")[0].at("d"), HasSubstr("M712 "));
}

TEST(Labels, are_shortened_by_columns_and_never_within_a_character) {
  EXPECT_EQ(shortened("short", 5), "short");
  EXPECT_EQ(shortened("longer", 5), "long\u2026");
  EXPECT_EQ(shortened("\u00e4\u00f6\u00fc", 2), "\u00e4\u2026");
  EXPECT_EQ(shortened("\u5185\u5b58\u6761", 5), "\u5185\u5b58\u2026");
  EXPECT_EQ(shortened("\u5185", 2), "\u5185");
  EXPECT_EQ(shortened("\xff\xff", 1), "\u2026");
  EXPECT_EQ(shortened("ab\xe5", 9), "ab\xe5");
}

}  // namespace
}  // namespace TarvexDiags::Svg
