// What a person sees of a run under way.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ostream>
#include <sstream>
#include <vector>

#include "diagctl/report/Progress.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

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

}  // namespace
}  // namespace TarvexDiags::FrontEnd
