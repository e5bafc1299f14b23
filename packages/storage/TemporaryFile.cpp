#include "packages/storage/TemporaryFile.h"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <system_error>

#include "packages/storage/AnsweredCall.h"
#include "packages/storage/StorageEvents.h"
#include "packages/storage/TransferQueue.h"

namespace TarvexDiags::Storage {
namespace {

[[noreturn]] void fail(int error, const std::string& directory) {
  const std::string cause = std::generic_category().message(error);
  if (error == ENOSPC || error == EDQUOT || error == EROFS || error == EACCES) {
    throw NotSupported(Reasons::kNoTemporaryFile, directory + ": " + cause);
  }
  if (saysVanished(error)) {
    throwVanished(directory, goneBy(error), cause);
  }
  throw std::system_error(error, std::generic_category(), directory);
}

int openNameless(const std::string& directory, int flags) {
  return open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC | O_EXCL | flags,
              S_IRUSR | S_IWUSR);
}

/// @brief For file systems without nameless files: a name for the blink of an eye.
int openAndUnlink(const std::string& directory, int flags) {
  std::string name = directory + "/.tarvex-XXXXXX";
  const int descriptor = mkostemp(name.data(), O_CLOEXEC | flags);
  if (descriptor >= 0) {
    unlink(name.c_str());
  }
  return descriptor;
}

// Where the page cache stands between, each write reaches the medium all the same: else a single
// flush at the end would bring all of it there, for longer than anybody waits.
PackageKit::UniqueDescriptor openIn(const std::string& directory) {
  for (const int flags : {O_DIRECT, O_DSYNC}) {
    for (const auto& way : {openNameless, openAndUnlink}) {
      const int descriptor = way(directory, flags);
      if (descriptor >= 0) {
        return PackageKit::UniqueDescriptor(descriptor);
      }
    }
  }
  fail(errno, directory);
}

/// @return false where the file system reserves nothing
bool reserve(const PackageKit::UniqueDescriptor& file, std::uint64_t offset, std::uint64_t length,
             const std::string& directory) {
  if (fallocate(file.get(), 0, static_cast<off_t>(offset), static_cast<off_t>(length)) == 0) {
    return true;
  }
  if (errno != EOPNOTSUPP && errno != ENOSYS) {
    fail(errno, directory);
  }
  return false;
}

}  // namespace

PackageKit::UniqueDescriptor makeTemporaryFile(const std::string& directory, std::uint64_t size,
                                               const Await& await) {
  constexpr std::uint64_t kPiece = std::uint64_t{64} << 20;
  const auto file = endedAside(PackageKit::UniqueDescriptor());
  await([=] { *file = openIn(directory); });
  for (std::uint64_t at = 0; at < size; at += kPiece) {
    const auto reserved = std::make_shared<bool>();
    await([=] { *reserved = reserve(*file, at, std::min(kPiece, size - at), directory); });
    if (!*reserved) {
      break;  // a file system that reserves nothing tells at the writes that it is full
    }
  }
  await([=] {
    if (ftruncate(file->get(), static_cast<off_t>(size)) != 0) {
      fail(errno, directory);
    }
  });
  return std::move(*file);
}

std::optional<std::uint64_t> placeOnDevice(int file, std::uint64_t offset) {
  alignas(fiemap) std::array<std::byte, sizeof(fiemap) + sizeof(fiemap_extent)> memory{};
  fiemap request{};
  request.fm_start = offset;
  request.fm_length = 1;
  request.fm_flags = FIEMAP_FLAG_SYNC;
  request.fm_extent_count = 1;
  std::memcpy(memory.data(), &request, sizeof request);
  if (ioctl(file, FS_IOC_FIEMAP, memory.data()) != 0) {
    return std::nullopt;
  }
  std::memcpy(&request, memory.data(), sizeof request);
  fiemap_extent extent{};
  std::memcpy(&extent, memory.data() + sizeof request, sizeof extent);
  constexpr std::uint32_t elsewhere =
      FIEMAP_EXTENT_UNKNOWN | FIEMAP_EXTENT_DELALLOC | FIEMAP_EXTENT_ENCODED;
  if (request.fm_mapped_extents != 1 || (extent.fe_flags & elsewhere) != 0) {
    return std::nullopt;
  }
  return extent.fe_physical + (offset - extent.fe_logical);
}

std::optional<std::uint64_t> freeSpace(const std::string& directory) {
  struct statvfs status {};
  if (statvfs(directory.c_str(), &status) != 0) {
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(status.f_bavail) * status.f_frsize;
}

}  // namespace TarvexDiags::Storage
