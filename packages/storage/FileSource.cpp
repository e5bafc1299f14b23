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

#include "packages/storage/Figures.h"
#include "packages/storage/StorageEvents.h"

namespace TarvexDiags::Storage {
namespace {

// A disk that does not even tell its size is there no more.
[[noreturn]] void failWithoutSize() {
  const std::string cause = std::generic_category().message(errno);
  throw std::system_error(ENODEV, std::generic_category(), "size of the disk (" + cause + ")");
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

bool isThere(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

// Direct transfers to a file want the file system's block; this suits every one of them.
constexpr std::uint32_t kFileBlock = 4096;

}  // namespace

FileSource::FileSource(PackageKit::UniqueDescriptor descriptor, const SourceOptions& options)
    : m_options(options),
      m_buffers(
          std::make_unique<PageBuffer>(static_cast<std::size_t>(options.slots) * options.slotSize)),
      m_started(options.slots) {
  m_descriptor = std::move(descriptor);
  const struct stat status = statusOf(this->descriptor());
  S_ISBLK(status.st_mode) ? lookAtDisk(status) : lookAtFile(status);
  m_size -= m_size % m_blockSize;
  m_cached = (fcntl(this->descriptor(), F_GETFL) & O_DIRECT) == 0;
  // Some of them are never there, as in a container.
  m_presence.erase(std::remove_if(m_presence.begin(), m_presence.end(), std::not_fn(isThere)),
                   m_presence.end());
}

FileSource::~FileSource() {
  if (m_isAbandoned) {
    keepForEver(std::move(m_buffers));
    keepForEver(std::make_unique<PackageKit::UniqueDescriptor>(std::move(m_descriptor)));
  }
}

void FileSource::lookAtDisk(const struct stat& status) {
  int block = 0;
  if (ioctl(descriptor(), BLKGETSIZE64, &m_size) != 0 ||
      ioctl(descriptor(), BLKSSZGET, &block) != 0) {
    failWithoutSize();
  }
  m_blockSize = static_cast<std::uint32_t>(block);
  m_statistics = folderOf(status.st_rdev);
  m_presence = {m_statistics};
}

void FileSource::lookAtFile(const struct stat& status) {
  m_size = static_cast<std::uint64_t>(status.st_size);
  m_blockSize = kFileBlock;
  m_presence = {folderOf(status.st_dev)};
  if (!m_options.disk.empty()) {
    m_presence.push_back("/sys/class/block/" + m_options.disk);
  }
}

// The kernel sets the size of a disk that left to nothing before it removes its folder.
bool FileSource::hasVanished() {
  std::uint64_t bytes = 0;
  struct stat status {};
  const bool answers = m_statistics.empty()
                           ? fstat(descriptor(), &status) == 0
                           : ioctl(descriptor(), BLKGETSIZE64, &bytes) == 0 && bytes > 0;
  return !answers || !std::all_of(m_presence.begin(), m_presence.end(), isThere);
}

std::span<std::byte> FileSource::buffer(unsigned int slot) {
  return m_buffers->bytes().subspan(static_cast<std::size_t>(slot) * m_options.slotSize,
                                    m_options.slotSize);
}

std::optional<WriteActivity> FileSource::writeActivity() {
  if (m_statistics.empty()) {
    struct stat status {};
    if (fstat(descriptor(), &status) != 0) {
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
  std::ifstream(m_statistics + "/stat") >> reads >> skipped >> skipped >> skipped >> writes >>
      skipped >> sectors;
  int counts = 1;
  std::ifstream(m_statistics + "/queue/iostats") >> counts;
  if (reads == 0 || counts == 0) {
    return std::nullopt;
  }
  std::uint64_t inFlight = 0;
  std::ifstream(m_statistics + "/inflight") >> skipped >> inFlight;
  return WriteActivity{writes + sectors, inFlight != 0};
}

void FileSource::dropCached(const Transfer& transfer) const {
  if (m_cached && transfer.direction == Direction::Read) {
    posix_fadvise(descriptor(), static_cast<off_t>(transfer.offset), transfer.length,
                  POSIX_FADV_DONTNEED);
  }
}

Completion FileSource::completionOf(unsigned int slot, std::int64_t result,
                                    Clock::time_point end) const {
  Completion completion;
  completion.slot = slot;
  completion.latency = end - m_started[slot];
  if (result < 0) {
    completion.error = static_cast<int>(-result);
  } else {
    completion.length = static_cast<std::uint32_t>(result);
  }
  return completion;
}

namespace {

/// @brief Whether a program or another machine serves the file. When that one hangs, such file
/// systems hold up whoever hands a transfer to them, and not only who waits for its end.
bool isServed(int descriptor) {
  constexpr std::array<std::uint32_t, 6> served{FUSE_SUPER_MAGIC, NFS_SUPER_MAGIC,
                                                V9FS_MAGIC,       CIFS_SUPER_MAGIC,
                                                SMB2_SUPER_MAGIC, CEPH_SUPER_MAGIC};
  struct statfs status {};
  return fstatfs(descriptor, &status) == 0 &&
         std::find(served.begin(), served.end(), static_cast<std::uint32_t>(status.f_type)) !=
             served.end();
}

std::unique_ptr<BlockSource> makeSource(PackageKit::UniqueDescriptor descriptor,
                                        const SourceOptions& options) {
  try {
    if (options.useUring && !isServed(descriptor.get())) {
      try {
        return makeUringSource(descriptor, options);
      } catch (const std::system_error&) {
        if (!descriptor) {
          throw;  // the ring was made, the disk is at fault
        }
        // No io_uring here, or none allowed: threads do the same, at a price.
      }
    }
    return makeThreadSource(descriptor, options);
  } catch (const std::bad_alloc&) {
    const auto bytes = std::uint64_t{options.slots} * options.slotSize;
    throw NotSupported("too little memory for the buffers, which take " + sizeText(bytes));
  }
}

}  // namespace

void failToOpen(const std::string& path, int error) {
  const std::string cause = std::generic_category().message(error);
  switch (error) {
    case EACCES:
    case EPERM:
    case EBUSY:
      throw NotSupported(path + " cannot be read: " + cause);
    case ENOMEM:
    case EMFILE:
    case ENFILE:
    case EINTR:
      throw std::system_error(error, std::generic_category(), path);
    default:  // it was there when the machine's disks were looked for
      throw std::system_error(ENODEV, std::generic_category(), path + " (" + cause + ")");
  }
}

std::unique_ptr<BlockSource> openForReading(const std::string& path, const SourceOptions& options) {
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
  return makeSource(std::move(opened), options);
}

std::unique_ptr<BlockSource> overFile(PackageKit::UniqueDescriptor file,
                                      const SourceOptions& options) {
  if (!S_ISREG(statusOf(file.get()).st_mode)) {
    throw std::invalid_argument("only regular files are written to");
  }
  return makeSource(std::move(file), options);
}

}  // namespace TarvexDiags::Storage
