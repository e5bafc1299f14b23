#pragma once

#include <fstream>
#include <map>
#include <regex>
#include <string>

#include "tests/support/Places.h"

namespace TarvexDiags::TestSupport {

/// The names of an enumeration of the controller's, by their numbers, as its header spells them.
/// @param header named from the root of the sources
inline std::map<unsigned int, std::string> enumeratorsOf(const std::string& header,
                                                         const std::string& enumeration) {
  static const std::regex kEnumerator("^    ([A-Z_]+) = ([0-9]+),");
  std::ifstream stream(sourcePath(header));
  std::map<unsigned int, std::string> found;
  bool isInside = false;
  for (std::string line; std::getline(stream, line);) {
    std::smatch match;
    if (isInside && std::regex_search(line, match, kEnumerator)) {
      found.emplace(std::stoul(match[2]), match[1]);
    }
    isInside = line.starts_with("  enum " + enumeration + " ") || (isInside && line != "  };");
  }
  return found;
}

/// The codes of results, and those of the controller's events.
inline std::map<unsigned int, std::string> resultCodes() {
  return enumeratorsOf("DiagCtrl/DiagnosticController.h", "errorCode");
}
inline std::map<unsigned int, std::string> eventCodes() {
  return enumeratorsOf("DiagCtrl/DiagCtrlEvent.h", "eventCode");
}

}  // namespace TarvexDiags::TestSupport
