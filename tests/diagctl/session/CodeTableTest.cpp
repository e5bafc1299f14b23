// The table of the controller's codes.

#include <gtest/gtest.h>

#include "diagctl/session/CodeTable.h"

namespace TarvexDiags::FrontEnd {
namespace {

TEST(Codes, every_entry_has_a_meaning_and_an_action) {
  for (const CodeEntry& entry : codeTable()) {
    EXPECT_FALSE(entry.meaning.empty()) << entry.name;
    EXPECT_FALSE(entry.nextAction.empty()) << entry.name;
    EXPECT_TRUE(entry.resultNumber || entry.eventNumber) << entry.name;
  }
}

TEST(Codes, are_all_there_and_no_other) {
  for (unsigned int number = 0; number <= 100; ++number) {
    const bool isCode = number >= 1 && number != 6;
    EXPECT_EQ(findResult(number) != nullptr, isCode && number <= 61) << number;
    EXPECT_EQ(findEvent(number) != nullptr, isCode && number <= 68) << number;
  }
}

TEST(Codes, are_found_by_number_in_either_enumeration) {
  for (const CodeEntry& entry : codeTable()) {
    if (entry.resultNumber) {
      EXPECT_EQ(findResult(*entry.resultNumber), &entry);
    }
    if (entry.eventNumber) {
      EXPECT_EQ(findEvent(*entry.eventNumber), &entry);
    }
  }
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
