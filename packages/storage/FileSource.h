#pragma once

#include <sys/stat.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "packages/storage/BlockSource.h"
#include "packages/storage/PageBuffer.h"

namespace TarvexDiags::Storage {

/// @brief What the sources over a file descriptor share: geometry, buffers, clock, counters.
class FileSource : public BlockSource {
 public:
  std::uint64_t size() const override { return m_size; }
  std::uint32_t blockSize() const override { return m_blockSize; }
  unsigned int slots() const override { return m_options.slots; }
  std::span<std::byte> buffer(unsigned int slot) override;
  std::chrono::milliseconds patience() const override { return m_options.patience; }
  void abandon() override { m_isAbandoned = true; }
  bool hasVanished() override;
  std::optional<WriteActivity> writeActivity() override;
  ~FileSource() override;

 protected:
  using Clock = std::chrono::steady_clock;

  /// @param descriptor open file; its flags say whether it is past the page cache.
  FileSource(PackageKit::UniqueDescriptor descriptor, const SourceOptions& options);

  int descriptor() const { return m_descriptor.get(); }
  bool isAbandoned() const { return m_isAbandoned; }
  /// @brief Drops the cached pages of the range, where the page cache stands between.
  void dropCached(const Transfer& transfer) const;
  void stampStart(unsigned int slot) { m_started[slot] = Clock::now(); }
  /// @brief The completion of the slot's transfer; result is bytes moved or a negative errno.
  Completion completionOf(unsigned int slot, std::int64_t result, Clock::time_point end) const;

 private:
  void lookAtDisk(const struct stat& status);
  void lookAtFile(const struct stat& status);

  PackageKit::UniqueDescriptor m_descriptor;
  SourceOptions m_options;
  std::unique_ptr<PageBuffer> m_buffers;
  std::vector<Clock::time_point> m_started;
  std::uint64_t m_size = 0;
  std::uint32_t m_blockSize = 512;
  bool m_cached = false;
  bool m_isAbandoned = false;
  std::string m_statistics;             ///< folder of the disk's counters, empty for a file
  std::vector<std::string> m_presence;  ///< paths that are there as long as the disk is
};

/// @brief Keeps what the kernel may still read or write until the process ends: a transfer that was
/// given up can come back at any time.
template <class Thing>
void keepForEver(std::unique_ptr<Thing> thing) {
  static auto* const kKept = new std::vector<std::unique_ptr<Thing>>;
  kKept->push_back(std::move(thing));
}

/// @brief Over io_uring. Throws std::system_error where the kernel has none or forbids it.
std::unique_ptr<BlockSource> makeUringSource(PackageKit::UniqueDescriptor& descriptor,
                                             const SourceOptions& options);

/// @brief Over one thread for each slot.
std::unique_ptr<BlockSource> makeThreadSource(PackageKit::UniqueDescriptor& descriptor,
                                              const SourceOptions& options);

}  // namespace TarvexDiags::Storage
