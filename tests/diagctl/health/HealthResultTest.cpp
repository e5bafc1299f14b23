// What a check came to, as it is told and as it is kept.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "diagctl/health/HealthResult.h"
#include "diagctl/health/HealthText.h"
#include "diagctl/terminal/Printable.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Le;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

HealthFinding findingOn(const std::string& device) {
  return {HealthFinding::Kind::Failure,
          "Memory",
          "Walking ones",
          device,
          "DIMM_A1",
          "Bit 7 stays 0.",
          "Replace it."};
}

HealthAccount failure(std::size_t findings = 1) {
  HealthAccount account;
  account.code = ExitCode::kHardwareFailure;
  account.summary.passed = 3;
  account.summary.failed = findings;
  account.findings.assign(findings, findingOn("Node 0"));
  return account;
}

HealthAccount passes(std::size_t warned = 0) {
  HealthAccount account;
  account.code = ExitCode::kPassed;
  account.summary.passed = 3;
  account.summary.warned = warned;
  return account;
}

TEST(HealthLine, names_test_device_and_place_and_how_much_more_there_is) {
  EXPECT_EQ(lineOf(failure(3), HealthStyle::Plain, ""),
            "FAIL Memory Walking ones Node 0 DIMM_A1: Bit 7 stays 0 (+2)");
  EXPECT_EQ(lineOf(failure(1), HealthStyle::Nagios, "3 h ago"),
            "CRITICAL - Memory Walking ones Node 0 DIMM_A1: Bit 7 stays 0, 3 h ago");
  EXPECT_EQ(lineOf(passes(), HealthStyle::Npd, ""), "OK 3 passed");
  EXPECT_EQ(lineOf(passes(1), HealthStyle::Plain, ""), "WARN 3 passed, 1 with a warning");
  EXPECT_EQ(lineOf({}, HealthStyle::Plain, ""), "UNKNOWN nothing ran");
}

TEST(HealthLine, keeps_to_eighty_bytes_and_cuts_no_character_and_not_its_end) {
  HealthAccount account = failure(HealthAccount::kMostFindings);
  account.further = 980;
  for (std::size_t length = 0; length < 120; ++length) {
    for (const std::string letter : {"a", "\xc3\xa4", "\xf0\x9f\x94\xa5", "\x1b"}) {
      std::string name;
      for (std::size_t i = 0; i < length; ++i) {
        name += letter;
      }
      account.findings.front() = findingOn(name);
      for (const HealthStyle style : {HealthStyle::Plain, HealthStyle::Nagios}) {
        const std::string line = lineOf(account, style, "59 min ago");
        EXPECT_THAT(line, AllOf(SizeIs(Le(kLongestHealthLine)), EndsWith(" (+999), 59 min ago")));
        EXPECT_EQ(toUtf8(line), line);
      }
    }
  }
}

TEST(HealthLine, is_one_line_in_which_nothing_begins_figures) {
  HealthAccount account = failure();
  account.findings.front().test = "a | b\nforged\x1b[2J";
  for (const std::string& text :
       {lineOf(account, HealthStyle::Nagios, ""), reasonOf(account, 200)}) {
    EXPECT_THAT(text, AllOf(Not(HasSubstr("|")), Not(HasSubstr("\n")), Not(HasSubstr("\x1b"))));
  }
}

TEST(HealthReason, names_what_has_failed_within_its_bounds) {
  EXPECT_EQ(reasonOf(failure(2), 200), "FAILED Walking ones on Node 0 (DIMM_A1) (+1)");
  const std::string cut = reasonOf(failure(2), 24);
  EXPECT_THAT(cut, AllOf(SizeIs(24), StartsWith("FAILED Walking"), EndsWith(".. (+1)")));
}

TEST(HealthFigures, are_those_of_a_monitoring_plug_in) {
  static const std::regex kFigures(
      "('[a-z]+'=[0-9.]+(s|%|B|c)?(;[0-9.]*){4}( |$))+");  // label=value[UOM];warn;crit;min;max
  const std::string figures = performanceOf(failure(2), 12.3456, 60);
  EXPECT_TRUE(std::regex_match(figures, kFigures)) << figures;
  EXPECT_THAT(figures, AllOf(HasSubstr("'duration'=12.346s;"), HasSubstr("'age'=60s;"),
                             HasSubstr("'failed'=2;")));
}

