// The names of the controller's codes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "DiagCtrl/CodeNames.h"
#include "tests/support/Enumerators.h"

namespace TarvexDiags::Text {
namespace {

using DiagCtrl::DiagCtrlEvent;
using DiagCtrl::DiagnosticController;
using ::testing::StrEq;
using Codes = std::map<unsigned int, std::string>;

TEST(CodeNames, are_those_that_the_headers_spell) {
  const Codes results = TestSupport::resultCodes();
  const Codes events = TestSupport::eventCodes();
  ASSERT_EQ(results.size(), 60U);
  ASSERT_EQ(events.size(), 67U);
  for (const auto& [number, name] : results) {
    EXPECT_THAT(DiagCtrl::nameOf(static_cast<DiagnosticController::errorCode>(number)),
                StrEq(name));
  }
  for (const auto& [number, name] : events) {
    EXPECT_THAT(DiagCtrl::nameOf(static_cast<DiagCtrlEvent::eventCode>(number)), StrEq(name));
  }
}

TEST(CodeNames, are_empty_for_numbers_that_no_code_has) {
  for (const unsigned int number : {0U, 6U, 62U, 4096U}) {
    EXPECT_THAT(DiagCtrl::nameOf(static_cast<DiagnosticController::errorCode>(number)), StrEq(""));
  }
  for (const unsigned int number : {0U, 6U, 69U, 4096U}) {
    EXPECT_THAT(DiagCtrl::nameOf(static_cast<DiagCtrlEvent::eventCode>(number)), StrEq(""));
  }
}

TEST(CodeNames, tell_one_number_of_the_two_families_apart) {
  EXPECT_THAT(DiagCtrl::nameOf(DiagnosticController::FUNCTION_NOT_FOUND_IN_DLL),
              StrEq(DiagCtrl::nameOf(DiagCtrlEvent::FUNCTION_NOT_FOUND_IN_DLL)));
  EXPECT_THAT(DiagCtrl::nameOf(DiagCtrlEvent::eventCode{32}),
              StrEq("UNABLE_TO_PROCESS_TEST_REQUEST"));
  EXPECT_THAT(DiagCtrl::nameOf(DiagnosticController::errorCode{32}),
              StrEq("FUNCTION_NOT_FOUND_IN_DLL"));
}

}  // namespace
}  // namespace TarvexDiags::Text
