// The log, written and read back.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "diagctl/report/Figures.h"
#include "diagctl/report/JsonlReader.h"
#include "diagctl/report/JsonlReporter.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/terminal/Printer.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

std::string toLog(const std::vector<RunEvent>& events) {
  std::ostringstream out;
  Printer printer(out);
  JsonlReporter reporter(printer);
  for (const RunEvent& event : events) {
    reporter.handle(event);
  }
  return out.str();
}

std::vector<RunEvent> fromLog(const std::string& log) {
  std::istringstream in(log);
  std::vector<RunEvent> events;
  JsonlReader(in, "log").readRun([&](const RunEvent& event) { events.push_back(event); });
  return events;
}

TEST(Log, reads_back_as_it_was_written) {
  const std::string log = toLog(wholeRun());
  EXPECT_EQ(fromLog(log).size(), wholeRun().size());
  EXPECT_EQ(toLog(fromLog(log)), log);
  const auto diagnosis = std::get<StepDiagnosis>(fromLog(log)[5].body);
  EXPECT_EQ(diagnosis.action, "Replace it.");
  EXPECT_EQ(diagnosis.pass, 2);
  EXPECT_FALSE(std::get<StepEnded>(fromLog(log)[6].body).isAborted);
  EXPECT_TRUE(std::get<StepEnded>(fromLog(log)[8].body).isAborted);
}

TEST(Log, is_none_where_no_line_is_of_one) {
  for (const char* const text :
       {"{\"a\":1}", "[1,2]\n{}\n", "7\n", "{\"packages\":[]}\n", "{\n  \"a\": [\n  ]\n}\n"}) {
    EXPECT_THAT([&] { fromLog(text); }, ThrowsMessage<std::runtime_error>(
                                            "log: is no log; run writes one with -o jsonl=FILE"))
        << text;
  }
}

TEST(Log, is_read_where_other_lines_stand_in_it) {
  const std::string log = toLog(wholeRun());
  EXPECT_EQ(toLog(fromLog("{\"a\":1}\n" + log + "{\"b\":2}\n")), log);
}

TEST(Log, reads_the_coverage_back_as_it_was_written) {
  const auto time = std::chrono::system_clock::time_point() + std::chrono::milliseconds(1500);
  const RunCoverage written{kCoverageStep, {{"node 0", 1e9, 8e9}, {"sda", 2e6, 0}}, 3, 8, 12.25};
  const std::string log = toLog({{time, written}});
  EXPECT_THAT(log, HasSubstr(R"({"name":"coverage","content":{"devices":[{"device":"node 0",)"));
  const std::vector<RunEvent> events = fromLog(log);
  ASSERT_EQ(events.size(), 1U);
  const auto& read = std::get<RunCoverage>(events[0].body);
  ASSERT_EQ(read.devices.size(), 2U);
  EXPECT_EQ(read.devices[0].device, "node 0");
  EXPECT_EQ(read.devices[0].totalBytes, 8e9);
  EXPECT_EQ(toLog(events), log);
  EXPECT_EQ(Coverage(read).describe(), Coverage(written).describe());
  EXPECT_EQ(Coverage(written).describe(),
            "954 of 7630 MiB (12 %) of node 0, 2 MiB of sda, 3 more, 8 cores, 12.2 s of tests");
}