TEST(HealthStyles, take_a_node_from_nobody_but_for_a_failure_of_its_hardware) {
  HealthAccount account;
  for (const int code : {ExitCode::kPassed, ExitCode::kNoVerdict, ExitCode::kNothingRan}) {
    account.code = code;
    EXPECT_EQ(exitCodeFor(account, HealthStyle::Slurm), 0) << code;
    EXPECT_EQ(exitCodeFor(account, HealthStyle::Nhc), 0) << code;
    EXPECT_EQ(exitCodeFor(account, HealthStyle::Plain), code);
  }
  EXPECT_EQ(exitCodeFor(failure(), HealthStyle::Slurm), 1);
  EXPECT_EQ(exitCodeFor(failure(), HealthStyle::Nhc), 1);
}

TEST(HealthStyles, have_the_codes_of_their_monitors) {
  HealthAccount unknown;
  EXPECT_EQ(exitCodeFor(passes(), HealthStyle::Nagios), 0);
  EXPECT_EQ(exitCodeFor(passes(1), HealthStyle::Nagios), 1);
  EXPECT_EQ(exitCodeFor(failure(), HealthStyle::Nagios), 2);
  EXPECT_EQ(exitCodeFor(unknown, HealthStyle::Nagios), 3);
  EXPECT_EQ(exitCodeFor(passes(1), HealthStyle::Npd), 0);
  EXPECT_EQ(exitCodeFor(failure(), HealthStyle::Npd), 1);
  EXPECT_EQ(exitCodeFor(unknown, HealthStyle::Npd), 2);
}

TEST(ShortTimes, are_in_the_unit_of_which_there_are_at_least_two) {
  using namespace std::chrono;
  EXPECT_EQ(shortTime(seconds(-3)), "0 s");
  EXPECT_EQ(shortTime(seconds(119)), "119 s");
  EXPECT_EQ(shortTime(minutes(2)), "2 min");
  EXPECT_EQ(shortTime(hours(2)), "2 h");
  EXPECT_EQ(shortTime(hours(47)), "47 h");
  EXPECT_EQ(shortTime(hours(49)), "2 d");
}

/// A run that was judged, in which a disk vanished.
HealthAccount accountOfRun(VanishedAs vanished) {
  RunRecord record;
  DeviceLocations locations;
  RunStarted start;
  start.hardware = {{"1-1", "Disk on a shelf", "pci0/slot7"}};
  locations.learn(start);
  const VanishedJudge judge(vanished);
  for (RunEvent event : wholeRun()) {
    if (auto* const trouble = std::get_if<StepTrouble>(&event.body)) {
      trouble->symptom = "device-vanished";
    } else if (std::holds_alternative<StepDiagnosis>(event.body)) {
      continue;
    }
    record.handle({event.time, judge.judge(event.body, record)});
  }
  return accountOf(record, locations);
}

TEST(HealthAccounts, take_a_vanished_device_for_what_it_is_to_the_reader) {
  EXPECT_EQ(vanishedFor(HealthStyle::Nagios), VanishedAs::Failure);
  EXPECT_EQ(vanishedFor(HealthStyle::Npd), VanishedAs::Failure);
  EXPECT_EQ(vanishedFor(HealthStyle::Slurm), VanishedAs::Trouble);
  EXPECT_EQ(vanishedFor(HealthStyle::Nhc), VanishedAs::Trouble);
  EXPECT_EQ(accountOfRun(VanishedAs::Failure).code, ExitCode::kHardwareFailure);
  EXPECT_EQ(accountOfRun(VanishedAs::Trouble).code, ExitCode::kNoVerdict);
}

TEST(HealthAccounts, tell_where_a_device_sits_unless_its_name_says_it) {
  const HealthAccount account = accountOfRun(VanishedAs::Failure);
  ASSERT_THAT(account.findings, Not(IsEmpty()));
  EXPECT_EQ(account.findings.front().location, "slot7");
  EXPECT_EQ(account.findings.front().action, "Run it again.") << "of its own finding";
}

