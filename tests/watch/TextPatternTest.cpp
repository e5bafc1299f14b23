#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "watch/TextPattern.h"

namespace TarvexDiags::Watching {
namespace {

using ::testing::ElementsAre;
using ::testing::Optional;

TEST(TextPatternTest, finds_its_fields_anywhere_in_the_text) {
  EXPECT_THAT(match("x EDAC MC12: 3 CE read error on DIMM_A1 (y", "EDAC MC%d: %d CE %* on %w ("),
              Optional(ElementsAre("12", "3", "read error", "DIMM_A1")));
  EXPECT_THAT(match("status 0xdeadBEEF!", "0x%x"), Optional(ElementsAre("deadBEEF")));
}

TEST(TextPatternTest, ends_a_word_where_the_text_behind_it_begins) {
  EXPECT_THAT(match("dev sda, sector 5", "dev %w, sector %d"), Optional(ElementsAre("sda", "5")));
}

TEST(TextPatternTest, tries_each_place_where_it_may_begin) {
  EXPECT_THAT(match("CPUx CPU7", "CPU%d"), Optional(ElementsAre("7")));
}

TEST(TextPatternTest, takes_the_rest_of_the_text_when_nothing_stands_behind) {
  EXPECT_THAT(match("a: the rest", "a: %*"), Optional(ElementsAre("the rest")));
  EXPECT_THAT(match("a: ", "a: %*"), Optional(ElementsAre("")));
}

TEST(TextPatternTest, does_not_match_what_lacks_a_field_or_a_letter) {
  EXPECT_EQ(match("CPU", "CPU%d"), std::nullopt);
  EXPECT_EQ(match("dev , sector 5", "dev %w, sector %d"), std::nullopt);
  EXPECT_EQ(match("a b", "a %* c"), std::nullopt);
  EXPECT_EQ(match("", "a"), std::nullopt);
}

}  // namespace
}  // namespace TarvexDiags::Watching
