// How a run under way is laid out in windows of any size.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

#include "diagctl/report/ProgressView.h"
#include "diagctl/terminal/Columns.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

RunningTest running(unsigned long number, const std::string& name) {
  RunningTest test;
  test.number = number;
  test.name = name;
  test.percent = 50;
  test.elapsed = 30;
  test.left = 30;
  return test;
}

ProgressView viewOf(std::size_t tests) {
  setenv("LC_ALL", "C.UTF-8", 1);
  ProgressView view;
  for (std::size_t number = 1; number <= tests; ++number) {
    view.tests.push_back(running(number, "Read on Disk " + std::to_string(number)));
  }
  view.ended = 2;
  view.total = tests + 2;
  view.elapsed = 60;
  view.left = 90;
  return view;
}

std::vector<std::string> linesIn(const ProgressView& view, std::size_t columns,
                                 std::size_t rows = 24) {
  return linesOf(view, {columns, rows}).lines;
}

TEST(ProgressLayouts, names_each_test_first_and_has_a_bar_that_shrinks_with_the_window) {
  const ProgressView view = viewOf(1);
  EXPECT_THAT(linesIn(view, 200),
              ElementsAre("", "", "", "Read on Disk 1  [##########..........]  50% 0:30 left 0:30",
                          "2 of 3 ended, 1:00 left 1:30  s suspend  r resume  a abort one  q abort "
                          "all  ? help"));
  EXPECT_THAT(linesIn(view, 50),
              ElementsAre("", "", "", "Read on Disk 1  [#####......]  50% 0:30 left 0:30",
                          "2 of 3 ended, 1:00 left 1:30  ? help"));
  EXPECT_THAT(linesIn(view, 40), ElementsAre("", "", "", "Read on Disk 1   50% 0:30 left 0:30",
                                             "2 of 3 ended, 1:00 left 1:30  ? help"));
}

TEST(ProgressLayouts, stays_within_any_window_in_any_script) {
  ProgressView view = viewOf(40);
  view.tests[0].name = "メモリの全ビット検査 on ノード 0";
  view.tests[1].name = std::string(90, 'x');
  view.tests[2].throughput = "2.6 GB/s";
  view.tests[3].passes = 1000;
  view.hottest = 71.6;
  view.findings = 12;
  view.showsHelp = true;
  view.chosen = 2;
  for (const std::size_t columns : {1U, 2U, 9U, 20U, 39U, 40U, 41U, 61U, 80U, 120U, 200U}) {
    for (const std::size_t rows : {1U, 2U, 3U, 5U, 8U, 24U, 60U}) {
      const std::vector<std::string> lines = linesIn(view, columns, rows);
      EXPECT_LE(lines.size(), std::max<std::size_t>(rows, 2) - 1);
      for (const std::string& line : lines) {
        EXPECT_LT(columnsOf(line), std::max<std::size_t>(columns, 2)) << line;
      }
    }
  }
}

TEST(ProgressLayouts, has_wide_characters_below_one_another) {
  ProgressView view = viewOf(1);
  view.tests.push_back(running(2, "内存测试 on 节点 0"));
  const std::vector<std::string> lines = linesIn(view, 80);
  ASSERT_THAT(lines, SizeIs(6));
  const auto columnOfBar = [](const std::string& line) {
    return columnsOf(line.substr(0, line.find('[')));
  };
  EXPECT_EQ(columnOfBar(lines[3]), columnOfBar(lines[4]));
}

TEST(ProgressLayouts, keeps_both_ends_of_a_name_that_has_no_room) {
  ProgressView view = viewOf(1);
  view.tests[0].name = "Moving inversions with random values on Node 17";
  EXPECT_THAT(linesIn(view, 40),
              Contains(AllOf(StartsWith("Moving in"), HasSubstr("Node 17   50% 0:30 left 0:30"))));
}

TEST(ProgressLayouts, shows_twelve_tests_or_as_many_as_the_window_has_room_for) {
  EXPECT_EQ(linesOf(viewOf(12), {80, 24}).shown, 12U);
  const ProgressLayout tall = linesOf(viewOf(30), {80, 60});
  EXPECT_EQ(tall.shown, 12U);
  EXPECT_THAT(tall.lines, Contains("0 above, 18 below: arrow keys scroll"));
  const ProgressLayout low = linesOf(viewOf(30), {80, 10});
  EXPECT_EQ(low.shown, 6U) << "beside a blank line, that on scrolling, the total and a free one";
  EXPECT_THAT(low.lines, SizeIs(9));
}

