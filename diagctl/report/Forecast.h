#pragma once

#include <string>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// What one test still has to do, and what it keeps other tests from.
struct Load {
  std::string tag;            ///< of the resource that it takes: its own part, behind those above
  double seconds = -1;        ///< below 0: unknown
  bool takesMachine = false;  ///< it runs alone
};

/// How long tests take together.
struct TimeNeeded {
  double oneAfterTheOther = 0;
  /// Tests on one resource wait for each other, and a resource waits for those above it: what takes
  /// longest, behind what runs alone.
  double sideBySide = 0;
  bool isComplete = true;  ///< no figure was unknown; else each sum is the least that it can be
};

TimeNeeded timeNeeded(const std::vector<Load>& loads);

}  // namespace TarvexDiags::FrontEnd
