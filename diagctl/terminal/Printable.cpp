#include "diagctl/terminal/Printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kReplacement = "\xef\xbf\xbd";

std::string writtenOut(const Character& character) {
  if (character.isValid && character.code == '\n') {
    return "\\n";
  }
  if (character.isValid && character.code == '\t') {
    return "\\t";
  }
  const auto byte = static_cast<unsigned char>(character.bytes.front());
  return character.bytes.size() == 1
             ? fmt::format("\\x{:02x}", byte)
             : fmt::format("\\u{:04x}", static_cast<unsigned int>(character.code));
}

}  // namespace

bool isHarmless(char32_t code) {
  struct Range {
    char32_t first;
    char32_t last;
  };
  static constexpr Range kHarmful[] = {
      {0, 0x1f},        {0x7f, 0x9f},     {0x61c, 0x61c},  // controls; the mark of Arabic letters
      {0x200e, 0x200f}, {0x2028, 0x202e},                  // marks, ends of lines, embeddings
      {0x2066, 0x2069},                                    // isolates
  };
  return std::none_of(std::begin(kHarmful), std::end(kHarmful), [&](const Range& range) {
    return code >= range.first && code <= range.last;
  });
}

std::string toUtf8(std::string_view text) {
  return System::toUtf8(text, kReplacement);
}

std::string toPrintable(std::string_view text) {
  return toPrintable(text, "\\n");
}

std::string toPrintable(std::string_view text, std::string_view lineBreak) {
  std::string printable;
  while (!text.empty()) {
    const Character character = firstCharacterOf(text);
    if (character.isValid && character.code == '\n') {
      printable += lineBreak;
    } else if (character.isValid && isHarmless(character.code)) {
      printable += character.bytes;
    } else {
      printable += writtenOut(character);
    }
    text.remove_prefix(character.bytes.size());
  }
  return printable;
}

}  // namespace TarvexDiags::FrontEnd
