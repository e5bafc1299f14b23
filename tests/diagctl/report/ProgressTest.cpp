// What a person sees of a run under way.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>

#include "diagctl/report/Progress.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {
namespace {

using std::chrono::seconds;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Kind = Key::Kind;

constexpr Key kChoose{Kind::Character, 'a'};

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
    ++count;
  }
  return count;
}

/// A run that is followed where lines are drawn, or where they are not.
class ProgressLinesTest : public ::testing::Test {
 protected:
  explicit ProgressLinesTest(bool isDrawn = true) {
    canvas = {isDrawn, {100, 24}, 0};
    setenv("LC_ALL", "C.UTF-8", 1);
  }

  void tell(RunEventBody body, seconds later = seconds(0)) {
    progress.handle({begin + later, std::move(body)});
  }
  void start(const std::string& id, const std::string& test) {
    tell(StepStarted{id, "P", "Disk", test, "", 1});
  }
  unsigned long press(Key key) { return progress.press(key, begin); }
  /// What was written since the last call.
  std::string written() {
    std::string text = out.str();
    out.str("");
    return text;
  }

  const std::chrono::system_clock::time_point begin = {};
  const Progress::Steady steady{seconds(1000)};
  Canvas canvas;
  std::ostringstream out;
  Printer printer{out};
  Progress progress{printer, [this] { return canvas; }, 3};
};

class ProgressLines : public ProgressLinesTest {};

class PlainProgress : public ProgressLinesTest {
 protected:
  PlainProgress() : ProgressLinesTest(false) {}
};

TEST_F(ProgressLines, tell_elapsed_and_remaining_time) {
  tell(RunStarted{});
  start("1", "Read");
  tell(StepProgress{"1", 50, 1, 1}, seconds(30));
  EXPECT_THAT(out.str(), HasSubstr("Read on Disk  [##########..........]  50% 0:30 left 0:30"));
  EXPECT_THAT(out.str(), HasSubstr("0 of 3 ended, 0:30 left 2:30"));
}

TEST_F(ProgressLines, tell_the_remaining_time_of_all_passes) {
  tell(StepStarted{"1", "P", "Disk", "Read", "", 3});
  tell(StepProgress{"1", 50, 2, 3}, seconds(30));
  EXPECT_THAT(out.str(), HasSubstr(" 50% pass 2/3 0:30 left 0:30"));
}

TEST_F(ProgressLines, show_the_hottest_part_and_what_was_found_once) {
  tell(SeriesStarted{kMachineStep, "1", "core", "°C", 100.0});
  tell(SeriesStarted{kMachineStep, "2", "disk", "°C", std::nullopt});
  tell(SeriesStarted{kMachineStep, "3", "fan", "RPM", std::nullopt});
  EXPECT_THAT(written(), Not(HasSubstr("hottest")));
  tell(SeriesElement{kMachineStep, "1", 0, 41, begin});
  tell(SeriesElement{kMachineStep, "2", 0, 63.4, begin});
  tell(SeriesElement{kMachineStep, "3", 0, 4000, begin});
  tell(StepDiagnosis{"1", Verdict::Pass, "passed", "", "", "", 1});
  EXPECT_THAT(out.str(), HasSubstr("ended, 0:00 left -  hottest 63 °C  s suspend"));
  EXPECT_THAT(written(), Not(HasSubstr("finding")));
  tell(StepDiagnosis{"1", Verdict::Unknown, "throttled", "", "", "", 0});
  EXPECT_THAT(written(), HasSubstr("hottest 63 °C  1 finding  ? help"));
  tell(StepDiagnosis{"1", Verdict::Fail, "miscompare", "", "", "", 1});
  tell(StepDiagnosis{"1", Verdict::Fail, "miscompare", "", "", "", 2});
  EXPECT_THAT(out.str(), HasSubstr("2 findings"));
  EXPECT_THAT(out.str(), Not(HasSubstr("3 findings"))) << "of another pass, and the same";
}

TEST_F(ProgressLines, show_how_fast_a_test_is_where_it_tells_that) {
  start("1", "Read");
  start("2", "Write");
  tell(StepMeasurement{"1", "readRate", 2610.0, "MB/s", ""});
  tell(StepMeasurement{"2", "blocks", 5.0, "", ""});
  EXPECT_THAT(out.str(), HasSubstr("left -  2.6 GB/s"));
  EXPECT_EQ(countOf(out.str(), "/s"), 2U) << "in the drawing for each of both figures";
}

