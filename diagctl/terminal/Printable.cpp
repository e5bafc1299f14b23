#include "diagctl/terminal/Printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kReplacement = "\xef\xbf\xbd";

/// What the first byte of a character says of it.
struct Lead {
  std::size_t length;
  char32_t bits;      ///< that it brings
  char32_t smallest;  ///< character of that length
};

// Length 0 for a byte that begins none.
Lead leadOf(unsigned char byte) {
  if (byte < 0x80) {
    return {1, byte, 0};
  }
  if (byte >= 0xc0 && byte < 0xe0) {
    return {2, byte & 0x1fU, 0x80};
  }
  if (byte >= 0xe0 && byte < 0xf0) {
    return {3, byte & 0x0fU, 0x800};
  }
  return byte >= 0xf0 && byte < 0xf8 ? Lead{4, byte & 0x07U, 0x10000} : Lead{0, 0, 0};
}

bool isCharacter(char32_t code) {
  return code <= 0x10ffff && (code < 0xd800 || code > 0xdfff);
}

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

Character firstCharacterOf(std::string_view text) {
  const Lead lead = leadOf(static_cast<unsigned char>(text.front()));
  const Character broken{text.substr(0, 1), 0, false};
  if (lead.length == 0 || lead.length > text.size()) {
    return broken;
  }
  char32_t code = lead.bits;
  for (const char next : text.substr(1, lead.length - 1)) {
    const auto byte = static_cast<unsigned char>(next);
    if ((byte & 0xc0U) != 0x80U) {
      return broken;
    }
    code = code << 6U | (byte & 0x3fU);
  }
  return code >= lead.smallest && isCharacter(code)
             ? Character{text.substr(0, lead.length), code, true}
             : broken;
}

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
  std::string valid;
  while (!text.empty()) {
    const Character character = firstCharacterOf(text);
    valid += character.isValid ? character.bytes : kReplacement;
    text.remove_prefix(character.bytes.size());
  }
  return valid;
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
