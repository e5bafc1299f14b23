#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "diagctl/session/SettingOverrides.h"

namespace TarvexDiags::FrontEnd {
namespace {

const std::string kDescription =
    "# Rounds=9: a "
    "comment\n[Package]\nPackageName=Memory\n[TestID1]\nRounds=1\n[TestID2]\nHold=5\n";

TEST(SettingOverride, names_package_key_value_and_perhaps_a_test) {
  const SettingOverride plain = parseOverride("memory.Rounds=a=b");
  EXPECT_EQ(plain.package, "memory");
  EXPECT_EQ(plain.test, 0);
  EXPECT_EQ(plain.key, "Rounds");
  EXPECT_EQ(plain.value, "a=b");
  const SettingOverride ofTest = parseOverride("memory.12.Rounds=3");
  EXPECT_EQ(ofTest.test, 12);
  EXPECT_EQ(ofTest.key, "Rounds");
}

TEST(SettingOverride, is_refused_when_a_part_is_missing) {
  for (const char* text : {"", "memory", "memory.Rounds", "memory.Rounds=", "memory=3", ".Rounds=3",
                           "memory.=3", "memory.x.Rounds=3", "memory.0.Rounds=3", "memory.1.=3",
                           "memory.Rounds=3\n[TestID1]", "memory.#Rounds=3", "memory.;Rounds=3",
                           "memory.[Rounds]=3", "memory. Rounds=3", "memory.Rounds =3"}) {
    EXPECT_THROW(parseOverride(text), std::invalid_argument) << text;
  }
}

TEST(SettingOverride, holds_wherever_the_key_stands_and_for_all_tests) {
  EXPECT_EQ(withOverride(kDescription, {"memory", 0, "Rounds", "3"}),
            "# Rounds=9: a comment\n[Package]\nRounds=3\nPackageName=Memory\n[TestID1]\nRounds=3\n"
            "[TestID2]\nHold=5\n");
}

TEST(SettingOverride, of_one_test_leaves_the_others) {
  EXPECT_EQ(withOverride(kDescription, {"memory", 2, "Rounds", "3"}),
            "# Rounds=9: a comment\n[Package]\nPackageName=Memory\n[TestID1]\nRounds=1\n[TestID2]\n"
            "Rounds=3\nHold=5\n");
}

TEST(SettingOverride, replaces_the_value_that_counts_and_makes_missing_sections) {
  EXPECT_EQ(withValue("[A]\nkey = 1\nkey=2\n", "A", "key", "3"), "[A]\nkey=3\nkey=2\n");
  EXPECT_EQ(withValue("[A]\n", "B", "key", "3"), "[A]\n[B]\nkey=3\n");
  EXPECT_EQ(withValue("", "B", "key", "3"), "[B]\nkey=3\n");
}

TEST(SettingOverride, holds_in_a_file_that_begins_with_a_byte_order_mark) {
  const std::string mark = "\xef\xbb\xbf";
  EXPECT_EQ(withValue(mark + "[Package]\nRounds=1\n", "Package", "Rounds", "3"),
            "[Package]\nRounds=3\n");
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
