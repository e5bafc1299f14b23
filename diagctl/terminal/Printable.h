#pragma once

#include <string>
#include <string_view>

namespace TarvexDiags::FrontEnd {

/// Names and texts come from packages, devices and logs, whatever bytes those hold.

/// The first character of a text.
struct Character {
  std::string_view bytes;  ///< of the text
  char32_t code = 0;
  bool isValid = false;  ///< whether the bytes are UTF-8; else they are one
};

/// @param text not empty.
Character firstCharacterOf(std::string_view text);

/// Whether a character may reach a terminal as it is: none that moves the cursor, begins a line or
/// turns the direction of what stands beside it.
bool isHarmless(char32_t code);

/// The text with a replacement character for each byte that is no UTF-8.
std::string toUtf8(std::string_view text);

/// The text in one line: what is not harmless is written out, such as "\x1b", "\n" or "\u202e".
/// Stays as it is when it is made printable again.
std::string toPrintable(std::string_view text);

/// The same, with something else for each line break.
std::string toPrintable(std::string_view text, std::string_view lineBreak);

}  // namespace TarvexDiags::FrontEnd
