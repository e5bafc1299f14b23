#pragma once

#include <cstdint>
#include <vector>

namespace TarvexDiags::Storage {

/// @brief As long as it lives, commands to NVMe controllers fail with an errno and are kept,
/// whatever they are sent to.
class NvmeCommands {
 public:
  struct Command {
    std::uint32_t nameSpace;
    std::uint32_t timeLimit;  ///< milliseconds
  };

  explicit NvmeCommands(int error);
  NvmeCommands(const NvmeCommands&) = delete;
  NvmeCommands& operator=(const NvmeCommands&) = delete;
  ~NvmeCommands();

  static const std::vector<Command>& seen();
};

}  // namespace TarvexDiags::Storage
