#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace TarvexDiags::Inventory {

/// @brief Where a fact stands in a document: the keys on the way to it. In a pattern, "*" within a
/// step stands for any characters, and the step "**" for any number of steps, also none.
using FactPath = std::vector<std::string>;

/// @brief As a JSON pointer (RFC 6901): "/disks/0000:16~102.0~1n1/firmware".
std::string toText(const FactPath& path);

/// @brief Reads a pattern, written as a JSON pointer with wildcards.
/// @throws std::invalid_argument with the reason, for people.
FactPath patternOf(std::string_view text);

/// @brief Whether a pattern means more than the path that is written as it is.
bool hasWildcard(const FactPath& pattern);

/// @brief Whether a path is one of those that a pattern means.
bool matches(const FactPath& pattern, const FactPath& path);

/// @brief Whether a path is another one or leads to something within it.
bool isWithin(const FactPath& path, const FactPath& whole);

/// @brief How many steps lead to the part of the machine to which a path belongs: a device, a
/// memory module, or the section as a whole where it has no parts.
std::size_t stepsToPart(const FactPath& path);

/// @brief The part of the machine to which a path belongs.
FactPath partOf(const FactPath& path);

}  // namespace TarvexDiags::Inventory
