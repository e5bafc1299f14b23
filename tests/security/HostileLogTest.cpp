// A log may come from anywhere: whatever it holds, a report of it ends in order and in little
// memory.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/support/Sanitized.h"

namespace TarvexDiags::SecurityTest {
namespace {

using DiagctlTest::contentsOf;
using DiagctlTest::diagctl;
using DiagctlTest::Outcome;
using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr const char* kTime = R"("timestamp":"2026-11-21T03:04:05.678Z")";

std::string stepLine(const std::string& step, const std::string& content) {
  return R"({"testStepArtifact":{"testStepId":")" + step + R"(",)" + content + "}," + kTime + "}\n";
}

std::string beginOf(const std::string& step) {
  return stepLine(step, R"("testStepStart":{"name":"Package: Test on Disk"})");
}

std::string repeated(const std::string& text, std::size_t times) {
  std::string all;
  all.reserve(text.size() * times);
  for (std::size_t i = 0; i < times; ++i) {
    all += text;
  }
  return all;
}

class HostileLog : public DiagctlTest::Diagctl {
 protected:
  /// Every report at once of a log.
  Outcome reportOf(const std::string& text) {
    return reportOf([&](std::ostream& log) { log << text; });
  }

  Outcome reportOf(const std::function<void(std::ostream&)>& write) {
    const std::string log = place.path("run.jsonl");
    {
      std::ofstream file(log);
      write(file);
    }
    return diagctl({"report", log, "-o", "junit=" + place.path("junit"), "-o",
                    "tap=" + place.path("tap"), "-o", "jsonl=" + place.path("jsonl")});
  }

  void expectRefusal(const std::string& line, const std::string& reason) {
    const Outcome outcome = reportOf(beginOf("1") + line);
    EXPECT_EQ(outcome.exitCode, DiagctlTest::kNoVerdict) << line.substr(0, 200);
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("run.jsonl:2: "), HasSubstr(reason)))
        << line.substr(0, 200);
  }
};

TEST_F(HostileLog, is_nested_no_deeper_than_32) {
  const auto nested = [](std::size_t depth) {
    return stepLine("1", R"("measurement":{"name":"n","value":)" + repeated("[", depth - 3) +
                             repeated("]", depth - 3) + "}");
  };
  EXPECT_EQ(reportOf(beginOf("1") + nested(32)).err, "");
  expectRefusal(nested(33), "more than 32 values within each other");
  expectRefusal(nested(200'000), "more than 32 values within each other");
  expectRefusal(repeated("[", 200'000), "more than 32 values within each other");
  expectRefusal(repeated(R"({"a":)", 200'000), "more than 32 values within each other");
}

TEST_F(HostileLog, has_times_between_1970_and_2262) {
  const auto at = [](const std::string& time) {
    return R"({"testRunArtifact":{"log":{"severity":"INFO","message":"m"}},"timestamp":")" + time +
           "\"}\n";
  };
  for (const char* const sound : {"1970-01-01T00:00:00Z", "1970-01-01T01:00:00.5+01:00",
                                  "2262-04-11T23:47:14.999999999Z", "2026-11-21T03:04:05"}) {
    EXPECT_EQ(reportOf(at(sound)).err, "") << sound;
  }
  for (const char* const beyond : {"1969-12-31T23:59:59Z", "1970-01-01T00:00:00+01:00",
                                   "2262-04-11T23:47:17Z", "9999-12-31T23:59:59Z"}) {
    expectRefusal(at(beyond), "is not between 1970 and 2262");
  }
  for (const char* const none :
       {"", "yesterday", "99999-01-01T00:00:00Z", "2026-11-21T03:04:05.1e300Z",
        "2026-11-21T03:04:05.Z", "2026-11-21T03:04:05+1:0", "2026-11-21T03:04:05Zulu"}) {
    expectRefusal(at(none), "is no time stamp");
  }
}

TEST_F(HostileLog, has_numbers_in_their_range) {
  const auto pass = [](const std::string& number) {
    return stepLine("1", R"("extension":{"name":"pass","content":{"number":)" + number + "}}");
  };
  const auto passes = [](const std::string& number) {
    return R"({"testRunArtifact":{"testRunStart":{"parameters":{"passes":")" + number +
           R"("},"dutInfo":{}}},)" + kTime + "}\n";
  };
  EXPECT_EQ(reportOf(beginOf("1") + pass("1000000000") + passes("1000000000")).err, "");
  for (const char* const number :
       {"-1", "1000000001", "99999999999999999999", "18446744073709551615", "1e300", "1.5"}) {
    expectRefusal(pass(number), "is not between 0 and 1000000000");
    expectRefusal(passes(number), "is not between 1 and 1000000000");
  }
  EXPECT_EQ(reportOf(beginOf("1") + pass("0")).err, "") << "of what judges no pass";
  expectRefusal(passes("0"), "is not between 1 and 1000000000");
  expectRefusal(stepLine("1", R"("measurement":{"name":"n","value":1e999})"), "1e999");
}

