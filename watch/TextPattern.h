#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace TarvexDiags::Watching {

/// @brief Finds the first place where a text has the form of a pattern, and what stands there.
///
/// A pattern is literal text with "%d" for decimal digits, "%x" for hexadecimal ones, "%w" for what
/// has no blank, and "%*" for anything up to the literal text behind it; all but the last take one
/// byte at least. There is no going back once a field has matched, so the time is linear in the
/// length of the text for each place where the pattern's first literal text stands. A pattern
/// begins with literal text.
/// @return what the fields held, in order; nothing when there is no such place
std::optional<std::vector<std::string_view>> match(std::string_view text, std::string_view pattern);

/// @brief The same at the text's beginning alone, for a pattern that may begin with a field.
std::optional<std::vector<std::string_view>> matchFront(std::string_view text,
                                                        std::string_view pattern);

}  // namespace TarvexDiags::Watching
