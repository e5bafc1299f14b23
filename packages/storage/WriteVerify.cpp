#include "packages/storage/WriteVerify.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "packages/storage/Crc32c.h"
#include "packages/storage/Places.h"
#include "packages/storage/Progress.h"
#include "packages/storage/ReadErrors.h"
#include "packages/storage/TestPattern.h"
#include "packages/storage/TransferQueue.h"

namespace TarvexDiags::Storage {
namespace {

using Clock = std::chrono::steady_clock;

/// @brief One run: the write pass, the read pass, and the close look at what differs.
class WriteVerifyRun {
 public:
  WriteVerifyRun(BlockSource& source, const WriteVerifyOptions& options, const std::string& disk,
                 RunJournal& journal)
      : m_source(source),
        m_options(options),
        m_disk(disk),
        m_journal(journal),
        m_slotSize(source.buffer(0).size()),
        m_pattern(options.seed, m_slotSize),
        m_sums((source.size() + m_slotSize - 1) / m_slotSize),
        m_written(m_sums.size(), false),
        m_progress(journal, 2 * source.size()),
        m_errors(source, journal, disk + " (temporary file)") {}

  WriteVerifyFigures run() {
    const auto begin = Clock::now();
    write();
    writeAgain();
    if (const int error = m_source.flush(); error != 0) {
      settleFailedWrite(0, m_source.size(), error);
    }
    const auto written = Clock::now();
    verify();
    m_figures.writing = written - begin;
    m_figures.verifying = Clock::now() - written;
    examineDifferences();
    m_errors.tell();
    if (!m_journal.stopRequested()) {
      report(
          m_journal, StorageEvent::WrittenAndVerified,
          {m_disk, sizeText(m_figures.bytes), rateText(rateOf(m_figures.bytes, m_figures.writing)),
           rateText(rateOf(m_figures.bytes, m_figures.verifying))});
    }
    return m_figures;
  }

 private:
  /// @brief Faulty sectors and failed writes that are described one by one.
  static constexpr unsigned int kMostTold = 32;

  bool goesOn() { return !m_journal.stopRequested() && !m_errors.isFull() && !m_full; }

  std::size_t indexOf(std::uint64_t offset) const { return offset / m_slotSize; }

  void write() {
    for (unsigned int slot = 0; slot < m_source.slots(); ++slot) {
      m_pattern.fill(m_source.buffer(slot));
    }
    ZoneWalk walk({{0, m_source.size()}}, m_slotSize);
    transferAll(
        m_source,
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
    settleFailedWrite(transfer.offset, transfer.length, completion.error);
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
      settleWrite(again, transferOne(m_source, again));
    }
  }

  void settleFailedWrite(std::uint64_t offset, std::uint64_t length, int error) {
    if (error == ENOSPC || error == EDQUOT) {
      m_full = true;  // the file system's doing, not the disk's
      report(m_journal, StorageEvent::NoSpace, {m_disk, causeOf(error)});
      return;
    }
    requireFaultOfDisk(error, m_disk);
    if (m_told++ < kMostTold) {
      report(m_journal, StorageEvent::WriteFailed,
             {m_disk, std::to_string(offset), std::to_string(length), causeOf(error)});
    }
  }

