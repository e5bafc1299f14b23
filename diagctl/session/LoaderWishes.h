#pragma once

#include <string>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// What a shared object or a program asks the kernel and the dynamic loader for.
struct LoaderWishes {
  std::vector<std::string> needed;       ///< names of shared objects, or paths
  std::vector<std::string> directories;  ///< of its run path, where those are looked for
  bool keepsToItself = false;            ///< that directories are for itself alone; see below
  std::string interpreter;               ///< of a program: the loader; of a script: what reads it
  std::string argument;                  ///< of a script: what its interpreter gets before it
};

/// Reads them from a file. Directories of the older kind (DT_RPATH) are handed on to what an object
/// needs, over any number of objects, and it looks in those that are handed to it. An object with
/// ones of the newer kind (DT_RUNPATH) has them for itself and does not look in what it hands on.
/// An empty element of a run path is the working directory, as the loader
/// has it.
/// @return none for a file that cannot be read, or is neither a script nor of this machine's
/// format.
LoaderWishes loaderWishesOf(const std::string& file);

/// The elements of a list such as `LD_LIBRARY_PATH`; an empty one is ".". None for an empty list.
/// @param separators each ends an element.
std::vector<std::string> elementsOf(const std::string& list, const char* separators);

/// A path with the words that the loader replaces: `$ORIGIN` by the directory that a file is named
/// in, `$LIB` and `$PLATFORM` by each value that they have on machines of this kind, as which it is
/// depends on the loader's build and on the processor.
std::vector<std::string> expansionsOf(const std::string& path, const std::string& file);

/// The subdirectories, present or not, in which the loader looks first for the processor's variant
/// of what it is to find in a directory; it goes on to those below.
std::vector<std::string> variantDirectoriesOf(const std::string& directory);

}  // namespace TarvexDiags::FrontEnd
