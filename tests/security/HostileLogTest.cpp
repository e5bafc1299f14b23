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
       {"0", "-1", "1000000001", "99999999999999999999", "18446744073709551615", "1e300", "1.5"}) {
    expectRefusal(pass(number), "is not between 1 and 1000000000");
    expectRefusal(passes(number), "is not between 1 and 1000000000");
  }
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

TEST_F(HostileLog, tells_no_more_of_a_run_than_a_report_can_hold) {
  const std::string words = repeated("words ", 700);
  const auto expectTooMuch =
      [&](const std::function<void(std::ostream&, const std::string&)>& tell) {
        const Outcome outcome = reportOf([&](std::ostream& log) {
          log << beginOf("1");
          for (int number = 2; number < 5000; ++number) {
            tell(log, std::to_string(number));
          }
        });
        EXPECT_EQ(outcome.exitCode, DiagctlTest::kNoVerdict);
        EXPECT_THAT(outcome.err, HasSubstr("tells more than a report can hold"));
      };
  const auto tellStep = [&](std::ostream& log, const std::string& number) {
    log << stepLine(number, R"("testStepStart":{"name":"Package: Test on )" + words + "\"}");
  };
  expectTooMuch(tellStep);
  expectTooMuch([&](std::ostream& log, const std::string& number) {
    log << stepLine("1", R"("log":{"severity":"ERROR","message":")" + number + words + "\"}");
  });
  // Runs that never begin are one run to those who tell of it.
  expectTooMuch([&](std::ostream& log, const std::string& number) {
    log << R"({"schemaVersion":{"major":2,"minor":0},)" << kTime << "}\n";
    tellStep(log, number);
  });
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
  EXPECT_THAT(outcome.out, HasSubstr("2000 of 1 passes"));
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
  // The most that passes: findings and steps up to the limit, and values in a line.
  const std::string value = repeated(",{}", 24'000);
  reportOf([&](std::ostream& log) {
    for (int step = 0; step < 7'500; ++step) {
      log << beginOf(std::to_string(step));
    }
    log << stepLine("1", R"("measurement":{"name":"n","value":[0)" + value + "]}");
    log << stepLine("1", R"("log":{"severity":"ERROR","message":")" + repeated("y", 2 << 20U));
  });
  EXPECT_LE(mostTaken(), (64UL + 2) << 20U);
  reportOf([&](std::ostream& log) {
    log << beginOf("1");
    for (int finding = 0; finding < 3; ++finding) {
      log << stepLine("1", R"("log":{"severity":"ERROR","message":")" + std::to_string(finding) +
                               repeated("y", (2 << 20U) - 200) + "\"}");
    }
  });
  EXPECT_LE(mostTaken(), (64UL + 2) << 20U);
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