TEST(ProgressLayouts, is_scrolled_no_further_than_there_are_tests) {
  ProgressView view = viewOf(30);
  view.firstShown = 5;
  EXPECT_THAT(
      linesOf(view, {80, 24}).lines,
      AllOf(Contains(StartsWith("Read on Disk 6 ")), Not(Contains(StartsWith("Read on Disk 5 "))),
            Contains("5 above, 13 below: arrow keys scroll")));
  view.firstShown = 99;
  EXPECT_EQ(linesOf(view, {80, 24}).firstShown, 18U);
}

TEST(ProgressLayouts, marks_the_test_that_is_chosen_and_brings_it_into_sight) {
  ProgressView view = viewOf(30);
  view.chosen = 25;
  const ProgressLayout part = linesOf(view, {80, 24});
  EXPECT_THAT(part.lines, Contains(StartsWith("> Read on Disk 25  [")));
  EXPECT_THAT(part.lines, Contains(StartsWith("  Read on Disk 24  [")));
  EXPECT_THAT(part.lines, Contains(HasSubstr("abort Read on Disk 25?  Enter aborts it")));
  view.firstShown = 28;
  EXPECT_EQ(linesOf(view, {80, 24}).firstShown, 18U);
}

TEST(ProgressLayouts, tells_states_passes_and_throughput) {
  ProgressView view = viewOf(4);
  view.tests[0].state = RunningTest::State::Suspended;
  view.tests[1].state = RunningTest::State::Ending;
  view.tests[2].passes = 3;
  view.tests[2].pass = 2;
  view.tests[3].throughput = "2.6 GB/s";
  view.tests[3].left.reset();
  EXPECT_THAT(linesIn(view, 100),
              AllOf(Contains(EndsWith("0:30 suspended")), Contains(EndsWith("0:30 ending")),
                    Contains(EndsWith(" 50% pass 2/3 0:30 left 0:30")),
                    Contains(EndsWith("left -  2.6 GB/s"))));
  EXPECT_THAT(linesIn(view, 42), Not(Contains(HasSubstr("GB/s")))) << "there is no room";
}

TEST(ProgressLayouts, tells_the_hottest_part_and_how_much_was_found_below_one_another_if_need_be) {
  ProgressView view = viewOf(0);
  view.hottest = 71.6;
  view.findings = 1;
  EXPECT_THAT(
      linesIn(view, 80),
      ElementsAre("", "", "", "2 of 2 ended, 1:00 left 1:30  hottest 72 °C  1 finding  ? help"));
  EXPECT_THAT(linesIn(view, 40), ElementsAre("", "", "", "2 of 2 ended, 1:00 left 1:30",
                                             "hottest 72 °C  1 finding  ? help"));
}

TEST(ProgressLayouts, has_nothing_that_the_locale_cannot_show) {
  ProgressView view = viewOf(1);
  view.tests[0].name = "Moving inversions with random values on Node 17";
  view.hottest = 71.6;
  setenv("LC_ALL", "C", 1);
  EXPECT_THAT(linesIn(view, 40), AllOf(Contains(StartsWith("Moving i.. Node 17   50%")),
                                       Contains(HasSubstr("hottest 72 C  "))));
}

TEST(ProgressLayouts, tells_that_the_run_is_ending_instead_of_what_it_takes) {
  ProgressView view = viewOf(1);
  view.isEnding = true;
  EXPECT_THAT(linesIn(view, 200), Contains("2 of 3 ended, 1:00, ending"));
}

TEST(ProgressLayouts, tells_what_each_key_does) {
  ProgressView view = viewOf(1);
  view.showsHelp = true;
  const std::vector<std::string> lines = linesIn(view, 30);
  for (const char* key : {"s suspend all", "r resume", "a choose a test to abort", "q abort all",
                          "arrow keys scroll", "? hide this help"}) {
    EXPECT_THAT(lines, Contains(HasSubstr(key)));
  }
}

TEST(Heartbeats, tell_in_one_line_what_runs_and_how_far_the_run_is) {
  ProgressView view = viewOf(2);
  EXPECT_EQ(heartbeatOf(view),
            "2 of 4 ended, 1:00 left 1:30: Read on Disk 1 50%, Read on Disk 2 50%");
  view = viewOf(14);
  view.isEnding = true;
  EXPECT_THAT(heartbeatOf(view), AllOf(StartsWith("2 of 16 ended, 1:00, ending: "),
                                       EndsWith("Read on Disk 12 50%, ... and 2 more")));
  EXPECT_EQ(heartbeatOf(viewOf(0)), "2 of 2 ended, 1:00 left 1:30");
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
