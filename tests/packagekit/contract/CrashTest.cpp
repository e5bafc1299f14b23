// What a crash of a worker says, and who is to blame for it.

#include <gtest/gtest.h>

#include <map>
#include <utility>

#include "packagekit/contract/Capabilities.h"
#include "packagekit/contract/Crash.h"

namespace TarvexDiags::PackageKit::Contract {
namespace {

TEST(CauseOfCrash, follows_from_where_the_test_crashes_again) {
  using R = Repetition;
  const std::map<std::pair<R, R>, CrashCause> causes = {
      {{R::Crashed, R::Ended}, CrashCause::Device},
      {{R::Crashed, R::Crashed}, CrashCause::Package},
      {{R::Ended, R::Ended}, CrashCause::Chance},
      {{R::Ended, R::Crashed}, CrashCause::Package},
      {{R::Unclear, R::Crashed}, CrashCause::Package},
      {{R::Unclear, R::Ended}, CrashCause::Unknown},
      {{R::Crashed, R::Unclear}, CrashCause::Unknown},
      {{R::Ended, R::Unclear}, CrashCause::Unknown},
      {{R::Unclear, R::Unclear}, CrashCause::Unknown},
      {{R::Crashed, R::NoPlace}, CrashCause::Unknown},
      {{R::Ended, R::NoPlace}, CrashCause::Chance},
      {{R::Unclear, R::NoPlace}, CrashCause::Unknown}};
  for (const auto& [repetitions, cause] : causes) {
    EXPECT_EQ(causeOfCrash(repetitions.first, repetitions.second), cause)
        << static_cast<int>(repetitions.first) << static_cast<int>(repetitions.second);
  }
}

TEST(SignalOfCrash, is_one_that_a_wrong_computation_can_end_in) {
  for (const char* signal : {"SIGSEGV", "SIGILL", "SIGFPE", "SIGBUS", "SIGABRT"}) {
    EXPECT_TRUE(isSignalOfCrash(signal)) << signal;
  }
  for (const char* signal : {"SIGTERM", "SIGKILL", "SIGTRAP", "SIGXCPU", "SIG", ""}) {
    EXPECT_FALSE(isSignalOfCrash(signal)) << signal;
  }
}

TEST(SignalOfCrash, stands_behind_what_the_event_is_about) {
  EXPECT_EQ(toSignal({"1", "Test", "tag", "SIGILL", "last"}), "SIGILL");
  EXPECT_EQ(toSignal({"1", "Test", "tag"}), std::nullopt);
}

TEST(SeedOfPass, is_told_when_its_test_starts) {
  EXPECT_EQ(toSeed({"1", "Test", "tag", "2", "12345"}), 12345U);
  EXPECT_EQ(toSeed({"1", "Test", "tag", "2", "much"}), 0U);
  EXPECT_EQ(toSeed({"1", "Test", "tag", "2"}), 0U);
}

TEST(Capabilities, are_words_in_any_case_between_whatever_signs) {
  for (const char* text : {"computing", "quick,computing", "computing, quick", " quick computing ",
                           "Computing", "quick;COMPUTING", "quick/computing|fast"}) {
    EXPECT_TRUE(hasCapability(text, kComputing)) << text;
  }
  for (const char* text : {"", "quick", "computing-not", "supercomputing", "computing2", " , "}) {
    EXPECT_FALSE(hasCapability(text, kComputing)) << text;
  }
}

}  // namespace
}  // namespace TarvexDiags::PackageKit::Contract
