#pragma once

#include <fstream>
#include <string>

namespace TarvexDiags::TestSupport {

/// Whether a file is mapped into this process, as a shared object that is open is.
inline bool isMapped(const std::string& path) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(path) != std::string::npos) {
      return true;
    }
  }
  return false;
}

}  // namespace TarvexDiags::TestSupport
