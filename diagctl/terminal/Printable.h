#pragma once

#include <string>
#include <string_view>

#include "System/internal/Utf8.h"

namespace TarvexDiags::FrontEnd {

/// Names and texts come from packages, devices and logs, whatever bytes those hold.

using System::Character;
using System::firstCharacterOf;
using System::wholeCharacters;

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