TEST_F(ProgressLines, show_how_fast_a_test_is_just_now) {
  start("1", "Read");
  tell(StepThroughput{"1", 2610, "MB/s"});
  EXPECT_THAT(written(), HasSubstr("left -  2.6 GB/s"));
  tell(StepThroughput{"1", 512, "MB/s"});
  EXPECT_THAT(written(), HasSubstr("left -  512 MB/s"));
  tell(StepThroughput{"1", 7, "\x1b[31m/s"});
  EXPECT_THAT(out.str(), Not(HasSubstr("\x1b[31m")));
}

TEST_F(ProgressLines, tell_what_is_left_along_the_resources) {
  progress.expect({{"a", 40}, {"a", 100}, {"b", 90}}, false);
  tell(RunStarted{});
  start("1", "Read");
  EXPECT_THAT(written(), HasSubstr("0 of 3 ended, 0:00 left 2:20"));
  tell(StepProgress{"1", 50, 1, 1}, seconds(30));
  EXPECT_THAT(written(), HasSubstr("0 of 3 ended, 0:30 left 2:10")) << "half of it took 30 s";
  tell(StepEnded{"1", RunStatus::Complete}, seconds(60));
  EXPECT_THAT(written(), HasSubstr("1 of 3 ended, 1:00 left 1:40"));
}

TEST_F(ProgressLines, tell_what_is_left_one_after_the_other) {
  progress.expect({{"a", 40}, {"a", 100}, {"b", 90}}, true);
  tell(RunStarted{});
  start("1", "Read");
  tell(StepEnded{"1", RunStatus::Complete}, seconds(60));
  EXPECT_THAT(out.str(), HasSubstr("1 of 3 ended, 1:00 left 3:10"));
}

TEST_F(ProgressLines, say_that_the_run_is_ending_from_the_next_event_on) {
  start("1", "Read");
  EXPECT_THAT(written(), Not(HasSubstr("ending")));
  progress.announceEnding();
  tell(StepMessage{"1", Severity::Information, "told before", ""});
  EXPECT_THAT(out.str(), HasSubstr("Read on Disk  [....................]   0% 0:00 ending"));
  EXPECT_THAT(out.str(), HasSubstr("0 of 3 ended, 0:00, ending"));
}

TEST_F(ProgressLines, say_that_the_run_is_ending_without_any_event) {
  start("1", "Read");
  written();
  progress.announceEnding();
  progress.lookAround(begin, std::chrono::steady_clock::now());
  EXPECT_THAT(out.str(), HasSubstr("0 of 3 ended, 0:00, ending"));
}

TEST_F(ProgressLines, are_drawn_seldom_while_many_events_pass) {
  start("1", "Read");
  for (int i = 0; i < 1000; ++i) {
    progress.handleInPassing({begin, StepMessage{"1", Severity::Information, "news", ""}});
  }
  EXPECT_LT(countOf(out.str(), "Read on Disk"), 500U);
  tell(StepProgress{"1", 70, 1, 1});
  EXPECT_THAT(out.str(), HasSubstr(" 70%"));
}

TEST_F(ProgressLines, let_a_person_choose_the_test_to_abort) {
  start("1", "Read");
  start("2", "Write");
  EXPECT_EQ(press({Kind::Enter}), 0U) << "none is chosen";
  EXPECT_EQ(press(kChoose), 0U);
  EXPECT_THAT(written(), HasSubstr("> Read on Disk"));
  EXPECT_EQ(press({Kind::Down}), 0U);
  EXPECT_THAT(written(), HasSubstr("abort Write on Disk?"));
  EXPECT_EQ(press({Kind::Enter}), 2U);
  EXPECT_THAT(out.str(), HasSubstr("Write on Disk  [....................]   0% 0:00 ending"));
  EXPECT_THAT(written(), Not(HasSubstr("abort Write on Disk?")));
  EXPECT_EQ(press({Kind::Enter}), 0U) << "it is answered";
}

TEST_F(ProgressLines, leave_a_chosen_test_be) {
  start("1", "Read");
  start("2", "Write");
  for (const Key key : {Key{Kind::Escape}, Key{Kind::Character, 'x'}}) {
    press(kChoose);
    press(key);
    EXPECT_EQ(press({Kind::Enter}), 0U);
  }
}

