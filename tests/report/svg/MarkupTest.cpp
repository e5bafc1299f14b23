// The one place that writes markup.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "report/svg/Markup.h"
#include "tests/report/svg/WellFormed.h"

namespace TarvexDiags::Svg {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(Markup, closes_what_it_opens) {
  Markup out;
  out.open("ul", {{"class", "parts"}});
  out.leaf("li", "one");
  out.leaf("li", {{"id", "second"}}, "two");
  out.close();
  EXPECT_EQ(out.written(), "<ul class=\"parts\"><li>one</li>\n<li id=\"second\">two</li>\n</ul>\n");
  EXPECT_EQ(out.size(), out.written().size());
}

TEST(Markup, of_another_is_taken_over_as_it_is) {
  Markup inner;
  inner.leaf("b", "<");
  Markup out;
  out.open("p");
  out.append(inner);
  out.close();
  EXPECT_EQ(out.written(), "<p><b>&lt;</b>\n</p>\n");
}

TEST(Markup, is_never_made_by_a_text) {
  const std::string hostile = "\n</p><script>alert(\"1\")</script><p class='x'>&amp; \" onload='x'";
  Markup out;
  out.open("div", {{"title", hostile}});
  out.text(hostile);
  out.close();
  EXPECT_THAT(out.written(), Not(HasSubstr("<script")));
  EXPECT_EQ(out.written().find('\n'), out.written().size() - 1) << "no text begins a line";
  const Parsed parsed = parse(out.written());
  EXPECT_EQ(parsed.fault, "");
  EXPECT_EQ(parsed.elements.size(), 1U);
  EXPECT_EQ(parsed.attributes.front().at("title"), hostile);
  std::string text;
  for (const std::string& part : parsed.texts) {
    text += part;
  }
  EXPECT_EQ(text, hostile);
}

TEST(Pixels, have_one_digit_behind_the_point_at_most) {
  EXPECT_EQ(pixels(3), "3");
  EXPECT_EQ(pixels(3.14), "3.1");
  EXPECT_EQ(pixels(-0.01), "0");
  EXPECT_EQ(pixels(-2.5), "-2.5");
}

}  // namespace
}  // namespace TarvexDiags::Svg
