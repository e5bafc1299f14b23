// Texts from anywhere, as they are printed.

#include <gtest/gtest.h>

#include <string>

#include "diagctl/terminal/Printable.h"

namespace TarvexDiags::FrontEnd {
namespace {

TEST(PrintableTexts, hold_no_control_characters_and_are_always_utf_8) {
  EXPECT_EQ(toPrintable("Gr\xc3\xb6\xc3\x9f"
                        "e \x1b[2Jcleared\a\x7f"),
            "Gr\xc3\xb6\xc3\x9f"
            "e \\x1b[2Jcleared\\x07\\x7f");
  EXPECT_EQ(toPrintable("one\ntwo\t", "\n  "), "one\n  two\\t");
  EXPECT_EQ(toPrintable("one\ntwo"), "one\\ntwo");
  EXPECT_EQ(toUtf8("disk \xff\n"), "disk \xef\xbf\xbd\n");
}

TEST(PrintableTexts, write_out_what_turns_the_direction_or_ends_a_line) {
  EXPECT_EQ(toPrintable("\xc2\x85\xc2\x9b"), "\\u0085\\u009b");
  EXPECT_EQ(toPrintable("\xd8\x9c\xe2\x80\x8e\xe2\x80\x8f"), "\\u061c\\u200e\\u200f");
  EXPECT_EQ(toPrintable("\xe2\x80\xa8\xe2\x80\xaa\xe2\x80\xae"), "\\u2028\\u202a\\u202e");
  EXPECT_EQ(toPrintable("\xe2\x81\xa6\xe2\x81\xa9"), "\\u2066\\u2069");
  for (const char* const harmless :
       {"\xe2\x80\xaf", "\xe2\x81\xaa", "\xc2\xa0", "\xe5\x86\x85", "\xf0\x9f\x98\x80"}) {
    EXPECT_EQ(toPrintable(harmless), harmless);
  }
}

TEST(PrintableTexts, write_out_each_byte_that_is_no_utf_8) {
  EXPECT_EQ(toPrintable("\x9b"), "\\x9b");
  EXPECT_EQ(toPrintable("\xc0\xaf"), "\\xc0\\xaf") << "longer than need be";
  EXPECT_EQ(toPrintable("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "half a pair of UTF-16";
  EXPECT_EQ(toPrintable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond the last one";
  EXPECT_EQ(toPrintable("\xe5\x86"), "\\xe5\\x86") << "cut short";
  EXPECT_EQ(toPrintable("\xe5\x1b\x85"), "\\xe5\\x1b\\x85") << "broken off";
}

TEST(PrintableTexts, stay_as_they_are_when_made_printable_again) {
  const std::string once = toPrintable("\x1b\n\\\xff\xe2\x80\xae");
  EXPECT_EQ(toPrintable(once), once);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
