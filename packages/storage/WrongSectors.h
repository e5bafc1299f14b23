#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>

#include "packages/storage/StorageEvents.h"
#include "packages/storage/TestPattern.h"
#include "packages/storage/WriteVerify.h"

namespace TarvexDiags::Storage {

/// @brief The sectors of a file that were read back wrongly: what happened to each, joined where
/// neighbours met the same.
class WrongSectors {
 public:
  /// All of them must outlive it.
  WrongSectors(const TestPattern& pattern, const WriteVerifyOptions& options,
               const std::string& disk, RunJournal& journal)
      : m_pattern(pattern), m_options(options), m_disk(disk), m_journal(journal) {}

  /// @brief Notes the sectors of a transfer that are not what was written. Each place once.
  void note(std::span<const std::byte> found, std::uint64_t offset);

  /// @brief Marks the ranges of the same transfer that a second look finds right.
  void lookAgain(std::span<const std::byte> found, std::uint64_t offset);

  /// @brief How many ranges there are.
  std::size_t count() const { return m_ranges.size(); }

  /// @brief Tells the first ranges one by one, and then all of them. Returns the number of sectors
  /// that were wrong at the first look.
  std::uint64_t tell();

 private:
  enum class Kind { Garbled, Misdirected, Lost };

  struct Range {
    std::uint64_t sectors = 0;
    Kind kind = Kind::Garbled;
    bool heals = false;
    std::uint64_t from = 0;  ///< misdirected: where the first sector's data belongs
    std::size_t byte = 0;    ///< garbled: the first wrong byte of the first sector
    std::byte expected{0};
    std::byte found{0};
    std::uint64_t bits = 0;  ///< garbled: that differ, in all sectors
  };

  /// @brief By the offset of the first sector.
  using RangeMap = std::map<std::uint64_t, Range>;

  Range sectorOf(std::span<const std::byte> expected, std::span<const std::byte> found,
                 std::uint64_t offset) const;
  static void append(RangeMap& ranges, std::uint64_t offset, const Range& range);
  void tellRange(std::uint64_t offset, const Range& range);
  std::string blockText(std::uint64_t offset) const;

  const TestPattern& m_pattern;
  const WriteVerifyOptions& m_options;
  const std::string& m_disk;
  RunJournal& m_journal;
  RangeMap m_ranges;
};

}  // namespace TarvexDiags::Storage
