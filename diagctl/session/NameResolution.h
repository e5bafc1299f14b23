#pragma once

#include <string>
#include <vector>

#include "diagctl/session/Catalogue.h"
#include "diagctl/session/Selection.h"

namespace TarvexDiags::FrontEnd {

/// What was typed, as patterns that select:
/// - lists by commas become their parts, unless a name holds the commas;
/// - the beginning of one name alone becomes that name;
/// - words become patterns of the only kind that they match; a beginning is looked for among
///   packages first, then among devices. One that matches nothing, or several, stays a word, and
///   selects nothing.
SelectionPatterns resolve(const Catalogue& catalogue, const SelectionPatterns& typed);

/// The patterns that a word stands for that may name any kind of thing: its parts by commas, and
/// the whole name for the beginning of one alone.
std::vector<std::string> patternsOfWord(const Catalogue& catalogue, const std::string& word);

/// What may have been meant by a pattern that matches nothing, as the end of a message; empty if
/// nothing is near.
std::string hintFor(const Catalogue& catalogue, PatternKind kind, const std::string& pattern);

/// The patterns that match nothing, each with that:
/// "test 'Goood'; did you mean 'Good'?".
std::vector<std::string> describeUnmatched(const Catalogue& catalogue,
                                           const SelectionPatterns& patterns);

}  // namespace TarvexDiags::FrontEnd
