#include "packages/storage/FilePlace.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>

#include "packages/storage/Figures.h"
#include "packages/storage/StorageEvents.h"
#include "packages/storage/TemporaryFile.h"
#include "packages/storage/TransferQueue.h"

namespace TarvexDiags::Storage {
namespace {

constexpr std::uint64_t kSmallestFile = std::uint64_t{16} << 20;
constexpr std::uint64_t kUnit = std::uint64_t{1} << 20;

/// @brief A place for the file, or what stands in its way: a place may be full, or forbidden.
struct Offer {
  FilePlace place = {};
  std::string full = {};
  std::string forbidden = {};
};

void append(std::string& list, const std::string& item) {
  if (!item.empty()) {
    list += (list.empty() ? "" : "; ") + item;
  }
}

/// @brief The first of a file system's usual places that this user may write to; empty if none,
/// with the last one's reason in errno.
std::string writableOn(const std::string& mount) {
  struct stat root {};
  if (stat(mount.c_str(), &root) != 0) {
    return {};
  }
  for (const char* below : {"/tmp", "/var/tmp", ""}) {
    std::string directory = mount == "/" && *below != '\0' ? below : mount + below;
    struct stat status {};
    if (stat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
        status.st_dev == root.st_dev && access(directory.c_str(), W_OK | X_OK) == 0) {
      return directory;
    }
  }
  return {};
}

std::string freeIn(const std::string& directory, std::uint64_t bytes) {
  return directory + ": " + sizeText(bytes);
}

/// @brief A place that is full comes first: it can be helped most easily.
[[noreturn]] void throwNoPlace(const std::string& full, const std::string& forbidden) {
  if (!full.empty()) {
    throw NotSupported(Reasons::kTooLittleSpace, full);
  }
  if (!forbidden.empty()) {
    throw NotSupported(Reasons::kNotWritable, forbidden);
  }
  throw NotSupported(Reasons::kNoFileSystem);
}

Offer offerOf(const Mount& mount, const std::string& disk) {
  if (mount.readOnly) {
    return {.forbidden = mount.directory + ": " + messageOf(EROFS)};
  }
  errno = 0;
  const std::string directory = writableOn(mount.directory);
  const auto space = directory.empty() ? std::nullopt : freeSpace(directory);
  if (!space) {
    const int error = errno;
    const bool isFolderOfFile = mount.device.empty();
    if (saysVanished(error) || (isFolderOfFile && error == ENOENT)) {
      throwVanished(disk, isFolderOfFile ? Reasons::kFileSystemGone : goneBy(error),
                    mount.directory + ": " + messageOf(error));
    }
    return {.forbidden = mount.directory + ": " + messageOf(error)};
  }
  const std::uint64_t share = *space / kShareOfFreeSpace;
  if (share < kUnit) {
    return {.full = freeIn(directory, *space)};
  }
  return {.place = {directory, mount.device, share}};
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
  std::string full;
  std::string forbidden;
  for (const Mount& mount : candidates(disk)) {
    const Offer offer = offerOf(mount, disk.name);
    if (offer.place.bytes > best.bytes) {
      best = offer.place;
    }
    append(full, offer.full);
    append(forbidden, offer.forbidden);
  }
  if (best.directory.empty()) {
    throwNoPlace(full, forbidden);
  }
  const std::uint64_t most = best.bytes;
  best.bytes = std::min(most, wanted) / kUnit * kUnit;
  if (best.bytes < std::min(wanted, kSmallestFile)) {
    throw NotSupported(Reasons::kTooLittleSpace, freeIn(best.directory, most * kShareOfFreeSpace));
  }
  return best;
}

}  // namespace TarvexDiags::Storage
