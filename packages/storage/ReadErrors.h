#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "packages/storage/StorageEvents.h"
#include "packages/storage/TransferQueue.h"

namespace TarvexDiags::Storage {

/// @brief Gathers the reads of a run that failed, and afterwards finds the blocks at fault and
/// tells them.
///
/// A failed read of 1 MiB says little: it is read again in halves, down to the block. What stays
/// unreadable is an error with its address and count; what can be read the second time is a
/// warning. Where no block can be read at all, the disk may be leaving: that is waited for first.
class ReadErrors {
 public:
  ReadErrors(BlockSource& source, RunJournal& journal, std::string disk);

  /// @brief Notes a read that failed. Throws std::system_error when the disk is not to blame, with
  /// ENODEV when it has left.
  void note(const Transfer& transfer, const Completion& completion);

  /// @brief Whether so much has failed that further reading is of no use.
  bool isFull() const {
    return m_failed.size() >= (m_journal.haltsOnError() ? std::size_t{1} : kMostReads);
  }

  /// @brief Tells what was found; no transfer may be in flight. Returns the unreadable blocks.
  /// Throws as note, and as transferOne.
  std::uint64_t tell();

  /// @brief Reads of which the blocks at fault are searched: a dying disk takes seconds for each.
  static constexpr std::size_t kMostReads = 256;
  /// @brief Places that are told one by one; the event with their number has all of them.
  static constexpr std::size_t kMostPlaces = 32;

 private:
  struct Place {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    int error = 0;
    bool recovered = false;
  };

  void isolate(const Place& failed);
  void requireDiskIsThere();
  bool readsAgain(const Place& place, int& error);
  void append(const Place& place);
  void tellPlace(const Place& place);
  std::uint64_t tellPlaces();
  std::uint64_t tellTotal();

  BlockSource& m_source;
  RunJournal& m_journal;
  std::string m_disk;
  std::vector<Place> m_failed;
  std::vector<Place> m_places;
};

}  // namespace TarvexDiags::Storage
