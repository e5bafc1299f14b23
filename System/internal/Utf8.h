#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace TarvexDiags::System {

/// The first character of a text.
struct Character {
  std::string_view bytes;  ///< of the text
  char32_t code = 0;
  bool isValid = false;  ///< whether the bytes are UTF-8; else they are one
};

/// Whether the byte goes on with a character that has begun.
inline bool isContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U;
}

/// What the first byte of a character says of it.
struct CharacterLead {
  std::size_t length = 0;  ///< of the character; 0 for a byte that begins none
  char32_t bits = 0;       ///< that it brings
  char32_t smallest = 0;   ///< character of that length
};

inline CharacterLead leadOf(char first) {
  const auto byte = static_cast<unsigned char>(first);
  if (byte < 0x80) {
    return {1, byte, 0};
  }
  if (byte >= 0xc0 && byte < 0xe0) {
    return {2, byte & 0x1fU, 0x80};
  }
  if (byte >= 0xe0 && byte < 0xf0) {
    return {3, byte & 0x0fU, 0x800};
  }
  return byte >= 0xf0 && byte < 0xf8 ? CharacterLead{4, byte & 0x07U, 0x10000} : CharacterLead();
}

/// @param text not empty.
inline Character firstCharacterOf(std::string_view text) {
  const CharacterLead lead = leadOf(text.front());
  const Character broken{text.substr(0, 1), 0, false};
  if (lead.length == 0 || lead.length > text.size()) {
    return broken;
  }
  char32_t code = lead.bits;
  for (const char next : text.substr(1, lead.length - 1)) {
    if (!isContinuation(next)) {
      return broken;
    }
    code = code << 6U | (static_cast<unsigned char>(next) & 0x3fU);
  }
  const bool isCharacter = code <= 0x10ffff && (code < 0xd800 || code > 0xdfff);
  return code >= lead.smallest && isCharacter ? Character{text.substr(0, lead.length), code, true}
                                              : broken;
}

/// The text with a replacement for each byte that is no UTF-8.
inline std::string toUtf8(std::string_view text, std::string_view replacement) {
  std::string valid;
  valid.reserve(text.size());
  while (!text.empty()) {
    const Character character = firstCharacterOf(text);
    valid += character.isValid ? character.bytes : replacement;
    text.remove_prefix(character.bytes.size());
  }
  return valid;
}

/// As much of the text as this many bytes hold, and no part of a character.
inline std::string_view wholeCharacters(std::string_view text, std::size_t most) {
  if (text.size() <= most) {
    return text;
  }
  while (most > 0 && isContinuation(text[most])) {
    --most;
  }
  return text.substr(0, most);
}

}  // namespace TarvexDiags::System
