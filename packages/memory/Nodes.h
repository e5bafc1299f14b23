#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "watch/SystemFiles.h"

namespace TarvexDiags::Memory {

/// @brief A NUMA node that has memory, or the whole machine. Thread-safety: a plain value.
struct Node {
  int number = -1;        ///< -1: the machine, whose nodes cannot be told apart
  std::vector<int> cpus;  ///< those that are nearest; empty for a node of memory alone
  std::uint64_t bytes = 0;

  /// @brief "node0", or "memory" for the machine.
  std::string tagComponent() const;
};

/// @brief What a user allows a test to take.
struct SizeLimits {
  std::uint64_t maximumBytes;  ///< 0: no limit of its own
  std::uint64_t marginBytes;   ///< never taken of what is available
  unsigned int marginPercent;  ///< of what is available, the same; the larger of both counts
};

/// @brief The nodes with memory, or one for the machine where the kernel shows no nodes.
std::vector<Node> findNodes(const Watching::SystemFiles& files);

/// @brief How much memory of a node could be had now: as the kernel estimates it, no more than what
/// the control groups of this process leave, and the node's share of both where there are several.
/// @return nothing when the kernel does not tell
std::optional<std::uint64_t> availableBytes(const Watching::SystemFiles& files, const Node& node);

/// @brief How much of that a test takes: 0 when the margin leaves nothing.
std::uint64_t testedBytes(std::uint64_t available, const SizeLimits& limits);

}  // namespace TarvexDiags::Memory
