#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "packagekit/UniqueDescriptor.h"

namespace TarvexDiags::Storage {

/// @brief Makes a file of the given size that has no name: it is gone with its last descriptor,
/// however the process ends. Its space is reserved, and it lies past the page cache, where the file
/// system allows.
///
/// @param directory where; must be writable.
/// @param await does what may take as long as the kernel likes: opening it, and each of the pieces
/// in
///   which its space is reserved. It may leave by an exception while that goes on.
/// Throws NotSupported when there is no room for it or it may not be written, std::system_error,
/// with ENODEV when the file system has gone.
using Await = std::function<void(std::function<void()>)>;
PackageKit::UniqueDescriptor makeTemporaryFile(
    const std::string& directory, std::uint64_t size,
    const Await& await = [](const std::function<void()>& step) { step(); });

/// @brief Where a place of the file lies on the block device that carries the file system, in
/// bytes; nothing where the file system does not tell.
std::optional<std::uint64_t> placeOnDevice(int file, std::uint64_t offset);

/// @brief Bytes that this user may still fill in the directory's file system; nothing, and errno,
/// when it does not tell.
std::optional<std::uint64_t> freeSpace(const std::string& directory);

}  // namespace TarvexDiags::Storage
