// The one place that prints, and the texts for people that go through it.

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {
namespace {

TEST(Printers, write_in_the_order_of_the_calls) {
  std::ostringstream out;
  Printer printer(out);
  printer.say("{} of {}\n", 1, "two");
  printer.print("{:>4}\n", 3);
  printer.write("{}\n");
  EXPECT_EQ(out.str(), "1 of two\n   3\n{}\n");
  EXPECT_TRUE(printer.isSound());
}

TEST(Printers, fill_in_arguments_in_one_harmless_line) {
  std::ostringstream out;
  Printer printer(out);
  const std::string hostile = "a\nb\x1b[2J\xff";
  printer.say("{} of {:>3}\n", hostile, "c\n");
  printer.print("{}\n", hostile.c_str());
  EXPECT_EQ(out.str(), "a\\nb\\x1b[2J\\xff of c\\n\na\\nb\\x1b[2J\\xff\n");
}

TEST(Printers, let_line_breaks_alone_out_of_a_text_as_it_is) {
  std::ostringstream out;
  Printer printer(out);
  printer.write("a\nb\x1b[2J\r\xe2\x80\xae\n");
  EXPECT_EQ(out.str(), "a\nb\\x1b[2J\\x0d\\u202e\n");
}

TEST(Printers, steer_a_terminal_by_what_they_send_themselves) {
  std::ostringstream out;
  Printer printer(out);
  printer.paint(Colour::Red, "a\x1b[0mb");
  EXPECT_EQ(out.str(), "\x1b[31ma\\x1b[0mb\x1b[0m");
}

TEST(Blocks, leave_the_cursor_where_the_next_one_begins) {
  std::ostringstream out;
  Printer printer(out);
  printer.drawBlock({"one", "t\x1bo"});
  EXPECT_EQ(out.str(), "\rone\x1b[K\r\nt\\x1bo\x1b[K\x1b[J\x1b[1A\r");
  out.str("");
  printer.eraseBlock();
  EXPECT_EQ(out.str(), "\r\x1b[J");
  out.str("");
  printer.eraseBlock();
  EXPECT_EQ(out.str(), "") << "there is none";
  printer.drawBlock({"one"});
  out.str("");
  printer.forgetBlock();
  printer.eraseBlock();
  EXPECT_EQ(out.str(), "") << "it is somebody else's";
}

TEST(Blocks, are_held_back_while_others_have_the_terminal) {
  std::ostringstream out;
  Printer printer(out);
  holdBlocksBack();
  printer.drawBlock({"one"});
  EXPECT_EQ(out.str(), "");
  letBlocksBeDrawn();
  printer.drawBlock({"one"});
  EXPECT_NE(out.str(), "");
}

TEST(Printers, know_that_something_could_not_be_written) {
  std::ostringstream out;
  Printer printer(out);
  out.setstate(std::ios::badbit);
  printer.write("lost");
  EXPECT_FALSE(printer.isSound());
}

TEST(MarkedTexts, take_braces_in_their_arguments_as_they_are) {
  EXPECT_EQ(tr("{} and {{}}", "{0} {x}"), "{0} {x} and {}");
  EXPECT_EQ(told(marked("{not filled in}")), "{not filled in}");
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
