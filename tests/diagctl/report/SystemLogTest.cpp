// The line that a run leaves in the system's log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <string>

#include "diagctl/report/SystemLog.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Le;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

RunRecord recordOfRun() {
  RunRecord record;
  for (const RunEvent& event : wholeRun()) {
    record.handle(event);
  }
  return record;
}

TEST(SystemLog, gets_the_verdict_and_what_has_failed) {
  const SystemLogLine line = systemLogLineOf("run", recordOfRun(), {});
  EXPECT_EQ(line.priority, LOG_ERR);
  EXPECT_EQ(line.text, "run: FAILED: 1 failed, 1 aborted; Storage: Read: fast on Disk on a shelf");
}

TEST(SystemLog, gets_what_has_passed_as_news_and_what_has_no_verdict_as_a_warning) {
  const auto time = std::chrono::system_clock::time_point();
  RunRecord record;
  record.handle({time, StepStarted{"1", "P", "Disk", "Read", "", 1}});
  record.handle({time, StepDiagnosis{"1", Verdict::Pass, "", "", "", "", 1}});
  record.handle({time, StepEnded{"1"}});
  record.handle({time, RunEnded{}});
  EXPECT_EQ(systemLogLineOf("run", record, {}).text, "run: PASSED: 1 passed");
  EXPECT_EQ(systemLogLineOf("run", record, {}).priority, LOG_INFO);
  record.handle({time, RunTrouble{"package-not-loaded", "lost"}});
  EXPECT_THAT(systemLogLineOf("health", record, {}).text, StartsWith("health: ERROR: "));
  EXPECT_EQ(systemLogLineOf("health", record, {}).priority, LOG_WARNING);
}

TEST(SystemLog, gets_one_printable_line_however_much_has_failed) {
  const auto time = std::chrono::system_clock::time_point();
  RunRecord record;
  for (int step = 0; step < 100; ++step) {
    const std::string id = std::to_string(step);
    record.handle({time, StepStarted{id, "P\x1b[2J", "Disk\n" + id, "Read %s %n", "", 1}});
    record.handle({time, StepDiagnosis{id, Verdict::Fail, "bad", "", "", "", 1}});
    record.handle({time, StepEnded{id}});
  }
  const std::string text = systemLogLineOf("run", record, {}).text;
  EXPECT_THAT(text, AllOf(SizeIs(Le(SystemLogLine::kLongest)), Not(HasSubstr("\n")),
                          Not(HasSubstr("\x1b")), HasSubstr("; and ")));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