TEST(Log, takes_a_coverage_of_any_hand) {
  const std::string line =
      R"({"testStepArtifact":{"testStepId":"coverage","extension":{"name":"coverage","content":)"
      R"({"devices":[{"device":"x","coveredBytes":-5}],"furtherDevices":1e300,"seconds":"?"}}},)"
      R"("sequenceNumber":0,"timestamp":"1970-01-01T00:00:01Z"})";
  const std::vector<RunEvent> events = fromLog(line);
  ASSERT_EQ(events.size(), 1U);
  const auto& read = std::get<RunCoverage>(events[0].body);
  EXPECT_EQ(read.devices.at(0).coveredBytes, 0);
  EXPECT_EQ(read.furtherDevices, 1'000'000'000U);
  EXPECT_EQ(read.seconds, 0);
}

TEST(Log, reads_series_back_as_they_were_written) {
  const auto time = std::chrono::system_clock::time_point() + std::chrono::milliseconds(1500);
  const std::string log = toLog({
      {time, SeriesStarted{kMachineStep, "1", "coretemp/0/Core 3", "°C", 100.0}},
      {time, SeriesElement{kMachineStep, "1", 0, 63.5, time}},
      {time, SeriesStarted{kMachineStep, "2", "fan", "", std::nullopt}},
      {time, SeriesEnded{kMachineStep, "1", 1}},
  });
  EXPECT_THAT(log, HasSubstr(R"("validators":[{"name":"limit","type":"LESS_THAN_OR_EQUAL")"));
  EXPECT_THAT(log, HasSubstr(R"("value":63.5,"timestamp":"1970-01-01T00:00:01.500Z")"));
  const std::vector<RunEvent> events = fromLog(log);
  ASSERT_EQ(events.size(), 4U);
  EXPECT_EQ(std::get<SeriesStarted>(events[0].body).most, 100.0);
  EXPECT_EQ(std::get<SeriesElement>(events[1].body).time, time);
  EXPECT_EQ(std::get<SeriesStarted>(events[2].body).most, std::nullopt);
  EXPECT_EQ(std::get<SeriesEnded>(events[3].body).count, 1U);
  EXPECT_EQ(toLog(events), log);
}

TEST(Log, passes_over_elements_that_are_no_numbers) {
  const std::string line =
      R"({"testStepArtifact":{"testStepId":"1","measurementSeriesElement":{"index":0,)"
      R"("measurementSeriesId":"1","value":"on","timestamp":"1970-01-01T00:00:01.500Z"}},)"
      R"("sequenceNumber":0,"timestamp":"1970-01-01T00:00:01.500Z"})";
  EXPECT_TRUE(fromLog(line + "\n").empty());
}

TEST(Log, stays_valid_whatever_bytes_a_package_writes) {
  const auto time = std::chrono::system_clock::time_point();
  const std::string log = toLog({{time, RunMessage{Severity::Error, "\xff\xfe \x01 end"}}});
  EXPECT_THAT(std::get<RunMessage>(fromLog(log).at(0).body).text, HasSubstr("end"));
}

TEST(Log, reads_lines_that_are_longer_than_a_block) {
  const auto time = std::chrono::system_clock::time_point();
  std::vector<RunEvent> told;
  for (std::size_t length = 65'300; length < 65'700; length += 50) {
    told.push_back({time, RunMessage{Severity::Information, std::string(length, 'x')}});
    told.push_back({time, RunMessage{Severity::Information, "short"}});
  }
  const std::string log = toLog(told);
  EXPECT_EQ(toLog(fromLog(log)), log);
}

TEST(Log, calls_a_step_aborted_once_and_only_while_it_is_under_way) {
  const auto time = std::chrono::system_clock::time_point();
  const StepStarted begin{"1", "P", "Disk", "Read", "", 1};
  const std::string aborted = toLog({{time, StepEnded{"1", RunStatus::Skip, true}}});
  EXPECT_FALSE(std::get<StepEnded>(fromLog(aborted).at(0).body).isAborted);
  const auto twice = fromLog(toLog({{time, begin},
                                    {time, StepEnded{"1", RunStatus::Skip, true}},
                                    {time, begin},
                                    {time, StepEnded{"1", RunStatus::Skip}}}));
  EXPECT_TRUE(std::get<StepEnded>(twice.at(1).body).isAborted);
  EXPECT_FALSE(std::get<StepEnded>(twice.at(3).body).isAborted);
}

TEST(Log, may_break_off_in_its_last_line) {
  const std::string log = toLog(wholeRun());
  const auto events = fromLog(log.substr(0, log.size() - 20));
  EXPECT_EQ(events.size(), wholeRun().size() - 1);
}

/// How many events there are in each run of a log.
std::vector<std::size_t> runsOf(const std::string& log) {
  std::istringstream in(log);
  JsonlReader reader(in, "log");
  std::vector<std::size_t> runs;
  std::size_t count = 0;
  while (reader.readRun([&](const RunEvent&) { ++count; })) {
    runs.push_back(std::exchange(count, 0));
  }
  return runs;
}

// The first of them has no end, or no beginning, which the other one would hide.
TEST(Log, holds_another_run_where_one_starts_without_a_schema) {
  const auto time = std::chrono::system_clock::time_point();
  std::string second = toLog({{time, RunStarted{}}, {time, endOf(RunVerdict::Passed)}});
  second.erase(0, second.find('\n') + 1);
  EXPECT_EQ(runsOf(toLog({{time, RunStarted{}}}) + second), (std::vector<std::size_t>{1, 2}));
  EXPECT_EQ(runsOf(toLog({{time, RunMessage{}}}) + second), (std::vector<std::size_t>{1, 2}));
  EXPECT_EQ(runsOf(toLog({}) + second), (std::vector<std::size_t>{2}));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