TEST_F(ProgressLines, choose_no_other_test_when_the_chosen_one_ends) {
  start("1", "Read");
  start("2", "Write");
  press(kChoose);
  tell(StepEnded{"1", RunStatus::Complete});
  EXPECT_EQ(press({Kind::Enter}), 0U);
}

TEST_F(ProgressLines, are_scrolled_by_the_arrow_keys) {
  for (int number = 1; number <= 30; ++number) {
    start(std::to_string(number), "Read " + std::to_string(number));
  }
  press({Kind::Down});
  written();
  press({Kind::Down});
  EXPECT_THAT(written(), HasSubstr("2 above, 16 below"));
  press({Kind::PageDown});
  EXPECT_THAT(written(), HasSubstr("14 above, 4 below"));
  press({Kind::Up});
  EXPECT_THAT(written(), HasSubstr("13 above, 5 below"));
  press({Kind::PageUp});
  press({Kind::PageUp});
  EXPECT_THAT(written(), HasSubstr("0 above, 18 below"));
}

TEST_F(ProgressLines, tell_the_keys_when_they_are_asked_for) {
  start("1", "Read");
  written();
  press({Kind::Character, '?'});
  EXPECT_THAT(written(), HasSubstr("? hide this help"));
  press({Kind::Character, '?'});
  EXPECT_THAT(written(), Not(HasSubstr("? hide this help")));
}

TEST_F(ProgressLines, follow_the_window_at_once) {
  start("1", "Read");
  const auto now = std::chrono::steady_clock::now();
  written();
  progress.lookAround(begin, now);
  EXPECT_THAT(written(), IsEmpty()) << "nothing has changed";
  canvas.window.columns = 46;
  progress.lookAround(begin, now);
  EXPECT_THAT(written(), HasSubstr("Read on Disk  [............]   0% 0:00 left -"));
  ++canvas.continuations;
  progress.lookAround(begin, now);
  EXPECT_THAT(written(), HasSubstr("Read on Disk"));
}

TEST_F(ProgressLines, have_a_clock_that_goes_on_while_nothing_is_told) {
  tell(RunStarted{});
  start("1", "Read");
  written();
  progress.lookAround(begin + seconds(7), std::chrono::steady_clock::now() + seconds(2));
  EXPECT_THAT(out.str(), HasSubstr("0:07 left -"));
}

TEST_F(ProgressLines, are_no_longer_drawn_in_the_background) {
  start("1", "Read");
  canvas.isDrawn = false;
  written();
  start("2", "Write");
  tell(StepProgress{"1", 50, 1, 1});
  progress.lookAround(begin, steady);
  progress.finish();
  EXPECT_EQ(out.str(), "running  P: Write on Disk (0 of 3 ended)\n");
}

TEST_F(PlainProgress, is_one_line_for_each_test_and_one_for_each_minute) {
  tell(RunStarted{});
  start("1", "Read");
  progress.lookAround(begin, steady);
  progress.lookAround(begin + seconds(59), steady + seconds(59));
  tell(StepProgress{"1", 50, 1, 1}, seconds(59));
  EXPECT_EQ(written(), "running  P: Read on Disk (0 of 3 ended)\n");
  progress.lookAround(begin + seconds(60), steady + seconds(60));
  EXPECT_EQ(written(), "still    0 of 3 ended, 1:00 left 5:00: Read on Disk 50%\n");
  progress.lookAround(begin + seconds(61), steady + seconds(61));
  tell(StepEnded{"1", RunStatus::Complete}, seconds(62));
  progress.announceEnding();
  progress.lookAround(begin + seconds(120), steady + seconds(119));
  EXPECT_EQ(written(), "");
  progress.lookAround(begin + seconds(120), steady + seconds(120));
  EXPECT_EQ(written(), "still    1 of 3 ended, 2:00, ending\n");
  tell(RunEnded{}, seconds(121));
  progress.lookAround(begin + seconds(300), steady + seconds(300));
  progress.finish();
  EXPECT_EQ(written(), "");
}

TEST_F(PlainProgress, takes_no_key_for_what_nobody_sees) {
  start("1", "Read");
  press(kChoose);
  EXPECT_EQ(press({Kind::Enter}), 0U);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
