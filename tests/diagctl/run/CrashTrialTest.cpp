// Who is to blame for a crash, by where the test crashes when it is repeated.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "diagctl/run/CrashTrial.h"

namespace TarvexDiags::FrontEnd {
namespace {

using PackageKit::Contract::CrashCause;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Place = CrashTrial::Place;
using Repetition = CrashTrial::Repetition;

CrashTrial begun() {
  CrashTrial trial("Core 3");
  trial.compareWith("Core 4");
  return trial;
}

CrashFinding findingOf(Repetition here, Repetition elsewhere) {
  CrashTrial trial = begun();
  trial.take(Place::Elsewhere, elsewhere);
  trial.take(Place::Here, here);
  EXPECT_TRUE(trial.isOver());
  return trial.finding();
}

TEST(CrashTrialOutcome, blames_the_device_where_the_test_crashes_there_alone) {
  const CrashFinding finding = findingOf(Repetition::Crashed, Repetition::Ended);
  EXPECT_EQ(finding.cause, CrashCause::Device);
  EXPECT_EQ(finding.symptom, "crash-on-one-device");
  EXPECT_EQ(finding.text,
            "The test crashes on Core 3 and not on Core 4: the hardware is at fault.");
  EXPECT_EQ(finding.action, "Take Core 3 out of service and have it replaced.");
}

TEST(CrashTrialOutcome, blames_the_package_where_the_test_crashes_elsewhere_too) {
  for (const Repetition here : {Repetition::Crashed, Repetition::Ended, Repetition::Unclear}) {
    const CrashFinding finding = findingOf(here, Repetition::Crashed);
    EXPECT_EQ(finding.cause, CrashCause::Package);
    EXPECT_EQ(finding.text, "The test crashes on Core 4 too: the package is to blame.");
    EXPECT_THAT(finding.action, HasSubstr("maker of the package"));
  }
}

TEST(CrashTrialOutcome, blames_nobody_for_a_crash_that_does_not_happen_again) {
  const CrashFinding finding = findingOf(Repetition::Ended, Repetition::Ended);
  EXPECT_EQ(finding.cause, CrashCause::Chance);
  EXPECT_EQ(finding.symptom, "crash-not-repeated");
}

TEST(CrashTrialOutcome, stays_open_where_a_repetition_tells_nothing) {
  for (const auto& [here, elsewhere] : {std::pair(Repetition::Crashed, Repetition::Unclear),
                                        std::pair(Repetition::Ended, Repetition::Unclear),
                                        std::pair(Repetition::Unclear, Repetition::Unclear),
                                        std::pair(Repetition::Unclear, Repetition::Ended)}) {
    const CrashFinding finding = findingOf(here, elsewhere);
    EXPECT_EQ(finding.cause, CrashCause::Unknown);
    EXPECT_THAT(finding.action, IsEmpty());  // the package's own stands
  }
}

CrashFinding findingAlone(Repetition here) {
  CrashTrial trial("Core 3");
  trial.compareWithNone();
  EXPECT_TRUE(trial.hasBegun());
  EXPECT_FALSE(trial.isOver());
  trial.take(Place::Here, here);
  EXPECT_TRUE(trial.isOver());
  return trial.finding();
}

TEST(CrashTrialOutcome, leaves_device_or_package_where_a_crash_comes_back_on_the_only_device) {
  const CrashFinding finding = findingAlone(Repetition::Crashed);
  EXPECT_EQ(finding.cause, CrashCause::Unknown);
  EXPECT_THAT(finding.text, HasSubstr("crashes on Core 3 again, and there is no other device"));
  EXPECT_THAT(finding.action, HasSubstr("on a machine of the same kind"));
}

TEST(CrashTrialOutcome, blames_nobody_for_a_crash_that_the_only_device_does_not_repeat) {
  EXPECT_EQ(findingAlone(Repetition::Ended).cause, CrashCause::Chance);
}

TEST(CrashTrialOutcome, advises_no_other_device_where_there_is_none) {
  const CrashFinding finding = findingAlone(Repetition::Unclear);
  EXPECT_EQ(finding.cause, CrashCause::Unknown);
  EXPECT_EQ(finding.action, "Run the test again.");
}

TEST(CrashTrialState, is_over_when_both_repetitions_are) {
  CrashTrial trial("Core 3");
  EXPECT_FALSE(trial.hasBegun());
  trial.compareWith("Core 4");
  EXPECT_TRUE(trial.hasBegun());
  EXPECT_FALSE(trial.isOver());
  trial.take(Place::Here, Repetition::Crashed);
  EXPECT_FALSE(trial.isOver());
  trial.take(Place::Elsewhere, Repetition::Ended);
  EXPECT_TRUE(trial.isOver());
}

TEST(CrashTrialState, keeps_the_first_word_on_a_place) {
  CrashTrial trial = begun();
  trial.take(Place::Here, Repetition::Crashed);
  trial.take(Place::Here, Repetition::Ended);
  trial.take(Place::Elsewhere, Repetition::Ended);
  EXPECT_EQ(trial.finding().cause, CrashCause::Device);
}

TEST(CrashTrialState, tells_why_it_was_stopped_before_it_began) {
  CrashTrial trial("Core 3");
  trial.stop("There is no other device.");
  EXPECT_TRUE(trial.isOver());
  EXPECT_EQ(trial.finding().cause, CrashCause::Unknown);
  EXPECT_EQ(trial.finding().text, "There is no other device.");
}

TEST(CrashTrialState, does_not_forget_what_was_known_when_it_was_stopped) {
  CrashTrial trial = begun();
  trial.take(Place::Elsewhere, Repetition::Crashed);
  trial.stop("The run was ended.");
  EXPECT_EQ(trial.finding().cause, CrashCause::Package);
}

TEST(CrashTrialState, is_not_changed_by_a_stop_behind_its_end) {
  CrashTrial trial = begun();
  trial.take(Place::Here, Repetition::Ended);
  trial.take(Place::Elsewhere, Repetition::Ended);
  trial.stop("The run was ended.");
  EXPECT_EQ(trial.finding().cause, CrashCause::Chance);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
