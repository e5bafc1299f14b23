#include "packages/storage/FileSource.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <functional>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "packagekit/TestContext.h"
#include "packages/storage/AnsweredCall.h"
#include "packages/storage/StorageEvents.h"

namespace TarvexDiags::Storage {
namespace {

// A disk that does not even tell its size is there no more.
[[noreturn]] void failWithoutSize() {
  throw PackageKit::DeviceVanished(Reasons::kNoBlocksLeft.token, messageOf(errno));
}

struct stat statusOf(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) {
    failWithoutSize();
  }
  return status;
}

std::string folderOf(dev_t device) {
  return "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

bool nameIsThere(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

// The kernel sets the size of a disk that left to nothing before it removes its folder.
bool isGone(const OpenedFile& file) {
  std::uint64_t bytes = 0;
  struct stat status {};
  const int descriptor = file.descriptor.get();
  const bool answers = file.statistics.empty()
                           ? fstat(descriptor, &status) == 0
                           : ioctl(descriptor, BLKGETSIZE64, &bytes) == 0 && bytes > 0;
  return !answers || !std::all_of(file.presence.begin(), file.presence.end(), nameIsThere);
}

std::optional<WriteActivity> activityOf(const OpenedFile& file) {
  if (file.statistics.empty()) {
    struct stat status {};
    if (fstat(file.descriptor.get(), &status) != 0) {
      return std::nullopt;
    }
    const timespec changed = status.st_mtim;
    return WriteActivity{static_cast<std::uint64_t>(changed.tv_sec) * 1'000'000'000 +
                             static_cast<std::uint64_t>(changed.tv_nsec),
                         false};
  }
  // Fields 1, 5 and 7 of "stat": reads and writes completed, sectors written; "inflight": reads,
  // writes. Where not even reads are counted, or counting is switched off, writes are not known.
  std::uint64_t skipped = 0;
  std::uint64_t reads = 0;
  std::uint64_t writes = 0;
  std::uint64_t sectors = 0;
  std::ifstream(file.statistics + "/stat") >> reads >> skipped >> skipped >> skipped >> writes >>
      skipped >> sectors;
  int counts = 1;
  std::ifstream(file.statistics + "/queue/iostats") >> counts;
  if (reads == 0 || counts == 0) {
    return std::nullopt;
  }
  std::uint64_t inFlight = 0;
  std::ifstream(file.statistics + "/inflight") >> skipped >> inFlight;
  return WriteActivity{writes + sectors, inFlight != 0};
}

// Direct transfers to a file want the file system's block; this suits every one of them.
constexpr std::uint32_t kFileBlock = 4096;

}  // namespace

FileSource::FileSource(OpenedFile file, const SourceOptions& options)
    : m_file(endedAside(std::move(file))),
      m_options(options),
      m_buffers(std::make_unique<PageBuffer>(static_cast<std::size_t>(options.slots) *
                                             options.slotSize)) {}

FileSource::~FileSource() {
  if (m_isAbandoned) {
    keepForEver(std::move(m_buffers));
    keepForEver(std::make_unique<std::shared_ptr<const OpenedFile>>(m_file));
  }
}

bool FileSource::hasVanished(const Waiter& waiter) {
  return answered(waiter, patience(), [file = m_file] { return isGone(*file); });
}

std::span<std::byte> FileSource::buffer(unsigned int slot) {
  return m_buffers->bytes().subspan(static_cast<std::size_t>(slot) * m_options.slotSize,
                                    m_options.slotSize);
}

std::optional<WriteActivity> FileSource::writeActivity(const Waiter& waiter) {
  return answered(waiter, patience(), [file = m_file] { return activityOf(*file); });
}

void FileSource::dropCached(const Transfer& transfer) const {
  if (m_file->isCached && transfer.direction == Direction::Read) {
    posix_fadvise(descriptor(), static_cast<off_t>(transfer.offset), transfer.length,
                  POSIX_FADV_DONTNEED);
  }
}

Completion FileSource::completionOf(unsigned int slot, std::int64_t result,
                                    std::chrono::nanoseconds latency) {
  Completion completion;
  completion.slot = slot;
  completion.latency = latency;
  if (result < 0) {
    completion.error = static_cast<int>(-result);
  } else {
    completion.length = static_cast<std::uint32_t>(result);
  }
  return completion;
}

namespace {

// Whether a program or another machine serves the file.
bool isServed(int descriptor) {
  constexpr std::array<std::uint32_t, 6> served{FUSE_SUPER_MAGIC, NFS_SUPER_MAGIC,
                                                V9FS_MAGIC,       CIFS_SUPER_MAGIC,
                                                SMB2_SUPER_MAGIC, CEPH_SUPER_MAGIC};
  struct statfs status {};
  return fstatfs(descriptor, &status) == 0 &&
         std::find(served.begin(), served.end(), static_cast<std::uint32_t>(status.f_type)) !=
             served.end();
}

void lookAtDisk(OpenedFile& file, const struct stat& status) {
  int block = 0;
  if (ioctl(file.descriptor.get(), BLKGETSIZE64, &file.size) != 0 ||
      ioctl(file.descriptor.get(), BLKSSZGET, &block) != 0) {
    failWithoutSize();
  }
  file.blockSize = static_cast<std::uint32_t>(block);
  file.statistics = folderOf(status.st_rdev);
  file.presence = {file.statistics};
}

void lookAtFile(OpenedFile& file, const struct stat& status, const std::string& disk) {
  file.size = static_cast<std::uint64_t>(status.st_size);
  file.blockSize = kFileBlock;
  file.isRegular = S_ISREG(status.st_mode);
  file.presence = {folderOf(status.st_dev)};
  if (!disk.empty()) {
    file.presence.push_back("/sys/class/block/" + disk);
  }
}

OpenedFile lookAtAny(PackageKit::UniqueDescriptor descriptor, const std::string& disk) {
  OpenedFile file{.descriptor = std::move(descriptor)};
  const struct stat status = statusOf(file.descriptor.get());
  S_ISBLK(status.st_mode) ? lookAtDisk(file, status) : lookAtFile(file, status, disk);
  file.size -= file.size % file.blockSize;
  file.isCached = (fcntl(file.descriptor.get(), F_GETFL) & O_DIRECT) == 0;
  file.isServed = isServed(file.descriptor.get());
  // Some of them are never there, as in a container.
  file.presence.erase(
      std::remove_if(file.presence.begin(), file.presence.end(), std::not_fn(nameIsThere)),
      file.presence.end());
  return file;
}

}  // namespace

std::unique_ptr<BlockSource> makeSource(OpenedFile file, const SourceOptions& options) {
  try {
    if (options.useUring && !file.isServed) {
      try {
        return makeUringSource(file, options);
      } catch (const std::system_error&) {
        // No io_uring here, or none allowed: threads do the same, at a price.
      }
    }
    return makeThreadSource(std::move(file), options);
  } catch (const std::bad_alloc&) {
    throw NotSupported(Reasons::kNoMemoryForBuffers);
  }
}

void failToOpen(const std::string& path, int error) {
  const std::string cause = std::generic_category().message(error);
  switch (error) {
    case EACCES:
    case EPERM:
      throw NotSupported(Reasons::kNeedsPrivilege, path + ": " + cause);
    case EBUSY:
      throw NotSupported(Reasons::kCannotBeRead, path + ": " + cause);
    case ENOMEM:
    case EMFILE:
    case ENFILE:
    case EINTR:
      throw std::system_error(error, std::generic_category(), path);
    default:  // it was there when the machine's disks were looked for
      throwVanished(path, goneBy(error), cause);
  }
}

OpenedFile openFile(const std::string& path) {
  // Opening shall not wait for a medium, but reads shall wait for their end.
  const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
  int descriptor = open(path.c_str(), flags | O_DIRECT);
  if (descriptor < 0 && errno == EINVAL) {
    descriptor = open(path.c_str(), flags);
  }
  if (descriptor < 0) {
    failToOpen(path, errno);
  }
  PackageKit::UniqueDescriptor opened(descriptor);
  fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
  return lookAtAny(std::move(opened), {});
}

OpenedFile lookAt(PackageKit::UniqueDescriptor file, const std::string& disk) {
  OpenedFile opened = lookAtAny(std::move(file), disk);
  if (!opened.isRegular) {
    throw std::invalid_argument("only regular files are written to");
  }
  return opened;
}

std::unique_ptr<BlockSource> openForReading(const std::string& path, const SourceOptions& options) {
  return makeSource(openFile(path), options);
}

std::unique_ptr<BlockSource> overFile(PackageKit::UniqueDescriptor file,
                                      const SourceOptions& options) {
  return makeSource(lookAt(std::move(file), {}), options);
}

}  // namespace TarvexDiags::Storage
