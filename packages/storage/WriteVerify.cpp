#include "packages/storage/WriteVerify.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include "packages/storage/Crc32c.h"
#include "packages/storage/Places.h"
#include "packages/storage/Progress.h"
#include "packages/storage/ReadErrors.h"
#include "packages/storage/TestPattern.h"
#include "packages/storage/TransferQueue.h"
#include "packages/storage/WrongSectors.h"

namespace TarvexDiags::Storage {
namespace {

using Clock = std::chrono::steady_clock;

/// @brief One run: the write pass, the read pass, and the close look at what differs.
class WriteVerifyRun {
 public:
  WriteVerifyRun(BlockSource& source, const WriteVerifyOptions& options, const std::string& disk,
                 RunJournal& journal)
      : m_source(source),
        m_disk(disk),
        m_journal(journal),
        m_slotSize(source.buffer(0).size()),
        m_pattern(options.seed, m_slotSize),
        m_sums((source.size() + m_slotSize - 1) / m_slotSize),
        m_written(m_sums.size(), false),
        m_progress(journal, 2 * source.size(), Counted::Bytes),
        m_errors(source, journal, disk + " (temporary file)"),
        m_wrongSectors(m_pattern, options, disk, journal) {}

  WriteVerifyFigures run() {
    const auto begin = Clock::now();
    write();
    writeAgain();
    flush();
    const auto written = Clock::now();
    verify();
    m_figures.writing = written - begin;
    m_figures.verifying = Clock::now() - written;
    lookAgain();
    m_figures.faultySectors = m_wrongSectors.tell();
    m_errors.tell();
    if (m_figures.bytes == 0 && !m_whyFull.empty()) {
      throw NotSupported(Reasons::kNothingWritten, m_whyFull);
    }
    if (!m_whyFull.empty()) {
      report(m_journal, StorageEvent::NoSpace, {m_disk, m_whyFull});
    }
    if (!m_journal.stopRequested()) {
      report(
          m_journal, StorageEvent::WrittenAndVerified,
          {m_disk, sizeText(m_figures.bytes), rateText(rateOf(m_figures.bytes, m_figures.writing)),
           rateText(rateOf(m_figures.bytes, m_figures.verifying))});
    }
    return m_figures;
  }

 private:
  /// @brief With so many failed writes, or wrong ranges, the rest says nothing new.
  static constexpr std::size_t kMostFailed = 256;
  static constexpr std::size_t kMostRanges = 65'536;
  /// @brief Transfers that are read a second time.
  static constexpr std::size_t kMostLooks = 256;

  Waiter waiter() { return {m_journal, m_disk}; }

  bool goesOn() {
    return !m_journal.stopRequested() && !m_errors.isFull() && m_whyFull.empty() &&
           m_failed.size() < (m_journal.haltsOnError() ? 1 : kMostFailed);
  }

  std::size_t indexOf(std::uint64_t offset) const { return offset / m_slotSize; }

  void write() {
    for (unsigned int slot = 0; slot < m_source.slots(); ++slot) {
      m_pattern.fill(m_source.buffer(slot));
    }
    ZoneWalk walk({{0, m_source.size()}}, m_slotSize);
    transferAll(
        m_source, waiter(),
        [&](unsigned int slot) -> std::optional<Transfer> {
          const Zone piece = goesOn() ? walk.next() : Zone{};
          if (piece.length == 0) {
            return std::nullopt;
          }
          const auto data = m_source.buffer(slot).first(piece.length);
          m_pattern.stamp(data, piece.offset);
          m_sums[indexOf(piece.offset)] = crc32c(data);
          return Transfer{Direction::Write, slot, piece.offset,
                          static_cast<std::uint32_t>(piece.length)};
        },
        [&](const Transfer& transfer, const Completion& completion) {
          settleWrite(transfer, completion);
        });
  }

  void settleWrite(const Transfer& transfer, const Completion& completion) {
    if (succeeded(transfer, completion)) {
      m_written[indexOf(transfer.offset)] = true;
      m_moved += transfer.length;
      m_progress.at(m_moved);
      return;
    }
    if (completion.error == 0 && !m_isSecondAttempt) {
      m_cutShort.push_back(transfer);
      return;
    }
    settleFailedWrite(transfer, completion);
  }

  /// @brief A write that was cut short, as by a full file system, has its cause told the next
  ///  time.
  void writeAgain() {
    m_isSecondAttempt = true;
    for (const Transfer& cut : m_cutShort) {
      if (!goesOn()) {
        return;
      }
      const auto data = m_source.buffer(0).first(cut.length);
      m_pattern.fill(data);
      m_pattern.stamp(data, cut.offset);
      const Transfer again{Direction::Write, 0, cut.offset, cut.length};
      settleWrite(again, transferOne(m_source, waiter(), again));
    }
  }

