#pragma once

#include <filesystem>
#include <system_error>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// Whether there is an entry of that name: a symbolic link that leads nowhere is one, and whoever
/// opens it is told so.
bool isThere(const std::filesystem::path& path);

/// What lies in a folder, by name; as far as it could be read when that fails.
std::vector<std::filesystem::path> entriesOf(const std::filesystem::path& folder,
                                             std::error_code& failure);

/// Makes a folder, and those above it that are missing; none that others may write to, whatever the
/// umask is: root would refuse it.
/// @throws std::filesystem::filesystem_error naming the path.
void makeOwnFolders(const std::filesystem::path& path);

}  // namespace TarvexDiags::FrontEnd
