#pragma once

#include <string>

namespace TarvexDiags::TestSupport {

/// A file or folder of the sources, named from their root.
std::string sourcePath(const std::string& relative);

/// The library of a module that tests load, by the module's name.
std::string modulePath(const std::string& module);

}  // namespace TarvexDiags::TestSupport
