// The logs of several runs, written into one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "diagctl/report/JsonlReader.h"
#include "diagctl/report/MergedLog.h"
#include "diagctl/terminal/Printer.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// The logs as one.
std::string merged(const std::vector<std::string>& logs) {
  std::ostringstream out;
  Printer printer(out);
  MergedLog log(printer);
  for (const std::string& text : logs) {
    std::istringstream in(text);
    JsonlReader reader(in, "log");
    do {
      log.beginRun();
    } while (
        reader.readRun([](const RunEvent& /*event*/) {},
                       [&](const std::string& line, const auto& json) { log.take(line, json); }));
  }
  return out.str();
}

std::string toLines(const std::vector<RunEvent>& events) {
  std::ostringstream out;
  Printer printer(out);
  JsonlReporter reporter(printer);
  for (const RunEvent& event : events) {
    reporter.handle(event);
  }
  return out.str();
}

TEST(MergedLog, keeps_sound_lines_as_they_stand) {
  const std::string log = toLines(wholeRun());
  EXPECT_EQ(merged({log, log + log}), log + log + log);
  EXPECT_EQ(merged({log.substr(0, log.size() - 20), log}),
            log.substr(0, log.rfind('\n', log.size() - 2) + 1) + log)
      << "half a line is none";
}

constexpr const char* kTime = R"("timestamp":"2026-11-21T03:04:05.678Z"})";

TEST(MergedLog, begins_each_run_with_the_version_and_numbers_what_has_no_number) {
  const std::string line =
      R"({"testRunArtifact":{"log":{"message":"m","severity":"INFO"}},)" + std::string(kTime);
  const std::string whole = merged({line + "\n" + line + "\n"});
  std::istringstream in(whole);
  std::vector<std::string> lines;
  for (std::string one; std::getline(in, one);) {
    lines.push_back(one);
  }
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_THAT(lines[0], HasSubstr(R"("schemaVersion":{"major":2,"minor":0})"));
  EXPECT_THAT(lines[0], HasSubstr(R"("sequenceNumber":0)"));
  EXPECT_THAT(lines[1], HasSubstr(R"("sequenceNumber":1)"));
  EXPECT_THAT(lines[2], HasSubstr(R"("sequenceNumber":2)"));
}

TEST(MergedLog, leaves_a_gap_in_the_numbers_and_what_it_does_not_know) {
  const std::string version =
      R"({"schemaVersion":{"major":2,"minor":0},"sequenceNumber":0,)" + std::string(kTime) + "\n";
  const std::string unknown = R"({"testRunArtifact":{"other":{"a":[1,null]}},"sequenceNumber":7,)" +
                              std::string(kTime) + "\n";
  EXPECT_EQ(merged({version + unknown}), version + unknown);
}

TEST(MergedLog, counts_on_behind_a_number_that_none_can_follow) {
  const std::string line =
      R"({"testRunArtifact":{"log":{"message":"m","severity":"INFO"}},"sequenceNumber":)";
  const std::string whole =
      merged({line + "18446744073709551615," + kTime + "\n" + line + "4," + kTime + "\n"});
  EXPECT_THAT(whole, HasSubstr(R"("sequenceNumber":1,)"));
  EXPECT_THAT(whole, HasSubstr(R"("sequenceNumber":4,)"));
  EXPECT_THAT(whole, Not(HasSubstr("18446744073709551615")));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
