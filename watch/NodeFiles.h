#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace TarvexDiags::Watching {

/// @brief Where the kernel shows the nodes of the memory, and one of them.
inline const std::filesystem::path kNodesFolder = "sys/devices/system/node";
std::filesystem::path folderOfNode(int number);

/// @brief The row "MemTotal:   123 kB" of a file meminfo, in bytes; behind "Node 0 " in that of a
/// node. Nothing without such a row.
/// @param name without the colon
std::optional<std::uint64_t> bytesOfRow(const std::string& text, std::string_view name);

}  // namespace TarvexDiags::Watching
