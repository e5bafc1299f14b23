// The scanner by itself: the outcome must not depend on how the text is cut into pieces.

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>

#include "System/internal/ConfigScanner.h"
#include "tests/support/ReferenceConfigReader.h"

namespace TarvexDiags::System {
namespace {

std::optional<std::string> scan(const std::string& text, const std::string& section,
                                const std::string& key, std::size_t pieceSize) {
  std::string value;
  ConfigScanner scanner(section, key, value);
  for (std::size_t at = 0; at < text.size(); at += pieceSize) {
    if (scanner.feed(text.data() + at, std::min(pieceSize, text.size() - at))) {
      break;
    }
  }
  return scanner.found() ? std::optional<std::string>(value) : std::nullopt;
}

const char kRichText[] =
    "\xEF\xBB\xBF# a comment [Wanted]\r\n"
    "stray = outside\n"
    "[Other]\nkey = other ; [Wanted]\n x[Wanted]\n"
    "[Wanted key\nkey = unclosed\n"
    "  [ Wanted ] trailing [text]\r\n"
    " ; key = commented\n\n"
    " longer key = no\nkey\nkey extra = no\n = nameless\n"
    "\t key \t=\t a = [b] # c \t\r\n"
    "key = again\n"
    "[Wanted]\nkey = later\nsecond =\n"
    "[Disable Device]\nlast = end";

TEST(ConfigScannerTest, pieces_of_any_size_give_the_same_value) {
  const std::string text = kRichText;
  for (std::size_t pieceSize = 1; pieceSize <= text.size(); ++pieceSize) {
    EXPECT_EQ(scan(text, "Wanted", "key", pieceSize), "a = [b] # c") << pieceSize;
    EXPECT_EQ(scan(text, "Wanted", "second", pieceSize), "") << pieceSize;
    EXPECT_EQ(scan(text, "Disable Device", "last", pieceSize), "end") << pieceSize;
    EXPECT_EQ(scan(text, "Other", "key", pieceSize), "other ; [Wanted]") << pieceSize;
    EXPECT_EQ(scan(text, "Other", "second", pieceSize), std::nullopt) << pieceSize;
  }
}

TEST(ConfigScannerTest, text_cut_off_anywhere_gives_a_part_of_the_value_or_nothing) {
  const std::string text = kRichText;
  const std::string value = "a = [b] # c";
  for (std::size_t size = 0; size <= text.size(); ++size) {
    const auto found = scan(text.substr(0, size), "Wanted", "key", 16);
    EXPECT_TRUE(!found || value.compare(0, found->size(), *found) == 0) << size;
  }
}

TEST(ConfigScannerTest, stops_at_the_key) {
  std::string value;
  ConfigScanner scanner("A", "k", value);
  const std::string head = "[A]\nk=";
  EXPECT_FALSE(scanner.feed(head.data(), head.size()));
  const std::string rest = "v\n[B]\n";
  EXPECT_TRUE(scanner.feed(rest.data(), rest.size()));
  EXPECT_TRUE(scanner.feed("x", 1)) << "and takes nothing more";
  EXPECT_TRUE(scanner.found());
  EXPECT_EQ(value, "v");
}

TEST(ConfigScannerTest, names_that_no_file_can_hold_are_never_found) {
  const std::string text = "[]\n=empty\n[ A]\n k=v\n[A]\nk=v\na=b=c\n[B]x]\nk=v\n#c=v\n";
  const auto finds = [&](const std::string& section, const std::string& key) {
    return scan(text, section, key, text.size()).has_value();
  };
  EXPECT_TRUE(finds("A", "k"));
  EXPECT_TRUE(finds("B", "k"));
  EXPECT_FALSE(finds("", ""));
  EXPECT_FALSE(finds("A", ""));
  EXPECT_FALSE(finds("", "k"));
  EXPECT_FALSE(finds(" A", "k"));
  EXPECT_FALSE(finds("A", "k "));
  EXPECT_FALSE(finds("A", "a=b"));
  EXPECT_FALSE(finds("B]x", "k"));
  EXPECT_FALSE(finds("A]\nk", "k"));
  EXPECT_FALSE(finds("A", "k=v\na"));
  EXPECT_FALSE(finds("B", "#c"));
}

/// Short texts of the characters that matter, in random order.
class RandomText {
 public:
  explicit RandomText(unsigned int seed) : m_random(seed) {}

  std::string make() {
    static const char* const kWords[] = {
        "[",           "]",  "=",        "\n",           "\n",   "\r\n", " ",   "\t",
        "#",           ";",  "A",        "AB",           "k",    "kk",   "[A]", "\n[A]\n",
        "\n[ AB ] \n", "k=", "\nk = v ", "\xEF\xBB\xBF", "\xEF", "\0x"};
    std::string text;
    for (int count = number(24); count > 0; --count) {
      const char* const word = kWords[static_cast<std::size_t>(number(std::size(kWords) - 1))];
      text += *word == '\0' ? std::string(1, '\0') : std::string(word);
    }
    return text;
  }

  int number(std::size_t most) {
    return std::uniform_int_distribution<int>(0, static_cast<int>(most))(m_random);
  }

 private:
  std::mt19937 m_random;
};

TEST(ConfigScannerTest, agrees_with_the_plain_reader_on_random_texts) {
  RandomText random(20240817);
  for (int round = 0; round < 20000; ++round) {
    const std::string text = random.make();
    const TestSupport::ReferenceConfigReader reference(text);
    const auto pieceSize = static_cast<std::size_t>(1 + random.number(20));
    for (const char* const section : {"A", "AB", "A B"}) {
      for (const char* const key : {"k", "kk", "[A"}) {
        ASSERT_EQ(scan(text, section, key, pieceSize), reference.read(section, key))
            << testing::PrintToString(text) << " [" << section << "] " << key << ", pieces of "
            << pieceSize;
      }
    }
  }
}

}  // namespace
}  // namespace TarvexDiags::System
