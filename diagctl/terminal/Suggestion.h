#pragma once

#include <string>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// Names for what somebody may have meant: without regard to case, each once, the best first.

/// Those that begin with the word.
std::vector<std::string> beginningWith(const std::string& word,
                                       const std::vector<std::string>& names);

/// Those that are so near that a slip of the hand explains it, or begin with the word: three at
/// most.
std::vector<std::string> nearestTo(const std::string& word, const std::vector<std::string>& names);

/// The nearest ones as the end of a message: "; did you mean 'memory' or 'network'?". Empty if none
/// is near.
std::string didYouMean(const std::string& word, const std::vector<std::string>& names);

/// "'one', 'two' or 'three'".
std::string asAlternatives(const std::vector<std::string>& names);

}  // namespace TarvexDiags::FrontEnd
