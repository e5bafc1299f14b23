#pragma once

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
  std::uint64_t size() const override { return m_file->size; }
  std::uint32_t blockSize() const override { return m_file->blockSize; }
  unsigned int slots() const override { return m_options.slots; }
  std::span<std::byte> buffer(unsigned int slot) override;
  std::chrono::milliseconds patience() const override { return m_options.patience; }
  void abandon() override { m_isAbandoned = true; }
  bool hasVanished(const Waiter& waiter) override;
  std::optional<WriteActivity> writeActivity(const Waiter& waiter) override;
  ~FileSource() override;

 protected:
  FileSource(OpenedFile file, const SourceOptions& options);

  int descriptor() const { return m_file->descriptor.get(); }
  bool isAbandoned() const { return m_isAbandoned; }
  /// @brief Drops the cached pages of the range, where the page cache stands between.
  void dropCached(const Transfer& transfer) const;
  const std::shared_ptr<TransferClock>& clock() const { return m_options.clock; }
  /// @brief The completion of the slot's transfer; result is bytes moved or a negative errno.
  static Completion completionOf(unsigned int slot, std::int64_t result,
                                 std::chrono::nanoseconds latency);

 private:
  /// With questions that were given up it outlives the source.
  std::shared_ptr<const OpenedFile> m_file;
  SourceOptions m_options;
  std::unique_ptr<PageBuffer> m_buffers;
  bool m_isAbandoned = false;
};

/// @brief Keeps what the kernel may still read or write until the process ends: a transfer that was
/// given up can come back at any time.
template <class Thing>
void keepForEver(std::unique_ptr<Thing> thing) {
  static auto* const kKept = new std::vector<std::unique_ptr<Thing>>;
  kKept->push_back(std::move(thing));
}

/// @brief Over io_uring. Throws std::system_error where the kernel has none or forbids it, which
/// leaves the file as it is.
std::unique_ptr<BlockSource> makeUringSource(OpenedFile& file, const SourceOptions& options);

/// @brief Over one thread for each slot.
std::unique_ptr<BlockSource> makeThreadSource(OpenedFile file, const SourceOptions& options);

}  // namespace TarvexDiags::Storage
