#pragma once

#include <chrono>
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
  int flush() override;
  std::optional<WriteActivity> writeActivity() override;

 protected:
  /// @param descriptor open file; its flags say whether it is past the page cache.
  FileSource(PackageKit::UniqueDescriptor descriptor, const SourceOptions& options);

  int descriptor() const { return m_descriptor.get(); }
  /// @brief Drops the cached pages of the range, where the page cache stands between.
  void dropCached(const Transfer& transfer) const;
  void stampStart(unsigned int slot) { m_started[slot] = std::chrono::steady_clock::now(); }
  /// @brief The completion of the slot's transfer; result is bytes moved or a negative errno.
  Completion completionOf(unsigned int slot, std::int64_t result) const;

 private:
  PackageKit::UniqueDescriptor m_descriptor;
  SourceOptions m_options;
  PageBuffer m_buffers;
  std::vector<std::chrono::steady_clock::time_point> m_started;
  std::uint64_t m_size = 0;
  std::uint32_t m_blockSize = 512;
  bool m_cached = false;
  std::string m_statistics;  ///< folder of the disk's counters, empty for a file
};

/// @brief Over io_uring. Throws std::system_error where the kernel has none or forbids it.
std::unique_ptr<BlockSource> makeUringSource(PackageKit::UniqueDescriptor& descriptor,
                                             const SourceOptions& options);

/// @brief Over one thread for each slot.
std::unique_ptr<BlockSource> makeThreadSource(PackageKit::UniqueDescriptor& descriptor,
                                              const SourceOptions& options);

}  // namespace TarvexDiags::Storage
