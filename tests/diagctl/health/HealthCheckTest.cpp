// A check in a process of its own: what counts, whatever becomes of that process.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>

#include "diagctl/health/HealthCheck.h"
#include "diagctl/report/JsonlReporter.h"
#include "diagctl/terminal/Printer.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

// Of a check that is never waited for to the end of it.
constexpr milliseconds kLong{60'000};

CheckTimes times(milliseconds toEnd, milliseconds toKill) {
  const auto now = ChildProcess::Clock::now();
  return {now + toEnd, now + toKill};
}

/// Tells a run with a failure, and its end only if that is asked for.
void tellRun(bool hasEnd) {
  JsonlReporter reporter(standardOutput());
  for (const RunEvent& event : wholeRun()) {
    if (hasEnd || !std::holds_alternative<RunEnded>(event.body)) {
      reporter.handle(event);
    }
  }
  standardOutput().flush();
}

// Neither what the tests have registered for their end nor their buffers are this process's.
[[noreturn]] void leave(int code) {
  standardError().flush();
  _exit(code);
}

FinishedCheck checkOf(
    const std::function<int()>& run, const CheckTimes& when = times(kLong, kLong),
    const std::function<bool()>& isInterrupted = [] { return false; }) {
  return runCheck(run, when, "a while", isInterrupted, [](const RunEvent& /*event*/) {});
}

std::string textsOf(const HealthAccount& account) {
  std::string texts;
  for (const HealthFinding& finding : account.findings) {
    texts += finding.text + "\n";
  }
  return texts;
}

TEST(HealthCheck, is_what_the_run_has_told) {
  const FinishedCheck check = checkOf([]() -> int {
    tellRun(true);
    standardError().write("a word to people\n");
    leave(1);
  });
  const HealthAccount account = check.run(VanishedAs::Trouble).account();
  EXPECT_EQ(account.code, ExitCode::kHardwareFailure);
  EXPECT_THAT(textsOf(account), Not(HasSubstr("The check")));
  EXPECT_EQ(check.said, "a word to people\n");
}

TEST(HealthCheck, that_hangs_is_killed_and_what_it_has_told_counts) {
  const FinishedCheck check = checkOf(
      []() -> int {
        signal(SIGTERM, SIG_IGN);
        tellRun(false);
        pause();
        leave(0);
      },
      times(milliseconds(1500), milliseconds(1600)));
  EXPECT_FALSE(check.isStillThere);
  const HealthAccount account = check.run(VanishedAs::Trouble).account();
  EXPECT_EQ(account.code, ExitCode::kHardwareFailure) << "the failure that it had found";
  EXPECT_THAT(textsOf(account), HasSubstr("did not end within a while"));
}

TEST(HealthCheck, that_hangs_and_has_told_nothing_has_no_verdict) {
  const FinishedCheck check = checkOf(
      []() -> int {
        pause();
        leave(0);
      },
      times(milliseconds(1), kLong));
  const HealthAccount account = check.run(VanishedAs::Trouble).account();
  EXPECT_EQ(account.code, ExitCode::kNoVerdict);
  EXPECT_THAT(textsOf(account), HasSubstr("did not end within a while"));
}

TEST(HealthCheck, that_crashes_has_no_verdict_and_tells_the_signal) {
  const FinishedCheck check = checkOf([]() -> int {
    signal(SIGKILL, SIG_DFL);
    raise(SIGKILL);
    leave(0);
  });
  const HealthAccount account = check.run(VanishedAs::Failure).account();
  EXPECT_EQ(account.code, ExitCode::kNoVerdict);
  EXPECT_THAT(textsOf(account), HasSubstr("ended by signal 9"));
}

TEST(HealthCheck, that_did_not_begin_tells_why) {
  const FinishedCheck check = checkOf([]() -> int {
    standardError().write("diagctl: control.cfg: is gone\n");
    leave(2);
  });
  EXPECT_THAT(textsOf(check.run(VanishedAs::Trouble).account()), "control.cfg: is gone\n");
}

TEST(HealthCheck, of_which_the_log_is_none_has_no_verdict) {
  const FinishedCheck check = checkOf([]() -> int {
    standardOutput().write("all is well\n");
    standardOutput().flush();
    leave(0);
  });
  const HealthAccount account = check.run(VanishedAs::Trouble).account();
  EXPECT_EQ(account.code, ExitCode::kNoVerdict);
  EXPECT_THAT(account.findings, Not(IsEmpty()));
}

TEST(HealthCheck, that_is_interrupted_ends_at_once_and_says_so) {
  const FinishedCheck check = checkOf(
      []() -> int {
        pause();
        leave(0);
      },
      times(kLong, kLong), [] { return true; });
  EXPECT_TRUE(check.wasInterrupted);
  EXPECT_THAT(textsOf(check.run(VanishedAs::Trouble).account()), HasSubstr("interrupted"));
}

TEST(OtherPrograms, get_their_words_as_they_are_and_no_other_variables) {
  const auto until = ChildProcess::Clock::now() + kLong;
  const ProgramOutcome outcome =
      runProgram({"/bin/sh", "-c", "printf '%s|' \"$1\" \"$A\" \"$HOME\"; echo told >&2; exit 7",
                  "sh", "a b;c"},
                 {"A=1"}, until);
  EXPECT_EQ(outcome.code, 7);
  EXPECT_EQ(outcome.out, "a b;c|1||");
  EXPECT_EQ(outcome.err, "told\n");
  EXPECT_EQ(runProgram({"/no/such/program"}, {}, until).code, 127);
}

TEST(OtherPrograms, are_killed_when_their_time_is_over) {
  const ProgramOutcome outcome = runProgram({"/bin/sh", "-c", "echo begun; exec sleep 1000"}, {},
                                            ChildProcess::Clock::now() + milliseconds(300));
  EXPECT_LT(outcome.code, 0);
}

TEST(OtherPrograms, are_read_to_their_end_however_much_they_write) {
  const ProgramOutcome outcome =
      runProgram({"/bin/sh", "-c", "yes | head -c 1000000; exit 3"}, {"PATH=/bin:/usr/bin"},
                 ChildProcess::Clock::now() + kLong);
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(outcome.out.size(), 65536U);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
