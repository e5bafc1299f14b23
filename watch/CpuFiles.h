#pragma once

#include <filesystem>
#include <optional>

#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief The folder of a logical processor.
std::filesystem::path folderOfCpu(int number);

/// @brief Where a logical processor lies; -1 for what the kernel does not know.
struct CpuPlace {
  int socket = -1;
  int die = -1;
  int core = -1;  ///< within the die; logical processors may share it
};

/// @return nothing for one that is offline or not there
std::optional<CpuPlace> placeOfCpu(const SystemFiles& files, int number);

}  // namespace TarvexDiags::Watching