TEST_F(HostileLog, has_lines_of_a_bounded_size) {
  expectRefusal(
      stepLine("1", R"("log":{"severity":"INFO","message":")" + repeated("x", 3 << 20U) + "\"}"),
      "the line is longer than");
  expectRefusal(repeated("x", 3 << 20U), "the line is longer than");
  expectRefusal(
      stepLine("1", R"("measurement":{"name":"n","value":[0)" + repeated(",{}", 30'000) + "]}"),
      "more than 50000 values in a line");
}

std::string finding(const std::string& step, const std::string& severity, const std::string& text) {
  return stepLine(step, R"("log":{"severity":")" + severity + R"(","message":")" + text + "\"}");
}

std::string endOf(const std::string& step) {
  return stepLine(step, R"("testStepEnd":{"status":"COMPLETE"})");
}

std::string passOf(const std::string& step) {
  return stepLine(step, R"("diagnosis":{"verdict":"passed","type":"PASS"})");
}

std::string failureOf(const std::string& step) {
  return stepLine(step, R"("diagnosis":{"verdict":"broken","type":"FAIL","message":"It broke."})");
}

const std::string kRunEnd =
    std::string(R"({"testRunArtifact":{"testRunEnd":{"status":"COMPLETE","result":"PASS"}},)") +
    kTime + "}\n";

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST_F(HostileLog, of_a_large_machine_is_told_step_by_step) {
  constexpr int kSteps = 384 * 13;
  const Outcome outcome = reportOf([&](std::ostream& log) {
    for (int number = 1; number <= kSteps; ++number) {
      const std::string step = std::to_string(number);
      log << beginOf(step) << finding(step, "WARNING", "Core " + step + " was throttled meanwhile.")
          << passOf(step) << endOf(step);
    }
    log << kRunEnd;
  });
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kPassed);
  EXPECT_GE(countOf(outcome.out, "was throttled meanwhile."), kSteps) << "and some of them again";
  EXPECT_EQ(countOf(contentsOf(place.path("junit")), "was throttled meanwhile."), kSteps);
  EXPECT_EQ(countOf(contentsOf(place.path("tap")), "was throttled meanwhile."), kSteps);
}

TEST_F(HostileLog, of_many_findings_keeps_its_verdict_and_tells_how_many_more) {
  const Outcome outcome = reportOf([&](std::ostream& log) {
    log << beginOf("1");
    for (int number = 1; number <= 10'000; ++number) {
      log << finding("1", "ERROR", "fault " + std::to_string(number));
    }
    log << failureOf("1") << endOf("1") << kRunEnd;
  });
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kHardwareFailure);
  const std::string junit = contentsOf(place.path("junit"));
  EXPECT_THAT(junit, HasSubstr("message=\"It broke. (and 10000 more)\""));
  for (const std::string& report : {outcome.out, junit, contentsOf(place.path("tap"))}) {
    EXPECT_THAT(report, AllOf(HasSubstr("fault 200"), HasSubstr("and 9801 more")));
  }
}

TEST_F(HostileLog, of_more_steps_than_a_report_holds_keeps_its_verdict) {
  const std::string words = repeated("words ", 200);
  const Outcome outcome = reportOf([&](std::ostream& log) {
    for (int number = 1; number <= 4'500; ++number) {
      const std::string step = std::to_string(number);
      log << stepLine(step, R"("testStepStart":{"name":"Package: Test on )" + words + "\"}")
          << (number < 4'500 ? "" : failureOf(step)) << endOf(step);
    }
    log << kRunEnd;
  });
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kHardwareFailure);
  EXPECT_THAT(outcome.out, HasSubstr("4499 passed, 1 failed"));
  EXPECT_EQ(countOf(contentsOf(place.path("tap")), "ok "), 4'500);
  const std::string junit = contentsOf(place.path("junit"));
  EXPECT_THAT(junit, AllOf(HasSubstr(R"(<testsuite name="further tests" tests=")"),
                           HasSubstr(R"(message="It broke.")")));
  EXPECT_LT(countOf(junit, "<testcase"), 4'500);
}

// What is under way must be held, to be closed.
TEST_F(HostileLog, of_more_steps_under_way_than_a_report_holds_is_refused) {
  const std::string words = repeated("words ", 700);
  const Outcome outcome = reportOf([&](std::ostream& log) {
    for (int number = 1; number <= 4'000; ++number) {
      log << stepLine(std::to_string(number),
                      R"("testStepStart":{"name":"Package: Test on )" + words + "\"}");
    }
  });
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kNoVerdict);
  EXPECT_THAT(outcome.err, HasSubstr("more tests are under way at once than a report can hold"));
}

