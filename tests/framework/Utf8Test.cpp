// Characters of texts that come from anywhere.

#include <gtest/gtest.h>

#include <string>

#include "System/internal/Utf8.h"

namespace TarvexDiags::System {
namespace {

TEST(Utf8, replaces_each_byte_that_belongs_to_no_character) {
  EXPECT_EQ(toUtf8("Gr\xc3\xb6\xc3\x9f"
                   "e \xe5\x86\x85 \xf0\x9f\x98\x80",
                   "?"),
            "Gr\xc3\xb6\xc3\x9f"
            "e \xe5\x86\x85 \xf0\x9f\x98\x80");
  EXPECT_EQ(toUtf8("\xc0\xaf|\xc1\xbf|\xe0\x9f\xbf|\xf0\x8f\xbf\xbf", "?"), "??|??|???|????")
      << "longer than need be";
  EXPECT_EQ(toUtf8("\xed\xa0\x80|\xf4\x90\x80\x80|\xf8\x88\x80\x80\x80", "?"), "???|????|?????")
      << "no characters at all";
  EXPECT_EQ(toUtf8("\x9b|\xe5\x86|\xe5\x86", "?"), "?|??|??") << "cut short";
}

TEST(Utf8, is_cut_between_characters_alone) {
  const std::string text = "a\xe5\x86\x85z";
  EXPECT_EQ(wholeCharacters(text, 0), "");
  EXPECT_EQ(wholeCharacters(text, 1), "a");
  EXPECT_EQ(wholeCharacters(text, 2), "a");
  EXPECT_EQ(wholeCharacters(text, 3), "a");
  EXPECT_EQ(wholeCharacters(text, 4), "a\xe5\x86\x85");
  EXPECT_EQ(wholeCharacters(text, 5), text);
  EXPECT_EQ(wholeCharacters(text, 99), text);
  EXPECT_EQ(wholeCharacters("\x80\x80\x80", 2), "") << "where none begins";
}

}  // namespace
}  // namespace TarvexDiags::System
