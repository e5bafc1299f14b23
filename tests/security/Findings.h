#pragma once

#include <string>
#include <vector>

#include "diagctl/session/PathInspection.h"

namespace TarvexDiags::SecurityTest {

/// What a look at one path finds.
inline std::vector<std::string> findingsOf(const std::string& path) {
  FrontEnd::PathInspection inspection;
  inspection.inspect(path);
  return inspection.findings();
}

}  // namespace TarvexDiags::SecurityTest