TEST_F(HostileLog, that_ends_its_run_before_a_step_has_the_step_closed_first) {
  const Outcome outcome = reportOf(beginOf("1") + kRunEnd);
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kNoVerdict);
  const std::string log = contentsOf(place.path("jsonl"));
  EXPECT_THAT(log, HasSubstr("testStepEnd"));
  EXPECT_LT(log.find("testStepEnd"), log.find("testRunEnd"));
}

TEST_F(HostileLog, that_is_a_directory_is_named) {
  const std::string directory = place.path("packages");
  const Outcome outcome = diagctl({"report", directory});
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kNoVerdict);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr(directory + ": Is a directory"),
                                 ::testing::Not(HasSubstr("basic_filebuf"))));
}

TEST_F(HostileLog, may_be_long_where_a_report_holds_little_of_it) {
  const std::string news = repeated("It goes on. ", 350);
  const Outcome outcome = reportOf([&](std::ostream& log) {
    log << beginOf("1");
    for (int pass = 1; pass <= 2000; ++pass) {
      log << stepLine("1", R"("log":{"severity":"INFO","message":"pass )" + std::to_string(pass) +
                               ": " + news + "\"}")
          << stepLine("1", R"("diagnosis":{"verdict":"passed","type":"PASS"})");
    }
    log << stepLine("1", R"("testStepEnd":{"status":"COMPLETE"})");
  });
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, HasSubstr("2000 of 1 pass "));
}

/// The most memory that the children of this process have taken, in bytes.
std::size_t mostTaken() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return static_cast<std::size_t>(usage.ru_maxrss) << 10U;
}

TEST_F(HostileLog, costs_64_mebibytes_at_most_beyond_its_longest_line) {
  if (TestSupport::kIsSanitized) {
    GTEST_SKIP() << "a sanitizer takes memory of its own";
  }
  const auto expectModest = [&](const std::function<void(std::ostream&)>& write) {
    EXPECT_EQ(reportOf(write).err, "");
    EXPECT_LE(mostTaken(), (64UL + 2) << 20U);
  };
  const std::string value = repeated(",{}", 24'000);
  const std::string longest = repeated("y", (2UL << 20U) - 200);
  expectModest([&](std::ostream& log) {  // the most that may be under way
    for (int step = 0; step < 5'000; ++step) {
      log << beginOf(std::to_string(step));
    }
    log << stepLine("1", R"("measurement":{"name":"n","value":[0)" + value + "]}")
        << finding("1", "ERROR", longest);
  });
  expectModest([&](std::ostream& log) {  // findings, long and short, of many steps
    for (int step = 1; step <= 100; ++step) {
      const std::string id = std::to_string(step);
      log << beginOf(id) << (step <= 3 ? finding(id, "ERROR", longest) : "");
      for (int number = 0; number < 65; ++number) {
        log << finding(id, "ERROR", std::to_string(number) + repeated("z", 1'000));
      }
    }
  });
  expectModest([&](std::ostream& log) {  // ends before their time, of steps that never began
    for (int number = 0; number < 32; ++number) {
      log << stepLine(std::to_string(number) + longest,
                      R"("extension":{"name":"aborted","content":{}})");
    }
  });
}

TEST_F(HostileLog, that_ends_within_a_step_closes_it_as_cut_off) {
  const Outcome outcome =
      reportOf(beginOf("1") + stepLine("1", R"("log":{"severity":"INFO","message":"it ran"})"));
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kNoVerdict);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("ERROR    Package: Test on Disk"), HasSubstr("cut off")));
  EXPECT_THAT(contentsOf(place.path("junit")), HasSubstr("cut off"));
  EXPECT_THAT(contentsOf(place.path("tap")), HasSubstr("not ok 1"));
  EXPECT_THAT(contentsOf(place.path("jsonl")), HasSubstr(R"("testStepEnd":{"status":"ERROR"})"));
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
