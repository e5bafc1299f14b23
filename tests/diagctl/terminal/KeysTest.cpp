#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "diagctl/terminal/Keys.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Kind = Key::Kind;

std::vector<Key> keysOf(const std::string& bytes) {
  KeyReader reader;
  std::vector<Key> keys;
  for (const char byte : bytes) {
    if (const auto key = reader.take(byte)) {
      keys.push_back(*key);
    }
  }
  if (const auto key = reader.takePause()) {
    keys.push_back(*key);
  }
  return keys;
}

TEST(Keys, are_characters_and_those_without_one) {
  EXPECT_THAT(keysOf("q?\n\r"), ElementsAre(Key{Kind::Character, 'q'}, Key{Kind::Character, '?'},
                                            Key{Kind::Enter}, Key{Kind::Enter}));
  EXPECT_THAT(keysOf("\033[A\033[B\033OA\033OB"),
              ElementsAre(Key{Kind::Up}, Key{Kind::Down}, Key{Kind::Up}, Key{Kind::Down}));
  EXPECT_THAT(keysOf("\033[5~\033[6~a"),
              ElementsAre(Key{Kind::PageUp}, Key{Kind::PageDown}, Key{Kind::Character, 'a'}));
}

TEST(Keys, that_mean_nothing_here_end_no_test) {
  EXPECT_THAT(keysOf("\033Oq"), IsEmpty()) << "a key of the number pad";
  EXPECT_THAT(keysOf("\033[1;5q"), IsEmpty());
  EXPECT_THAT(keysOf("\033q"), IsEmpty()) << "with Alt held";
  EXPECT_THAT(keysOf("\033[15~r"), ElementsAre(Key{Kind::Character, 'r'}));
}

TEST(Keys, tell_escape_by_what_does_not_follow) {
  EXPECT_THAT(keysOf("\033"), ElementsAre(Key{Kind::Escape}));
  EXPECT_THAT(keysOf("\033\033"), ElementsAre(Key{Kind::Escape}, Key{Kind::Escape}));
  KeyReader reader;
  EXPECT_FALSE(reader.take('\033'));
  EXPECT_EQ(reader.takePause(), Key{Kind::Escape});
  EXPECT_EQ(reader.take('A'), (Key{Kind::Character, 'A'}));
  EXPECT_FALSE(reader.takePause());
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
