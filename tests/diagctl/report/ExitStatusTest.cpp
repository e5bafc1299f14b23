// What the program ends with.

#include <gtest/gtest.h>

#include "diagctl/report/ExitStatus.h"

namespace TarvexDiags::FrontEnd {
namespace {

struct ExitCase {
  const char* name;
  RunSummary summary;
  RunConditions conditions;
  int code;
};

class ExitCodes : public ::testing::TestWithParam<ExitCase> {};

TEST_P(ExitCodes, follow_from_what_became_of_the_tests) {
  EXPECT_EQ(exitCodeOf(GetParam().summary, GetParam().conditions), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    Each, ExitCodes,
    ::testing::Values(
        ExitCase{"passed", {.passed = 2, .skipped = 1}, {}, ExitCode::kPassed},
        ExitCase{"failure_wins", {.failed = 1, .troubled = 1}, {}, ExitCode::kHardwareFailure},
        ExitCase{"trouble", {.passed = 1, .troubled = 1}, {}, ExitCode::kNoVerdict},
        ExitCase{"aborted", {.passed = 1, .aborted = 1}, {}, ExitCode::kNoVerdict},
        ExitCase{"package_lost", {.passed = 1}, {.failedPackages = 1}, ExitCode::kNoVerdict},
        ExitCase{"warned", {.warned = 1}, {}, ExitCode::kPassed},
        ExitCase{"warned_strictly", {.warned = 1}, {.isStrict = true}, ExitCode::kNoVerdict},
        ExitCase{"all_skipped", {.skipped = 3}, {}, ExitCode::kNothingRan},
        ExitCase{"skip_fails",
                 {.passed = 1, .skipped = 1},
                 {.failOnSkip = FailOnSkip::Everything},
                 ExitCode::kNoVerdict},
        ExitCase{"all_skips_fail",
                 {.skipped = 3},
                 {.failOnSkip = FailOnSkip::Everything},
                 ExitCode::kNoVerdict},
        ExitCase{"no_skip_fails",
                 {.passed = 1},
                 {.failOnSkip = FailOnSkip::Everything},
                 ExitCode::kPassed},
        ExitCase{"other_skips_than_for_a_privilege",
                 {.passed = 1, .skipped = 1},
                 {.failOnSkip = FailOnSkip::Privilege},
                 ExitCode::kPassed},
        ExitCase{"skip_for_a_privilege",
                 {.passed = 1, .skipped = 2, .skippedForPrivilege = 1},
                 {.failOnSkip = FailOnSkip::Privilege},
                 ExitCode::kNoVerdict},
        ExitCase{"not_run", {.passed = 1, .notRun = 1}, {}, ExitCode::kNoVerdict},
        ExitCase{"failure_beside_a_skip",
                 {.failed = 1, .skipped = 1},
                 {.failOnSkip = FailOnSkip::Everything},
                 ExitCode::kHardwareFailure},
        ExitCase{"nothing", {}, {}, ExitCode::kNothingRan}),
    [](const auto& each) { return each.param.name; });

TEST(ExitStyles, keep_what_they_cannot_tell_apart_on_the_safe_side) {
  EXPECT_EQ(translate(ExitCode::kNothingRan, {}, ExitStyle::Nagios), 3);
  EXPECT_EQ(translate(ExitCode::kNothingRan, {}, ExitStyle::Npd), 2);
  EXPECT_EQ(translate(ExitCode::kNothingRan, {}, ExitStyle::Plain), 3);
  EXPECT_EQ(translate(ExitCode::kPassed, {.warned = 1}, ExitStyle::Npd), 0);
  EXPECT_EQ(translate(ExitCode::kSignalBase + 15, {}, ExitStyle::Nagios), 3);
  EXPECT_EQ(translate(ExitCode::kSignalBase + 15, {}, ExitStyle::Npd), 2);
  EXPECT_EQ(translate(ExitCode::kSignalBase + 15, {}, ExitStyle::Plain), 143);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
