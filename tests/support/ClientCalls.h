#pragma once

#include <fstream>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>

#include "tests/support/Places.h"

namespace TarvexDiags::TestSupport {

/// The names of the client calls that the controller's header declares, overloads as often as they
/// stand there: what a table of all calls is held against.
inline std::multiset<std::string> clientCalls() {
  std::ifstream header(sourcePath("DiagCtrl/DiagnosticController.h"));
  std::multiset<std::string> names;
  const std::regex declaration(R"(  (?:errorCode|bool|int) (\w+)\(.*)");
  for (std::string line; std::getline(header, line);) {
    if (line.find("// ---- Inside the library") != std::string::npos) {
      return names;
    }
    if (std::smatch match; std::regex_match(line, match, declaration)) {
      names.insert(match[1]);
    }
  }
  throw std::runtime_error("the header does not tell where the client calls end");
}

}  // namespace TarvexDiags::TestSupport
