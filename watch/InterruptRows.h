#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace TarvexDiags::Watching {

/// @brief The rows of /proc/interrupts that have these labels ("MCE"): for each, its count by the
/// number of the CPU. Columns are of the CPUs that are online, as the head names them. What is
/// malformed is left out.
std::map<std::string, std::map<int, std::uint64_t>> parseInterruptRows(
    std::string_view text, const std::vector<std::string>& labels);

}  // namespace TarvexDiags::Watching
