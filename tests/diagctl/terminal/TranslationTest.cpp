#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {
namespace {

TEST(Translation, without_a_language_tells_the_texts_as_they_stand) {
  EXPECT_EQ(tr("{} of {}", 1, 2), "1 of 2");
  EXPECT_EQ(trn("1 test", "{} tests", 1), "1 test");
  EXPECT_EQ(trn("1 test", "{} tests", 2), "2 tests");
  EXPECT_EQ(told(""), "");
}

TEST(Translation, that_does_not_fit_its_arguments_gives_way_to_the_source) {
  const auto fill = [](std::string_view text) {
    const int number = 5;
    return fillIn(text, "{} found", fmt::make_format_args(number));
  };
  EXPECT_EQ(fill("gefunden: {}"), "gefunden: 5");
  EXPECT_EQ(fill("{1} gefunden"), "5 found");
  EXPECT_EQ(fill("{:s} gefunden"), "5 found");
  EXPECT_EQ(fill("{ gefunden"), "5 found");
}

TEST(Translation, is_shown_where_the_locale_has_its_characters) {
  const auto showsIn = [](const char* locale) {
    setenv("LC_ALL", locale, 1);
    return canShow("\u30c6\u30b9\u30c8");
  };
  EXPECT_TRUE(showsIn("ja_JP.UTF-8"));
  EXPECT_TRUE(showsIn("C.utf8@modifier"));
  EXPECT_FALSE(showsIn("C"));
  EXPECT_FALSE(showsIn("ja_JP.eucJP"));
  EXPECT_FALSE(showsIn("ja_JP"));
  EXPECT_TRUE(canShow("plain"));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
