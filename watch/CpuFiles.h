#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief The numbers in a list as the kernel writes it ("0-3,8"), rising; what is malformed is
/// skipped.
std::vector<int> parseCpuList(std::string_view text);

/// @brief Where the kernel shows the logical processors, and the numbers of those that are online.
inline const std::filesystem::path kCpusFolder = "sys/devices/system/cpu";
std::vector<int> onlineCpus(const SystemFiles& files);

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

/// @brief What /proc/cpuinfo tells of a logical processor: "model name" and so on, without the
/// blanks around.
using CpuRows = std::map<std::string, std::string>;

/// @brief Those of all that are online, by their numbers.
std::map<int, CpuRows> readCpuRows(const SystemFiles& files);

/// @brief What the kernel counts of slowing down for heat. All threads of a core show the same of
/// the core, and all cores of a processor the same of the processor.
enum class HeatCounter { OfCore, OfProcessor };

/// @brief The name of its file, by which it is told.
const char* nameOf(HeatCounter counter);

/// @return nothing where the kernel counts none, and for a processor that is offline
std::optional<std::uint64_t> timesThrottled(const SystemFiles& files, int cpu, HeatCounter counter);

}  // namespace TarvexDiags::Watching
