// What a person sees of a run under way.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "diagctl/report/Progress.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

/// Writes down which step could be aborted whenever something has been drawn.
class Onlooker : public std::stringbuf {
 public:
  explicit Onlooker(const Progress*& progress) : m_progress(progress) {}

  std::vector<unsigned long> known;

 protected:
  int sync() override {
    known.push_back(m_progress->firstRunning());
    return 0;
  }

 private:
  const Progress*& m_progress;
};

TEST(ProgressLines, can_be_chosen_as_soon_as_they_are_drawn) {
  const Progress* watched = nullptr;
  Onlooker onlooker(watched);
  std::ostream out(&onlooker);
  Printer printer(out);
  Progress progress(printer, true, 2);
  watched = &progress;
  const auto time = std::chrono::system_clock::time_point();
  progress.handle({time, RunStarted{}});
  progress.handle({time, StepStarted{"1", "P", "Disk", "Read", "", 1}});
  progress.handle({time, StepStarted{"2", "P", "Disk", "Write", "", 1}});
  progress.handle({time, StepEnded{"1", RunStatus::Complete}});
  EXPECT_THAT(onlooker.known, ElementsAre(0, 1, 1, 2));
}

TEST(ProgressLines, tell_elapsed_and_remaining_time) {
  std::ostringstream out;
  Printer printer(out);
  Progress progress(printer, true, 2);
  const auto begin = std::chrono::system_clock::time_point();
  progress.handle({begin, RunStarted{}});
  progress.handle({begin, StepStarted{"1", "P", "Disk", "Read", "", 1}});
  progress.handle({begin + std::chrono::seconds(30), StepProgress{"1", 50, 1, 1}});
  EXPECT_THAT(out.str(), HasSubstr("[##########..........]  50% 0:30 left 0:30  Read on Disk"));
  EXPECT_THAT(out.str(), HasSubstr("0 of 2 ended, 0:30 left 1:30"));
  EXPECT_EQ(progress.firstRunning(), 1U);
}

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
    ++count;
  }
  return count;
}

TEST(ProgressLines, show_the_hottest_part_and_how_much_was_found) {
  std::ostringstream out;
  Printer printer(out);
  Progress progress(printer, true, 2);
  const auto time = std::chrono::system_clock::time_point();
  progress.handle({time, SeriesStarted{kMachineStep, "1", "core", "°C", 100.0}});
  progress.handle({time, SeriesStarted{kMachineStep, "2", "disk", "°C", std::nullopt}});
  progress.handle({time, SeriesStarted{kMachineStep, "3", "fan", "RPM", std::nullopt}});
  EXPECT_THAT(out.str(), Not(HasSubstr("hottest")));
  progress.handle({time, SeriesElement{kMachineStep, "1", 0, 41, time}});
  progress.handle({time, SeriesElement{kMachineStep, "2", 0, 63.4, time}});
  progress.handle({time, SeriesElement{kMachineStep, "3", 0, 4000, time}});
  EXPECT_THAT(out.str(), HasSubstr("ended, 0:00 left -, hottest 63 °C   s suspend"));
  progress.handle({time, StepDiagnosis{"1", Verdict::Fail, "miscompare", "", "", "", 1}});
  EXPECT_THAT(out.str(), Not(HasSubstr("finding")));
  progress.handle({time, StepDiagnosis{"1", Verdict::Unknown, "throttled", "", "", "", 0}});
  EXPECT_THAT(out.str(), HasSubstr("hottest 63 °C, 1 finding   s suspend"));
}

TEST(ProgressLines, tell_what_is_left_along_the_resources) {
  const auto told = [](bool isSerial) {
    std::ostringstream out;
    Printer printer(out);
    Progress progress(printer, true, 3);
    progress.expect({{"a", 40}, {"a", 100}, {"b", 90}}, isSerial);
    const auto begin = std::chrono::system_clock::time_point();
    progress.handle({begin, RunStarted{}});
    progress.handle({begin, StepStarted{"1", "P", "Disk", "Read", "", 1}});
    progress.handle({begin + std::chrono::seconds(30), StepProgress{"1", 50, 1, 1}});
    progress.handle({begin + std::chrono::seconds(60), StepEnded{"1", RunStatus::Complete}});
    return out.str();
  };
  EXPECT_THAT(told(false), HasSubstr("0 of 3 ended, 0:00 left 2:20"));
  EXPECT_THAT(told(false), HasSubstr("0 of 3 ended, 0:30 left 2:10")) << "half of it took 30 s";
  EXPECT_THAT(told(false), HasSubstr("1 of 3 ended, 1:00 left 1:40"));
  EXPECT_THAT(told(true), HasSubstr("1 of 3 ended, 1:00 left 3:10"));
}

TEST(ProgressLines, say_that_the_run_is_ending_from_the_next_event_on) {
  std::ostringstream out;
  Printer printer(out);
  Progress progress(printer, true, 2);
  const auto time = std::chrono::system_clock::time_point();
  progress.handle({time, RunStarted{}});
  progress.handle({time, StepStarted{"1", "P", "Disk", "Read", "", 1}});
  EXPECT_THAT(out.str(), Not(HasSubstr("ending")));
  progress.announceEnding();
  progress.handle({time, StepMessage{"1", Severity::Information, "told before", ""}});
  EXPECT_THAT(out.str(), HasSubstr("0:00 ending  Read on Disk"));
  EXPECT_THAT(out.str(), HasSubstr("0 of 2 ended, 0:00, ending"));
}

TEST(ProgressLines, say_once_that_the_run_is_ending_where_nothing_is_drawn) {
  std::ostringstream out;
  Printer printer(out);
  Progress progress(printer, false, 2);
  const auto time = std::chrono::system_clock::time_point();
  progress.handle({time, StepStarted{"1", "P", "Disk", "Read", "", 1}});
  progress.announceEnding();
  progress.handle({time, StepMessage{"1", Severity::Information, "told before", ""}});
  progress.handle({time, StepEnded{"1", RunStatus::Complete}});
  EXPECT_EQ(countOf(out.str(), "ending   what still runs (0 of 2 ended)\n"), 1U);
}

TEST(ProgressLines, are_drawn_seldom_while_many_events_pass) {
  std::ostringstream out;
  Printer printer(out);
  Progress progress(printer, true, 1);
  const auto time = std::chrono::system_clock::time_point();
  progress.handle({time, StepStarted{"1", "P", "Disk", "Read", "", 1}});
  for (int i = 0; i < 1000; ++i) {
    progress.handleInPassing({time, StepMessage{"1", Severity::Information, "news", ""}});
  }
  EXPECT_LT(countOf(out.str(), "Read on Disk"), 500U);
  progress.handle({time, StepProgress{"1", 70, 1, 1}});
  EXPECT_THAT(out.str(), HasSubstr(" 70%"));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
