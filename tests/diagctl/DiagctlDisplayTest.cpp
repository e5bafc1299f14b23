// What a window shows of a run, after all that happened to it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <regex>
#include <string>
#include <vector>

#include "tests/diagctl/Screen.h"
#include "tests/diagctl/Workplace.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using Lines = Screen::Lines;

constexpr const char* kTotal = " ended, ";

/// One display, and nothing left of an older one.
bool isDrawnOnce(const Lines& lines) {
  return countOf(lines, "Long on One  ") == 1 && countOf(lines, "Long on Two  ") == 1 &&
         countOf(lines, kTotal) == 1;
}

std::size_t barOf(const Lines& lines, const std::string& name) {
  for (const std::string& line : lines) {
    const std::size_t begin = line.find('[');
    if (line.starts_with(name) && begin != std::string::npos) {
      return line.find(']') - begin - 1;
    }
  }
  return 0;
}

class DiagctlDisplay : public ::testing::Test {
 protected:
  DiagctlDisplay() {
    place.addPackage("SLOW", {{.name = "Long", .milliseconds = 600'000}},
                     {{"One", "bus/one"}, {"Two", "bus/two"}});
  }

  std::vector<std::string> run(const std::string& package,
                               const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words{"--config", place.controlFile(), "run", "--watch=off", "-p",
                                   package};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  Workplace place;
};

class DiagctlDisplayOf : public DiagctlDisplay,
                         public ::testing::WithParamInterface<std::size_t> {};

TEST_P(DiagctlDisplayOf, a_window_names_tests_first_and_breaks_no_line) {
  Screen screen(GetParam(), 20, run("SLOW"));
  screen.startProgram();
  ASSERT_TRUE(screen.waitFor(isDrawnOnce)) << screen.describe();
  EXPECT_EQ(screen.lineOf("Long on Two  ").find("left") != std::string::npos, true)
      << screen.describe();
  EXPECT_EQ(barOf(screen.lines(), "Long on One"), GetParam() == 40 ? 7U : 20U) << screen.describe();
  screen.press("q");
  EXPECT_TRUE(screen.waitFor("2 aborted")) << screen.describe();
  EXPECT_EQ(screen.countOf(kTotal), 0U) << screen.describe();
}

INSTANTIATE_TEST_SUITE_P(Columns, DiagctlDisplayOf, ::testing::Values(40, 80, 200));

TEST_F(DiagctlDisplay, follows_the_window_in_the_middle_of_a_run) {
  Screen screen(200, 20, run("SLOW"));
  screen.startProgram();
  ASSERT_TRUE(screen.waitFor(isDrawnOnce)) << screen.describe();
  for (const auto& [columns, bar] :
       {std::pair(40U, 7U), std::pair(80U, 20U), std::pair(44U, 11U)}) {
    screen.resize(columns, 20);
    EXPECT_TRUE(screen.waitFor([&, width = bar](const Lines& lines) {
      return isDrawnOnce(lines) && barOf(lines, "Long on One") == width;
    })) << columns
        << screen.describe();
  }
}

TEST_F(DiagctlDisplay, gives_the_terminal_back_when_it_is_stopped_and_is_drawn_again_behind_that) {
  Screen screen(80, 20, run("SLOW"));
  screen.startProgram();
  ASSERT_TRUE(screen.waitFor(isDrawnOnce)) << screen.describe();
  screen.press("C-z");
  ASSERT_TRUE(screen.waitFor("Stopped")) << screen.describe();
  EXPECT_EQ(screen.countOf(kTotal), 0U) << screen.describe();
  screen.type("echo what is typed is $((40 + 2)) again");
  ASSERT_TRUE(screen.waitFor("what is typed is $((40 + 2)) again"))
      << "no echo" << screen.describe();
  ASSERT_TRUE(screen.waitFor("is 42 again")) << screen.describe();
  screen.type("fg");
  EXPECT_TRUE(screen.waitFor([](const Lines& lines) {
    return isDrawnOnce(lines) && countOf(lines, "is 42 again") == 1;
  })) << screen.describe();
  screen.press("q");
  EXPECT_TRUE(screen.waitFor("2 aborted")) << screen.describe();
}

TEST_F(DiagctlDisplay, is_not_drawn_in_the_background_and_takes_no_keys_there) {
  Screen screen(80, 20, run("SLOW"));
  screen.startProgram();
  ASSERT_TRUE(screen.waitFor(isDrawnOnce)) << screen.describe();
  screen.press("C-z");
  ASSERT_TRUE(screen.waitFor("Stopped")) << screen.describe();
  screen.type("clear; bg; echo q; jobs; echo $((40 + 2))");
  ASSERT_TRUE(screen.waitFor([](const Lines& lines) {
    return countOf(lines, "Running") == 1 && countOf(lines, "42") == 1;
  })) << screen.describe();
  screen.type("jobs; echo $((50 + 2))");
  ASSERT_TRUE(screen.waitFor([](const Lines& lines) {
    return countOf(lines, "Running") == 2 && countOf(lines, "52") == 1;
  })) << screen.describe();
  EXPECT_EQ(screen.countOf(kTotal), 0U) << screen.describe();
  screen.type("fg");
  EXPECT_TRUE(screen.waitFor(isDrawnOnce)) << screen.describe();
}

TEST_F(DiagctlDisplay, is_drawn_behind_what_other_programs_write) {
  Screen screen(80, 20, run("SLOW"));
  screen.startProgram();
  ASSERT_TRUE(screen.waitFor(isDrawnOnce)) << screen.describe();
  for (const std::string message : {"a message of another program", "and one more"}) {
    screen.writeAsOther(message + "\r\n");
    EXPECT_TRUE(screen.waitFor([&](const Lines& lines) {
      const auto line = std::find(lines.begin(), lines.end(), message);
      return isDrawnOnce(lines) && lines.end() - line == 7 && (line + 1)->empty() &&
             countOf({lines.back()}, kTotal) == 1;
    })) << screen.describe();
  }
}

// More than these before the next drawing, a second later at most, would meet a line of a test.
TEST_F(DiagctlDisplay, has_room_for_three_lines_that_come_at_once) {
  Screen screen(80, 20, run("SLOW"));
  screen.startProgram();
  ASSERT_TRUE(screen.waitFor(isDrawnOnce)) << screen.describe();
  screen.writeAsOther("one\r\ntwo\r\nthree\r\n");
  EXPECT_TRUE(screen.waitFor([](const Lines& lines) {
    const auto line = std::find(lines.begin(), lines.end(), "one");
    return isDrawnOnce(lines) && lines.end() - line == 9 && *(line + 1) == "two" &&
           *(line + 2) == "three" && (line + 3)->empty();
  })) << screen.describe();
}

TEST_F(DiagctlDisplay, has_wide_characters_below_one_another) {
  place.addPackage("WIDE", {{.name = "内存测试", .milliseconds = 600'000}},
                   {{"节点 0", "bus/three"}, {"N1", "bus/four"}});
  Screen screen(40, 20, run("WIDE", {"--lang", "zh"}));
  screen.startProgram();
  EXPECT_TRUE(screen.waitFor([](const Lines& lines) {
    return countOf(lines, "已结束 0/2") == 1 &&
           std::count_if(lines.begin(), lines.end(),
                         [](const std::string& line) { return line.starts_with("内存测试"); }) == 2;
  })) << screen.describe();
}

TEST_F(DiagctlDisplay, is_scrolled_helps_and_lets_a_test_be_chosen) {
  std::vector<ConfiguredDevice> devices;
  for (int number = 10; number < 30; ++number) {
    devices.push_back({"D" + std::to_string(number), "bus/d" + std::to_string(number)});
  }
  place.addPackage("MANY", {{.name = "Long", .milliseconds = 600'000}}, devices);
  Screen screen(60, 12, run("MANY"));
  screen.startProgram();
  ASSERT_TRUE(screen.waitFor("0 above, 12 below")) << screen.describe();
  screen.press("Down");
  ASSERT_TRUE(screen.waitFor("1 above, 11 below")) << screen.describe();
  EXPECT_EQ(screen.countOf("Long on D10 "), 0U) << screen.describe();
  screen.press("?");
  ASSERT_TRUE(screen.waitFor("? hide this help")) << screen.describe();
  screen.press("?");
  screen.press("a");
  ASSERT_TRUE(screen.waitFor("> Long on D11 ")) << screen.describe();
  screen.press("Down");
  ASSERT_TRUE(screen.waitFor("> Long on D12 ")) << screen.describe();
  screen.press("Enter");
  EXPECT_TRUE(screen.waitFor("1 of 20 ended")) << screen.describe();
  screen.press("q");
  EXPECT_TRUE(screen.waitFor("20 aborted")) << screen.describe();
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
