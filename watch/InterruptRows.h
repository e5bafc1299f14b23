#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

/// @brief The rows of /proc/interrupts that have these labels ("MCE"): for each, its count by the
/// number of the CPU. Columns are of the CPUs that are online, as the head names them. What is
/// malformed is left out.
std::map<std::string, std::map<int, std::uint64_t>> parseInterruptRows(
    std::string_view text, const std::vector<std::string>& labels);

/// @brief What a counter that grows says of a processor.
enum class Trouble {
  Throttling,    ///< it slows down for heat: cooling, not the processor
  Corrected,     ///< errors that it put right itself
  MachineCheck,  ///< an error that it could not
};

/// @brief A row of /proc/interrupts that tells of such trouble.
struct TroubleRow {
  const char* label;
  Trouble trouble;
  std::map<int, std::uint64_t> counts;  ///< by the number of the CPU
};

/// @brief Those that this machine has.
std::vector<TroubleRow> readTroubleRows(const SystemFiles& files);

}  // namespace TarvexDiags::Watching
