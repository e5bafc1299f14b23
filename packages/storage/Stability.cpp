#include <algorithm>
#include <set>
#include <utility>

#include "packages/storage/Crc32c.h"
#include "packages/storage/Places.h"
#include "packages/storage/Progress.h"
#include "packages/storage/ReadDiagnostics.h"
#include "packages/storage/ReadErrors.h"
#include "packages/storage/TransferQueue.h"

namespace TarvexDiags::Storage {
namespace {

/// @brief Whether nothing was written between the two looks, as far as is known.
bool isQuiet(const std::optional<WriteActivity>& before,
             const std::optional<WriteActivity>& after) {
  return before && before == after && !after->inFlight;
}

/// @brief Reads windows twice, and judges the pieces that differ.
class StabilityCheck {
 public:
  StabilityCheck(BlockSource& source, const StabilityOptions& options, const std::string& disk,
                 RunJournal& journal)
      : m_source(source),
        m_options(options),
        m_disk(disk),
        m_journal(journal),
        m_piece(std::max<std::uint32_t>(source.blockSize(), 4096)),
        m_errors(source, journal, disk) {}

  ReadFigures run() {
    const std::uint64_t window = std::max<std::uint64_t>(m_options.window / m_piece, 1) * m_piece;
    ZoneWalk walk(spreadZones(m_source.size(), m_options.bytes, window, m_source.blockSize()),
                  window);
    Progress progress(m_journal, 2 * walk.total(), Counted::Bytes);
    const auto begin = std::chrono::steady_clock::now();
    for (Zone zone = walk.next(); zone.length > 0 && goesOn(); zone = walk.next()) {
      compare(zone);
      progress.at(m_figures.bytes);
    }
    m_figures.elapsed = std::chrono::steady_clock::now() - begin;
    m_figures.unreadableBlocks = m_errors.tell();
    report(m_journal, StorageEvent::Stable, {m_disk, sizeText(m_figures.bytes / 2)});
    return m_figures;
  }

 private:
  /// @brief Pieces that are examined closely; with so many at fault the rest says nothing new.
  static constexpr unsigned int kMostExamined = 64;

  bool goesOn() {
    return !m_journal.stopRequested() && !m_errors.isFull() && m_examined < kMostExamined;
  }

  void compare(const Zone& window) {
    const auto before = m_source.writeActivity({m_journal, m_disk});
    const std::vector<std::uint32_t> first = checksums(window);
    const std::vector<std::uint32_t> second = checksums(window);
    const bool quiet = isQuiet(before, m_source.writeActivity({m_journal, m_disk}));
    for (std::size_t index = 0; index < first.size() && goesOn(); ++index) {
      if (first[index] != second[index]) {
        const std::uint64_t offset = window.offset + index * m_piece;
        const std::uint64_t length =
            std::min<std::uint64_t>(m_piece, window.offset + window.length - offset);
        ++m_examined;
        examine({offset, length}, {first[index], second[index]}, quiet);
      }
    }
  }

  /// @brief Checksums of the window's pieces; what cannot be read is noted and counts as equal.
  std::vector<std::uint32_t> checksums(const Zone& window) {
    std::vector<std::uint32_t> sums((window.length + m_piece - 1) / m_piece);
    const std::uint64_t slotSize = m_source.buffer(0).size();
    ZoneWalk walk({window}, slotSize);
    transferAll(
        m_source, {m_journal, m_disk},
        [&](unsigned int slot) -> std::optional<Transfer> {
          const Zone read = walk.next();
          if (read.length == 0 || m_journal.stopRequested() || m_errors.isFull()) {
            return std::nullopt;
          }
          return Transfer{Direction::Read, slot, read.offset,
                          static_cast<std::uint32_t>(read.length)};
        },
        [&](const Transfer& transfer, const Completion& completion) {
          ++m_figures.reads;
          if (!succeeded(transfer, completion)) {
            m_unreadable.insert(transfer.offset);
            m_errors.note(transfer, completion);
          }
          if (m_unreadable.contains(transfer.offset)) {
            return;
          }
          m_figures.bytes += transfer.length;
          sum(transfer, (transfer.offset - window.offset) / m_piece, sums);
        });
    return m_unreadable.empty() ? sums : withoutUnreadable(std::move(sums), window, slotSize);
  }

  void sum(const Transfer& transfer, std::size_t index, std::vector<std::uint32_t>& sums) {
    std::span<const std::byte> data = m_source.buffer(transfer.slot).first(transfer.length);
    while (!data.empty()) {
      const auto piece = data.first(std::min<std::size_t>(m_piece, data.size()));
      sums[index++] = crc32c(piece);
      data = data.subspan(piece.size());
    }
  }

  /// @brief A read that failed in one round must not look like changed contents in the other.
  std::vector<std::uint32_t> withoutUnreadable(std::vector<std::uint32_t> sums, const Zone& window,
                                               std::uint64_t slotSize) const {
    for (std::size_t index = 0; index < sums.size(); ++index) {
      const std::uint64_t read = index * m_piece / slotSize * slotSize + window.offset;
      if (m_unreadable.contains(read)) {
        sums[index] = 0;
      }
    }
    return sums;
  }

  void examine(const Zone& piece, std::set<std::uint32_t> contents, bool quiet) {
    std::set<std::uint32_t> later;
    bool differedInQuiet = quiet;
    unsigned int reads = 2;
    for (unsigned int repeat = 0; repeat < m_options.repeats; ++repeat) {
      const auto before = m_source.writeActivity({m_journal, m_disk});
      const std::optional<std::uint32_t> one = readAgain(piece);
      const std::optional<std::uint32_t> other = readAgain(piece);
      if (!one || !other) {
        return;  // unreadable now, and noted as such
      }
      reads += 2;
      later.insert({*one, *other});
      differedInQuiet |=
          *one != *other && isQuiet(before, m_source.writeActivity({m_journal, m_disk}));
    }
    contents.insert(later.begin(), later.end());
    const std::string block = std::to_string(piece.offset / m_source.blockSize());
    const std::string blockSize = std::to_string(m_source.blockSize());
    if (differedInQuiet) {
      report(m_journal, StorageEvent::Unstable,
             {m_disk, block, blockSize, std::to_string(contents.size()), std::to_string(reads)});
    } else {
      const bool isSettled = later.size() == 1 && m_source.writeActivity({m_journal, m_disk});
      report(m_journal, isSettled ? StorageEvent::ChangedByOthers : StorageEvent::Unsettled,
             {m_disk, block, blockSize});
    }
  }

  std::optional<std::uint32_t> readAgain(const Zone& piece) {
    const Transfer transfer{Direction::Read, 0, piece.offset,
                            static_cast<std::uint32_t>(piece.length)};
    const Completion completion = transferOne(m_source, {m_journal, m_disk}, transfer);
    if (!succeeded(transfer, completion)) {
      m_errors.note(transfer, completion);
      return std::nullopt;
    }
    return crc32c(m_source.buffer(0).first(piece.length));
  }

  BlockSource& m_source;
  const StabilityOptions& m_options;
  const std::string& m_disk;
  RunJournal& m_journal;
  std::uint32_t m_piece;
  ReadErrors m_errors;
  ReadFigures m_figures;
  std::set<std::uint64_t> m_unreadable;  ///< offsets of reads that failed
  unsigned int m_examined = 0;
};

}  // namespace

ReadFigures checkStability(BlockSource& source, const StabilityOptions& options,
                           const std::string& disk, RunJournal& journal) {
  requireSize(source, source.blockSize());
  return StabilityCheck(source, options, disk, journal).run();
}

}  // namespace TarvexDiags::Storage
