// Texts from anywhere, as they are printed.

#include <gtest/gtest.h>

#include "diagctl/terminal/Printable.h"

namespace TarvexDiags::FrontEnd {
namespace {

TEST(PrintableTexts, hold_no_control_characters_and_are_always_utf_8) {
  EXPECT_EQ(toPrintable("Gr\xc3\xb6\xc3\x9f"
                        "e \x1b[2Jcleared\a\x7f"),
            "Gr\xc3\xb6\xc3\x9f"
            "e  [2Jcleared  ");
  EXPECT_EQ(toPrintable("one\ntwo", "\n  "), "one\n  two");
  EXPECT_EQ(toUtf8("disk \xff\n"), "disk \xef\xbf\xbd\n");
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
