#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "packagekit/UniqueDescriptor.h"
#include "packages/storage/TransferClock.h"

namespace TarvexDiags::Storage {

struct Waiter;

/// A flush brings what was written to the medium; it has no place, and no length.
enum class Direction { Read, Write, Flush };

/// @brief One transfer between a slot's buffer and the disk; offset and length in bytes.
struct Transfer {
  Direction direction = Direction::Read;
  unsigned int slot = 0;
  std::uint64_t offset = 0;
  std::uint32_t length = 0;
};

/// @brief The end of a transfer.
struct Completion {
  unsigned int slot = 0;
  int error = 0;             ///< errno, or 0
  std::uint32_t length = 0;  ///< bytes moved
  std::chrono::nanoseconds latency{0};
};

/// @brief What others write to the disk meanwhile.
struct WriteActivity {
  /// Writes and sectors completed, added up; of a file, the time of its last change.
  std::uint64_t completed = 0;
  bool inFlight = false;
  bool operator==(const WriteActivity&) const = default;
};

/// @brief Something with blocks that transfers go to at depth: a disk, a file, or in tests a
/// decorator that injects faults.
///
/// It owns one page-aligned buffer for each slot. A slot has at most one transfer in flight. All
/// calls come from the thread that made the source.
class BlockSource {
 public:
  BlockSource() = default;
  BlockSource(const BlockSource&) = delete;
  BlockSource& operator=(const BlockSource&) = delete;
  virtual ~BlockSource() = default;

  /// @brief Bytes that can be addressed, a multiple of the block size.
  virtual std::uint64_t size() const = 0;
  /// @brief Bytes of a logical block: offsets and lengths are multiples of it.
  virtual std::uint32_t blockSize() const = 0;
  virtual unsigned int slots() const = 0;
  /// @brief The slot's buffer; its size is the longest transfer.
  virtual std::span<std::byte> buffer(unsigned int slot) = 0;

  /// @brief Starts a transfer, at the latest with the next wait. Never blocks for its end.
  virtual void start(const Transfer& transfer) = 0;
  /// @brief Waits for the end of one transfer in flight, of which there must be one; nothing when
  /// none has ended in that time.
  virtual std::optional<Completion> wait(std::chrono::milliseconds atMost) = 0;
  /// @brief How long no transfer may end before the disk counts as silent.
  virtual std::chrono::milliseconds patience() const = 0;
  /// @brief Gives up the transfers in flight, which may end at any time or never. The source can
  /// only be destroyed afterwards, which does not wait for them either.
  virtual void abandon() = 0;
  /// @brief Whether the disk, or the file system that the file lies in, is there no more. Throws as
  /// awaitCall() does, the source's patience being over.
  virtual bool hasVanished(const Waiter& waiter) = 0;
  /// @brief What was written to the disk by anybody; nothing when that cannot be told. Throws the
  /// same.
  virtual std::optional<WriteActivity> writeActivity(const Waiter& waiter) = 0;
};

/// @brief How to reach a disk or file.
struct SourceOptions {
  unsigned int slots = 32;
  std::uint32_t slotSize = std::uint32_t{1} << 20;  ///< a multiple of 4096
  /// false: threads, as where the kernel has no io_uring; each measures its own transfers
  bool useUring = true;
  std::chrono::milliseconds patience{30'000};  ///< see BlockSource::patience
  std::shared_ptr<TransferClock> clock = makePlainClock();
};

/// @brief An open disk or file, and what it said about itself.
struct OpenedFile {
  PackageKit::UniqueDescriptor descriptor;
  std::uint64_t size = 0;  ///< a multiple of the block size
  std::uint32_t blockSize = 512;
  bool isCached = false;  ///< the page cache stands between
  bool isRegular = false;
  /// A program or another machine serves it. When that one hangs, such file systems hold up whoever
  /// hands a transfer to them, and not only who waits for its end.
  bool isServed = false;
  std::string statistics = {};             ///< folder of the disk's counters, empty for a file
  std::vector<std::string> presence = {};  ///< paths that are there as long as the disk is
};

/// @brief Opens a block device or a regular file for reading, past the page cache. May take as long
/// as the kernel likes: see answered(). Throws NotSupported (no permission, in use),
/// std::system_error, with ENODEV when the disk is there no more.
OpenedFile openFile(const std::string& path);

/// @brief Looks at a regular file that the caller opened for reading and writing. May take as long,
/// too. Never to be given a block device: throws std::invalid_argument.
/// @param disk the kernel's name of the disk that it lies on, to see whether it leaves; may be
/// empty
OpenedFile lookAt(PackageKit::UniqueDescriptor file, const std::string& disk);

/// @brief The blocks of what was opened. Throws NotSupported (too little memory) and
/// std::system_error.
std::unique_ptr<BlockSource> makeSource(OpenedFile file, const SourceOptions& options);

/// @brief Both in one, where nothing needs to be answered meanwhile.
std::unique_ptr<BlockSource> openForReading(const std::string& path, const SourceOptions& options);

/// @brief Throws what openForReading throws when the disk cannot be opened.
/// @param error the errno of the attempt
[[noreturn]] void failToOpen(const std::string& path, int error);

/// @brief The same of lookAt and makeSource.
std::unique_ptr<BlockSource> overFile(PackageKit::UniqueDescriptor file,
                                      const SourceOptions& options);

}  // namespace TarvexDiags::Storage
