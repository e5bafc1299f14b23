// What a person sees of a run under way.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>

#include "diagctl/report/Progress.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::HasSubstr;

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
