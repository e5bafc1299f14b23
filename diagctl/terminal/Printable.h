#pragma once

#include <string>

namespace TarvexDiags::FrontEnd {

/// Names and texts come from packages and devices, whatever bytes those hold.

/// The text with a replacement character for each part that is no UTF-8.
std::string toUtf8(const std::string& text);

/// The text as UTF-8 without control characters, for lines that people read: none can move a
/// terminal's cursor or begin a line of its own.
/// @param lineBreak stands for each line break of the text.
std::string toPrintable(const std::string& text, const std::string& lineBreak = " ");

}  // namespace TarvexDiags::FrontEnd
