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
