// The table by which tests are judged, walked row by row.

#include <gtest/gtest.h>

#include "packagekit/contract/Judgement.h"

namespace TarvexDiags::PackageKit::Contract {
namespace {

struct Row {
  Ending ending;
  Judgement without;     ///< any event
  Judgement afterError;  ///< with a warning event or without
};

constexpr Row kRows[] = {
    {Ending::Passed, Judgement::Passed, Judgement::Contradicts},
    {Ending::Unusual, Judgement::Warning, Judgement::Failed},
    {Ending::Failed, Judgement::Failed, Judgement::Failed},
    {Ending::NotPossible, Judgement::NotPossible, Judgement::Failed},
    {Ending::Vanished, Judgement::Trouble, Judgement::Failed},
    {Ending::Aborted, Judgement::Aborted, Judgement::Failed},
    {Ending::Broken, Judgement::Trouble, Judgement::Failed},
};

Happenings happened(Ending ending, bool hasRaisedError, bool hasRaisedWarning) {
  return {ending, hasRaisedError, hasRaisedWarning};
}

TEST(Judgements, follow_from_the_ending_where_nothing_was_raised) {
  for (const Row& row : kRows) {
    EXPECT_EQ(judge(happened(row.ending, false, false)), row.without)
        << static_cast<int>(row.ending);
  }
}

TEST(Judgements, hold_an_error_event_against_the_hardware_whatever_ended_the_test) {
  for (const Row& row : kRows) {
    for (const bool hasRaisedWarning : {false, true}) {
      for (const VanishedAs vanished : {VanishedAs::Trouble, VanishedAs::Failure}) {
        EXPECT_EQ(judge(happened(row.ending, true, hasRaisedWarning), vanished), row.afterError)
            << static_cast<int>(row.ending);
      }
    }
  }
}

TEST(Judgements, let_a_warning_event_change_a_pass_and_nothing_else) {
  for (const Row& row : kRows) {
    EXPECT_EQ(judge(happened(row.ending, false, true)),
              row.ending == Ending::Passed ? Judgement::Warning : row.without)
        << static_cast<int>(row.ending);
  }
}

TEST(Judgements, take_a_vanished_device_for_a_failed_one_on_request) {
  for (const Row& row : kRows) {
    EXPECT_EQ(judge(happened(row.ending, false, false), VanishedAs::Failure),
              row.ending == Ending::Vanished ? Judgement::Failed : row.without)
        << static_cast<int>(row.ending);
  }
}

}  // namespace
}  // namespace TarvexDiags::PackageKit::Contract