  void flush() {
    const Transfer flush{Direction::Flush, 0, 0, 0};
    const Completion completion = transferOne(m_source, waiter(), flush);
    if (completion.error != 0) {
      settleFailedWrite(flush, completion);
    }
    if (m_failed.empty()) {
      return;
    }
    if (completion.error != 0) {
      requirePresence(m_source, waiter(), messageOf(completion.error));
    }
    tellFailedWrites();
  }

  void settleFailedWrite(const Transfer& transfer, const Completion& completion) {
    if (completion.error == ENOSPC || completion.error == EDQUOT) {
      m_whyFull = causeOf(completion.error);  // the file system's doing, not the disk's
      return;
    }
    requireFaultOfDisk(m_source, waiter(), transfer, completion);
    const bool isFlush = transfer.direction == Direction::Flush;
    m_failed.push_back(
        {transfer.offset, isFlush ? m_source.size() : transfer.length, completion.error});
  }

  void tellFailedWrites() {
    std::sort(m_failed.begin(), m_failed.end(),
              [](const auto& left, const auto& right) { return left.offset < right.offset; });
    for (auto from = m_failed.begin(); from != m_failed.end();) {
      FailedWrite joined = *from++;
      while (from != m_failed.end() && from->error == joined.error &&
             from->offset == joined.offset + joined.length) {
        joined.length += from++->length;
      }
      report(m_journal, StorageEvent::WriteFailed,
             {m_disk, std::to_string(joined.offset), std::to_string(joined.length),
              causeOf(joined.error)});
    }
  }

  void verify() {
    ZoneWalk walk({{0, m_source.size()}}, m_slotSize);
    transferAll(
        m_source, waiter(),
        [&](unsigned int slot) -> std::optional<Transfer> {
          for (Zone piece = walk.next(); piece.length > 0 && goesOnReading(); piece = walk.next()) {
            if (m_written[indexOf(piece.offset)]) {
              return Transfer{Direction::Read, slot, piece.offset,
                              static_cast<std::uint32_t>(piece.length)};
            }
          }
          return std::nullopt;
        },
        [&](const Transfer& transfer, const Completion& completion) {
          settleRead(transfer, completion);
        });
  }

  bool goesOnReading() {
    const bool isEnough = m_journal.haltsOnError() && m_wrongSectors.count() > 0;
    return !m_journal.stopRequested() && !m_errors.isFull() && !isEnough &&
           m_wrongSectors.count() < kMostRanges;
  }

  void settleRead(const Transfer& transfer, const Completion& completion) {
    if (!succeeded(transfer, completion)) {
      m_errors.note(transfer, completion);
      return;
    }
    m_figures.bytes += transfer.length;
    m_moved += transfer.length;
    m_progress.at(m_moved);
    const auto data = m_source.buffer(transfer.slot).first(transfer.length);
    if (crc32c(data) != m_sums[indexOf(transfer.offset)]) {
      m_different.push_back({Direction::Read, 0, transfer.offset, transfer.length});
      m_wrongSectors.note(data, transfer.offset);
    }
  }

  void lookAgain() {
    std::sort(
        m_different.begin(), m_different.end(),
        [](const Transfer& left, const Transfer& right) { return left.offset < right.offset; });
    m_different.resize(std::min(m_different.size(), kMostLooks));
    for (const Transfer& different : m_different) {
      if (m_journal.stopRequested()) {
        return;
      }
      if (succeeded(different, transferOne(m_source, waiter(), different))) {
        m_wrongSectors.lookAgain(m_source.buffer(0).first(different.length), different.offset);
      }
    }
  }

  struct FailedWrite {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    int error = 0;
  };

  BlockSource& m_source;
  const std::string& m_disk;
  RunJournal& m_journal;
  std::size_t m_slotSize;
  TestPattern m_pattern;
  std::vector<std::uint32_t> m_sums;
  std::vector<bool> m_written;
  Progress m_progress;
  ReadErrors m_errors;
  WrongSectors m_wrongSectors;
  WriteVerifyFigures m_figures;
  std::vector<FailedWrite> m_failed;
  std::vector<Transfer> m_different;
  std::vector<Transfer> m_cutShort;  ///< writes that moved less than asked for, with no cause told
  std::uint64_t m_moved = 0;
  std::string m_whyFull;  ///< the cause told by a file system that had no space left
  bool m_isSecondAttempt = false;
};

}  // namespace

WriteVerifyFigures writeAndVerify(BlockSource& source, const WriteVerifyOptions& options,
                                  const std::string& disk, RunJournal& journal) {
  requireSize(source, source.blockSize());
  return WriteVerifyRun(source, options, disk, journal).run();
}

}  // namespace TarvexDiags::Storage
