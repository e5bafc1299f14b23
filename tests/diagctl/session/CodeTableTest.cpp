// The table of the controller's codes.

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "diagctl/session/CodeTable.h"
#include "tests/support/Enumerators.h"

namespace TarvexDiags::FrontEnd {
namespace {

TEST(Codes, every_entry_has_a_meaning_and_an_action) {
  for (const CodeEntry& entry : codeTable()) {
    EXPECT_FALSE(entry.meaning.empty()) << entry.name;
    EXPECT_FALSE(entry.nextAction.empty()) << entry.name;
    EXPECT_TRUE(entry.resultNumber || entry.eventNumber) << entry.name;
  }
}

TEST(Codes, are_those_of_the_controller) {
  std::map<unsigned int, std::string> results;
  std::map<unsigned int, std::string> events;
  for (const CodeEntry& entry : codeTable()) {
    if (entry.resultNumber) {
      results.emplace(*entry.resultNumber, entry.name);
    }
    if (entry.eventNumber) {
      events.emplace(*entry.eventNumber, entry.name);
    }
  }
  EXPECT_GE(results.size(), 60U);
  EXPECT_EQ(results, TestSupport::resultCodes());
  EXPECT_EQ(events, TestSupport::eventCodes());
}

TEST(Codes, are_not_found_beyond_their_numbers) {
  for (const unsigned int number : {0U, 6U, 100U}) {
    EXPECT_EQ(findResult(number), nullptr) << number;
    EXPECT_EQ(findEvent(number), nullptr) << number;
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
