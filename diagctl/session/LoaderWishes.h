#pragma once

#include <string>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// What a shared object or a program asks the dynamic loader for.
struct LoaderWishes {
  std::vector<std::string> needed;       ///< names of shared objects, or paths
  std::vector<std::string> directories;  ///< of its run path, where those are looked for
  std::string interpreter;               ///< of a program: the loader itself; empty for none
};

/// Reads them from a file. `$ORIGIN` in a run path is the directory that the file is named in; of
/// an element with another of the loader's words, what stands in front of that. An empty element is
/// the working directory, as the loader has it.
/// @return none for a file that cannot be read, or is no file of this machine's format.
LoaderWishes loaderWishesOf(const std::string& file);

/// The elements of a list such as `LD_LIBRARY_PATH`; an empty one is ".". None for an empty list.
/// @param separators each ends an element.
std::vector<std::string> elementsOf(const std::string& list, const char* separators);

}  // namespace TarvexDiags::FrontEnd
