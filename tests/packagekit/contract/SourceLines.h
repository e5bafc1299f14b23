#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "tests/support/Places.h"

namespace TarvexDiags::PackageKit::Contract {

/// The lines of a source file.
inline std::vector<std::string> linesOf(const std::string& file) {
  std::ifstream stream(TestSupport::sourcePath(file));
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  EXPECT_FALSE(lines.empty()) << file;
  return lines;
}

/// The entries of a configuration file: "[section] key=value".
inline std::set<std::string> entriesOf(const std::string& file) {
  std::set<std::string> entries;
  std::string section;
  for (const std::string& line : linesOf(file)) {
    if (line.rfind('[', 0) == 0) {
      section = line;
    } else if (line.find('=') != std::string::npos && line.rfind('#', 0) != 0) {
      EXPECT_TRUE(entries.insert(section + " " + line).second) << line << " stands twice";
    }
  }
  return entries;
}

}  // namespace TarvexDiags::PackageKit::Contract
