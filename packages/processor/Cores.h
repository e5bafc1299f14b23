#pragma once

#include <string>
#include <vector>

#include "watch/SystemFiles.h"

namespace TarvexDiags::Processor {

/// @brief A logical processor that is online. Thread-safety: a plain value.
struct Core {
  int number = 0;
  int package = -1;       ///< the socket; -1 when the kernel does not tell
  int physicalCore = -1;  ///< the core within it, which logical processors may share; -1 as above
  std::string model;      ///< as the kernel names it; may be empty
};

/// @brief The processors that are online, rising.
std::vector<Core> findCores(const Watching::SystemFiles& files);

/// @brief The best other processor for work that takes two: on another physical core if there is
/// one.
/// @param allowed  those on which the process may run
/// @return its number; -1 when there is no other
int partnerOf(int core, const std::vector<Core>& cores, const std::vector<int>& allowed);

/// @brief Some other processors, spread over those allowed, to agree on results with. An even
/// number where there are enough: with the core itself no vote ends in a tie.
std::vector<int> votersBeside(int core, const std::vector<int>& allowed);

}  // namespace TarvexDiags::Processor