  void verify() {
    ZoneWalk walk({{0, m_source.size()}}, m_slotSize);
    transferAll(
        m_source,
        [&](unsigned int slot) -> std::optional<Transfer> {
          for (Zone piece = walk.next(); piece.length > 0 && goesOn(); piece = walk.next()) {
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
      // The slot is needed for the next read; what was found is kept, within bounds.
      m_different.push_back({transfer.offset, {}});
      if (m_different.size() <= kMostKept) {
        m_different.back().found.assign(data.begin(), data.end());
      }
    }
  }

  /// @brief Transfers whose contents are kept for the close look.
  static constexpr std::size_t kMostKept = 16;

  struct Difference {
    std::uint64_t offset = 0;
    std::vector<std::byte> found;
  };

  void examineDifferences() {
    std::sort(
        m_different.begin(), m_different.end(),
        [](const Difference& left, const Difference& right) { return left.offset < right.offset; });
    for (const Difference& difference : m_different) {
      if (difference.found.empty()) {
        ++m_figures.faultySectors;  // beyond what is kept: at least one of its sectors
        continue;
      }
      examine(difference);
    }
  }

  void examine(const Difference& difference) {
    std::vector<std::byte> expected(difference.found.size());
    m_pattern.fill(expected);
    m_pattern.stamp(expected, difference.offset);
    const Transfer again{Direction::Read, 0, difference.offset,
                         static_cast<std::uint32_t>(expected.size())};
    const bool readAgain = succeeded(again, transferOne(m_source, again));
    for (std::size_t at = 0; at < expected.size(); at += TestPattern::kSector) {
      const auto wanted = std::span(expected).subspan(at, TestPattern::kSector);
      const auto found = std::span(difference.found).subspan(at, TestPattern::kSector);
      if (std::memcmp(wanted.data(), found.data(), wanted.size()) == 0) {
        continue;
      }
      ++m_figures.faultySectors;
      const bool heals = readAgain && std::memcmp(wanted.data(), m_source.buffer(0).data() + at,
                                                  wanted.size()) == 0;
      if (m_told++ < kMostTold) {
        tellSector(difference.offset + at, wanted, found, heals);
      }
    }
  }

  void tellSector(std::uint64_t offset, std::span<const std::byte> expected,
                  std::span<const std::byte> found, bool heals) {
    std::vector<std::string> parameters{m_disk, std::to_string(offset), blockText(offset)};
    const std::optional<std::uint64_t> place = m_pattern.placeOf(found);
    if (heals) {
      report(m_journal, StorageEvent::RecoveredVerify, std::move(parameters));
    } else if (place && *place != offset) {
      parameters.push_back(std::to_string(*place));
      report(m_journal, StorageEvent::Misdirected, std::move(parameters));
    } else if (isUniform(found)) {
      report(m_journal, StorageEvent::LostWrite, std::move(parameters));
    } else {
      const auto differing = describe(expected, found);
      parameters.insert(parameters.end(), differing.begin(), differing.end());
      report(m_journal, StorageEvent::Miscompare, std::move(parameters));
    }
  }

  /// @brief Place of the first byte that differs, both bytes, and how many bits differ in all.
  static std::vector<std::string> describe(std::span<const std::byte> expected,
                                           std::span<const std::byte> found) {
    const auto [wanted, got] = std::mismatch(expected.begin(), expected.end(), found.begin());
    int bits = 0;
    for (std::size_t at = 0; at < expected.size(); ++at) {
      bits += std::popcount(std::to_integer<unsigned int>(expected[at] ^ found[at]));
    }
    return {std::to_string(wanted - expected.begin()),
            fmt::format("{:#04x}", std::to_integer<unsigned int>(*wanted)),
            fmt::format("{:#04x}", std::to_integer<unsigned int>(*got)), std::to_string(bits)};
  }

  /// @brief Whether all bytes are the same, as in space that was never written or was erased.
  static bool isUniform(std::span<const std::byte> data) {
    return std::all_of(data.begin(), data.end(),
                       [&](std::byte value) { return value == data.front(); });
  }

  /// @brief The sector's place on the disk in units of 512 bytes, or "?".
  std::string blockText(std::uint64_t offset) const {
    const auto place = m_options.placeOnDisk ? m_options.placeOnDisk(offset) : std::nullopt;
    return place ? std::to_string(*place / TestPattern::kSector) : "?";
  }

  BlockSource& m_source;
  const WriteVerifyOptions& m_options;
  const std::string& m_disk;
  RunJournal& m_journal;
  std::size_t m_slotSize;
  TestPattern m_pattern;
  std::vector<std::uint32_t> m_sums;
  std::vector<bool> m_written;
  Progress m_progress;
  ReadErrors m_errors;
  WriteVerifyFigures m_figures;
  std::vector<Difference> m_different;
  std::vector<Transfer> m_cutShort;  ///< writes that moved less than asked for, with no cause told
  std::uint64_t m_moved = 0;
  unsigned int m_told = 0;
  bool m_full = false;
  bool m_isSecondAttempt = false;
};

}  // namespace

WriteVerifyFigures writeAndVerify(BlockSource& source, const WriteVerifyOptions& options,
                                  const std::string& disk, RunJournal& journal) {
  requireSize(source, source.blockSize(), disk);
  return WriteVerifyRun(source, options, disk, journal).run();
}

}  // namespace TarvexDiags::Storage
