#pragma once

#include <cstdint>
#include <string>

#include "packages/storage/Disks.h"

namespace TarvexDiags::Storage {

/// @brief Where a temporary file on a disk goes.
struct FilePlace {
  std::string directory;
  std::string device;       ///< the kernel's name of what carries the file system
  std::uint64_t bytes = 0;  ///< how large the file may become
};

/// @brief At most this share of the free space is filled, so that nobody else runs out of it.
inline constexpr std::uint64_t kShareOfFreeSpace = 10;

/// @brief The directory with the most free space among those on the disk that this user may write
/// to. For a file that stands for a disk: the directory that the file lies in.
/// @param wanted bytes; the place offers at most as many.
/// Throws NotSupported when there is no such directory, or too little space.
FilePlace findFilePlace(const Disk& disk, std::uint64_t wanted);

}  // namespace TarvexDiags::Storage
