#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "packagekit/UniqueDescriptor.h"

namespace TarvexDiags::Storage {

/// @brief Makes a file of the given size that has no name: it is gone with its last descriptor,
/// however the process ends. Its space is reserved. Past the page cache where the file system
/// allows.
///
/// @param directory where; must be writable.
/// Throws std::system_error, with ENOSPC when the space does not suffice.
PackageKit::UniqueDescriptor makeTemporaryFile(const std::string& directory, std::uint64_t size);

/// @brief Where a place of the file lies on the block device that carries the file system, in
/// bytes; nothing where the file system does not tell.
std::optional<std::uint64_t> placeOnDevice(int file, std::uint64_t offset);

/// @brief Bytes that this user may still fill in the directory's file system; 0 when unknown.
std::uint64_t freeSpace(const std::string& directory);

}  // namespace TarvexDiags::Storage
