#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "packages/common/Reason.h"
#include "packages/memory/Pattern.h"
#include "packages/memory/PoisonedPages.h"
#include "packages/memory/Team.h"

namespace TarvexDiags::Memory {

/// @brief The memory under test: mapped once, populated by all threads, locked as far as allowed.
///
/// Pages that the kernel takes away while it lives are replaced; see PoisonedPages.
///
/// Thread-safety: the memory is everybody's; the object changes only while it is made.
class Region {
 public:
  /// What a thread takes at a time: a huge page.
  static constexpr std::size_t kBlocksInSlice = 32;

  /// @brief Maps, populates and locks.
  ///
  /// @param bytes   rounded down to whole blocks, at least one
  /// @param node    the NUMA node that the memory must come from; -1 for any
  /// @param giveUp  asked all along, by several threads; true leaves the rest untouched, and the
  /// region is good for nothing
  /// @return nothing, with the system's message as `reason`, when the kernel gives no memory
  static std::unique_ptr<Region> map(std::size_t bytes, int node, Team& team,
                                     const std::function<bool()>& giveUp, std::string& reason);
  ~Region();
  Region(const Region&) = delete;
  Region& operator=(const Region&) = delete;

  std::byte* data() const { return m_data; }
  std::size_t bytes() const { return m_blocks * kBlockBytes; }
  std::size_t blocks() const { return m_blocks; }
  std::size_t slices() const { return (m_blocks + kBlocksInSlice - 1) / kBlocksInSlice; }
  std::size_t blocksOfSlice(std::size_t slice) const;
  Block block(std::size_t index) const { return {m_data + index * kBlockBytes, index}; }

  std::size_t lockedBytes() const { return m_lockedBytes; }

  PoisonedPages& poisonedPages() { return m_poisonedPages; }

  /// @brief Something that could not be had as wished, with a detail in no language.
  struct Remark {
    Common::Reason what;
    std::string detail;
  };
  const std::vector<Remark>& remarks() const { return m_remarks; }

 private:
  Region(std::byte* mapping, std::size_t mappedBytes, std::size_t bytes);
  static std::byte* firstHugePage(std::byte* mapping);
  void bindTo(int node);
  void populate(Team& team, const std::function<bool()>& giveUp);
  void lock(const std::function<bool()>& giveUp);
  bool lockNext(std::size_t size);

  std::byte* m_mapping;
  std::size_t m_mappedBytes;
  std::byte* m_data;
  std::size_t m_blocks;
  std::size_t m_lockedBytes = 0;
  PoisonedPages m_poisonedPages;
  std::vector<Remark> m_remarks;
};

}  // namespace TarvexDiags::Memory
