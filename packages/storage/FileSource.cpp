#include "packages/storage/FileSource.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "packages/storage/StorageEvents.h"

namespace TarvexDiags::Storage {
namespace {

struct stat statusOf(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) {
    throw std::system_error(errno, std::generic_category(), "fstat");
  }
  return status;
}

// Direct transfers to a file want the file system's block; this suits every one of them.
constexpr std::uint32_t kFileBlock = 4096;

}  // namespace

FileSource::FileSource(PackageKit::UniqueDescriptor descriptor, const SourceOptions& options)
    : m_options(options),
      m_buffers(static_cast<std::size_t>(options.slots) * options.slotSize),
      m_started(options.slots) {
  const struct stat status = statusOf(descriptor.get());
  if (S_ISBLK(status.st_mode)) {
    int block = 0;
    if (ioctl(descriptor.get(), BLKGETSIZE64, &m_size) != 0 ||
        ioctl(descriptor.get(), BLKSSZGET, &block) != 0) {
      throw std::system_error(errno, std::generic_category(), "size of the disk");
    }
    m_blockSize = static_cast<std::uint32_t>(block);
    m_statistics = "/sys/dev/block/" + std::to_string(major(status.st_rdev)) + ":" +
                   std::to_string(minor(status.st_rdev));
  } else {
    m_size = static_cast<std::uint64_t>(status.st_size);
    m_blockSize = kFileBlock;
  }
  m_size -= m_size % m_blockSize;
  m_cached = (fcntl(descriptor.get(), F_GETFL) & O_DIRECT) == 0;
  m_descriptor = std::move(descriptor);
}

std::span<std::byte> FileSource::buffer(unsigned int slot) {
  return m_buffers.bytes().subspan(static_cast<std::size_t>(slot) * m_options.slotSize,
                                   m_options.slotSize);
}

int FileSource::flush() {
  return fdatasync(descriptor()) == 0 ? 0 : errno;
}

std::optional<WriteActivity> FileSource::writeActivity() {
  if (m_statistics.empty()) {
    const timespec changed = statusOf(descriptor()).st_mtim;
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

Completion FileSource::completionOf(unsigned int slot, std::int64_t result) const {
  Completion completion;
  completion.slot = slot;
  completion.latency = std::chrono::steady_clock::now() - m_started[slot];
  if (result < 0) {
    completion.error = static_cast<int>(-result);
  } else {
    completion.length = static_cast<std::uint32_t>(result);
  }
  return completion;
}

namespace {

std::unique_ptr<BlockSource> makeSource(PackageKit::UniqueDescriptor descriptor,
                                        const SourceOptions& options) {
  if (options.useUring) {
    try {
      return makeUringSource(descriptor, options);
    } catch (const std::system_error&) {
      // No io_uring here, or none allowed: threads do the same, at a price.
    }
  }
  return makeThreadSource(descriptor, options);
}

}  // namespace

std::unique_ptr<BlockSource> openForReading(const std::string& path, const SourceOptions& options) {
  // Opening shall not wait for a medium, but reads shall wait for their end.
  const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
  int descriptor = open(path.c_str(), flags | O_DIRECT);
  if (descriptor < 0 && errno == EINVAL) {
    descriptor = open(path.c_str(), flags);
  }
  if (descriptor < 0) {
    throw NotSupported(path + " cannot be read: " + std::generic_category().message(errno));
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
