// A library that is cut short while it is in use costs the run its verdict, and nobody its log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::SecurityTest {
namespace {

using DiagctlTest::contentsOf;
using DiagctlTest::diagctl;
using DiagctlTest::Outcome;
using DiagctlTest::Program;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class CutShort : public DiagctlTest::Diagctl {
 protected:
  CutShort() { addSlowPackage(); }

  /// A run whose package loses its library.
  Outcome cutRun(std::vector<std::string> options = {}) {
    options.insert(options.begin(), {"run", "-q", "-o", "jsonl=" + m_log});
    Program program(withControlFile(options));
    EXPECT_TRUE(TestSupport::eventually(
        [&] { return contentsOf(m_log).find("testStepStart") != std::string::npos; }));
    std::filesystem::resize_file(place.path("packages/libSLOW.so"), 0);
    return program.finish();
  }

  const std::string m_log = place.path("run.jsonl");
};

TEST_F(CutShort, libraries_end_a_run_without_a_verdict) {
  const Outcome outcome = cutRun();
  EXPECT_EQ(outcome.exitCode, DiagctlTest::kNoVerdict) << outcome.err;
  EXPECT_THAT(outcome.err, StartsWith("diagctl: a library or another file in use was cut short"));
}

TEST_F(CutShort, libraries_leave_a_log_whose_open_steps_are_cut_off) {
  cutRun();
  const auto lines = DiagctlTest::parseLines(contentsOf(m_log));
  EXPECT_THAT(DiagctlTest::artifacts(lines, "testStepEnd"), IsEmpty());
  const Outcome report = diagctl({"report", m_log});
  EXPECT_EQ(report.exitCode, DiagctlTest::kNoVerdict);
  EXPECT_THAT(report.out, AllOf(HasSubstr("ERROR    Package SLOW: Long on One"),
                                HasSubstr("It was cut off"), HasSubstr("The run was cut short.")));
}

TEST_F(CutShort, libraries_are_told_to_a_monitor_as_unknown) {
  const Outcome outcome = cutRun({"--exit-style", "nagios"});
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_THAT(outcome.out, StartsWith("DIAGCTL UNKNOWN: "));
}

}  // namespace
}  // namespace TarvexDiags::SecurityTest