TEST(DeviceLocations, are_those_of_the_hardware_or_else_of_the_only_device_of_the_name) {
  RunStarted start;
  start.hardware = {{"1-1", "Disk", "pci0/a"}, {"1-2", "Disk", "pci0/b"}, {"2-1", "Fan", "box/c"}};
  DeviceLocations locations;
  locations.learn(start);
  EXPECT_EQ(locations.of({"1", "P", "Disk", "Read", "1-2", 1}), "pci0/b");
  EXPECT_EQ(locations.of({"1", "P", "Fan", "Read", "", 1}), "box/c");
  EXPECT_EQ(locations.of({"1", "P", "Disk", "Read", "", 1}), "") << "it may be either";
  EXPECT_EQ(locations.of({"1", "P", "Lamp", "Read", "", 1}), "");
}

HealthResult sampleResult() {
  return {"machine",
          "scope \xff",
          std::chrono::system_clock::time_point(std::chrono::milliseconds(1234567890123)),
          1.5,
          passes(2),
          failure(30)};
}

TEST(KeptResults, are_read_as_they_were_written) {
  HealthResult result = sampleResult();
  result.scope = "\x7f \xe2\x80\xae \x1b";
  const HealthResult read = healthResultFrom(toText(result));
  EXPECT_EQ(read.machineId, result.machineId);
  EXPECT_EQ(read.scope, result.scope);
  EXPECT_EQ(read.ended, result.ended);
  EXPECT_EQ(read.seconds, result.seconds);
  EXPECT_EQ(read.whereVanishedIsTrouble.summary.warned, 2U);
  const HealthAccount& account = read.account(VanishedAs::Failure);
  EXPECT_EQ(account.code, ExitCode::kHardwareFailure);
  EXPECT_EQ(account.findings.size(), HealthAccount::kMostFindings);
  EXPECT_EQ(detailsOf(account), detailsOf(healthResultFrom(toText(read)).whereVanishedFails));
  EXPECT_EQ(account.findings.front().location, "DIMM_A1");
}

TEST(KeptResults, are_refused_when_they_are_cut_anywhere) {
  HealthResult result = sampleResult();
  result.whereVanishedFails = failure(1);
  const std::string text = toText(result);
  for (std::size_t length = 0; length + 2 < text.size(); ++length) {
    EXPECT_THROW(healthResultFrom(text.substr(0, length)), std::runtime_error) << length;
  }
}

TEST(KeptResults, are_refused_by_the_key_that_is_not_as_it_is_written) {
  const std::string text = toText(sampleResult());
  const auto reasonWith = [&](const std::string& from, const std::string& to) {
    std::string changed = text;
    const std::size_t place = changed.find(from);
    EXPECT_NE(place, std::string::npos) << from;
    try {
      healthResultFrom(changed.replace(place, from.size(), to));
      return std::string("taken");
    } catch (const std::runtime_error& fault) {
      return std::string(fault.what());
    }
  };
  EXPECT_THAT(reasonWith("\"version\": 1", "\"version\": 2"), HasSubstr("another version"));
  EXPECT_THAT(reasonWith("\"machine\": \"machine\"", "\"machine\": 7"), HasSubstr("'machine'"));
  EXPECT_THAT(reasonWith("\"passed\": 3", "\"passed\": -3"), HasSubstr("'passed'"));
  EXPECT_THAT(reasonWith("\"code\": 0", "\"code\": 4"), HasSubstr("'code'"));
  EXPECT_THAT(reasonWith("\"code\": 0", "\"code\": \"0\""), HasSubstr("'code'"));
  EXPECT_THAT(reasonWith("\"code\": 0", "\"code\": 4294967296"), HasSubstr("'code'"));
  EXPECT_THAT(reasonWith("\"endedMilliseconds\": ", "\"endedMilliseconds\": 999999"),
              HasSubstr("'endedMilliseconds'"));
  EXPECT_THAT(reasonWith("\"kind\": \"failure\"", "\"kind\": \"joy\""), HasSubstr("'kind'"));
  EXPECT_THAT(reasonWith("\"seconds\": 1.5", "\"second\": 1.5"), HasSubstr("'seconds'"));
  EXPECT_THROW(healthResultFrom("[]"), std::runtime_error);
  EXPECT_THROW(healthResultFrom(std::string(100'000, '[')), std::runtime_error);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
