#include "packages/storage/FilePlace.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "packages/storage/StorageEvents.h"
#include "packages/storage/TemporaryFile.h"

namespace TarvexDiags::Storage {
namespace {

constexpr std::uint64_t kSmallestFile = std::uint64_t{16} << 20;
constexpr std::uint64_t kUnit = std::uint64_t{1} << 20;

std::optional<dev_t> writableDirectory(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
      access(path.c_str(), W_OK | X_OK) != 0) {
    return std::nullopt;
  }
  return status.st_dev;
}

/// @brief The first of a file system's usual places that this user may write to; empty if none.
std::string writableOn(const std::string& mount) {
  struct stat root {};
  if (stat(mount.c_str(), &root) != 0 || !S_ISDIR(root.st_mode)) {
    return {};
  }
  for (const char* below : {"/tmp", "/var/tmp", ""}) {
    std::string directory = mount == "/" && *below != '\0' ? below : mount + below;
    if (writableDirectory(directory) == root.st_dev) {
      return directory;
    }
  }
  return {};
}

std::vector<Mount> candidates(const Disk& disk) {
  if (disk.attachment != Attachment::File) {
    return mountsOn(disk.name);
  }
  const std::string folder = std::filesystem::absolute(disk.path).parent_path().string();
  return {{folder, ""}};
}

}  // namespace

FilePlace findFilePlace(const Disk& disk, std::uint64_t wanted) {
  FilePlace best;
  for (const Mount& mount : candidates(disk)) {
    const std::string directory = writableOn(mount.directory);
    const std::uint64_t space = directory.empty() ? 0 : freeSpace(directory) / kShareOfFreeSpace;
    if (space > best.bytes) {
      best = {directory, mount.device, space};
    }
  }
  if (best.directory.empty()) {
    throw NotSupported("no file system that can be written to lies on " + disk.name);
  }
  best.bytes = std::min(best.bytes, wanted) / kUnit * kUnit;
  if (best.bytes < std::min(wanted, kSmallestFile)) {
    throw NotSupported("too little free space in " + best.directory);
  }
  return best;
}

}  // namespace TarvexDiags::Storage
