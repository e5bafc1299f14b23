#include "packages/storage/ReadDiagnostics.h"

#include <algorithm>
#include <utility>

#include "packages/storage/Places.h"
#include "packages/storage/Progress.h"
#include "packages/storage/ReadErrors.h"
#include "packages/storage/TransferQueue.h"

namespace TarvexDiags::Storage {
namespace {

using Clock = std::chrono::steady_clock;

/// @brief Counts a read that ended, or notes its failure.
void settle(const Transfer& transfer, const Completion& completion, ReadFigures& figures,
            ReadErrors& errors) {
  if (succeeded(transfer, completion)) {
    figures.bytes += completion.length;
  } else {
    errors.note(transfer, completion);
  }
  ++figures.reads;
}

std::uint32_t slotSize(BlockSource& source) {
  return static_cast<std::uint32_t>(source.buffer(0).size());
}

Transfer readOf(unsigned int slot, std::uint64_t offset, std::uint64_t length) {
  return {Direction::Read, slot, offset, static_cast<std::uint32_t>(length)};
}

}  // namespace

ReadFigures scanSequentially(BlockSource& source, const ScanOptions& options,
                             const std::string& disk, RunJournal& journal) {
  requireSize(source, source.blockSize());
  ZoneWalk walk(spreadZones(source.size(), options.bytes, options.zone, source.blockSize()),
                slotSize(source));
  Progress progress(journal, walk.total(), Counted::Bytes);
  ReadErrors errors(source, journal, disk);
  ReadFigures figures;
  PieceLength pieces(slotSize(source));
  const auto begin = Clock::now();
  transferAll(
      source, {journal, disk},
      [&](unsigned int slot) -> std::optional<Transfer> {
        if (journal.stopRequested() || errors.isFull()) {
          return std::nullopt;
        }
        const Zone piece = walk.next(pieces.now());
        return piece.length == 0 ? std::nullopt
                                 : std::optional(readOf(slot, piece.offset, piece.length));
      },
      [&](const Transfer& transfer, const Completion& completion) {
        settle(transfer, completion, figures, errors);
        progress.at(figures.bytes);
      },
      &pieces);
  figures.elapsed = Clock::now() - begin;
  figures.unreadableBlocks = errors.tell();
  const double rate = rateOf(figures.bytes, figures.elapsed);
  report(journal, StorageEvent::Scanned, {disk, sizeText(figures.bytes), rateText(rate)});
  if (rate < options.minimumRate && !journal.stopRequested()) {
    report(journal, StorageEvent::SlowerThanAsked,
           {disk, rateText(rate), rateText(options.minimumRate)});
  }
  return figures;
}

ReadFigures readRandomly(BlockSource& source, const RandomOptions& options, const std::string& disk,
                         RunJournal& journal) {
  requireSize(source, slotSize(source));
  RandomPlaces places(source.size(), slotSize(source), options.seed);
  Progress progress(journal, options.reads, Counted::Reads);
  ReadErrors errors(source, journal, disk);
  ReadFigures figures;
  Latencies latencies;
  std::uint64_t started = 0;
  const auto begin = Clock::now();
  transferAll(
      source, {journal, disk},
      [&](unsigned int slot) -> std::optional<Transfer> {
        if (started == options.reads || journal.stopRequested() || errors.isFull()) {
          return std::nullopt;
        }
        ++started;
        return readOf(slot, places.next(), slotSize(source));
      },
      [&](const Transfer& transfer, const Completion& completion) {
        settle(transfer, completion, figures, errors);
        latencies.add(completion.latency);
        progress.at(figures.reads);
      });
  figures.elapsed = Clock::now() - begin;
  figures.unreadableBlocks = errors.tell();
  const double seconds = std::chrono::duration<double>(figures.elapsed).count();
  const double rate = seconds > 0 ? static_cast<double>(figures.reads) / seconds : 0;
  report(journal, StorageEvent::RandomRead,
         {disk, std::to_string(figures.reads), std::to_string(static_cast<std::uint64_t>(rate)),
          latencyText(latencies.quantile(0.5)), latencyText(latencies.quantile(0.99)),
          latencyText(latencies.quantile(1))});
  return figures;
}

namespace {

/// @brief Looks for places that take long each time.
class SlowBlockSearch {
 public:
  SlowBlockSearch(BlockSource& source, const LatencyOptions& options, const std::string& disk,
                  RunJournal& journal)
      : m_source(source), m_options(options), m_disk(disk), m_journal(journal) {}

  void add(std::uint64_t offset, Nanoseconds latency) {
    m_latencies.add(latency);
    if (latency > m_options.limit) {
      m_suspects.push_back({offset, latency});
    }
  }

  void tell() {
    m_median = m_latencies.quantile(0.5);
    std::sort(m_suspects.begin(), m_suspects.end(), [](const Suspect& left, const Suspect& right) {
      return left.latency > right.latency;
    });
    std::vector<Suspect> stalls;
    std::size_t examined = 0;
    for (const Suspect& suspect : m_suspects) {
      if (!isOutlier(suspect.latency)) {
        continue;
      }
      if (examined++ < kMostExamined && staysSlow(suspect)) {
        tellSuspect(StorageEvent::SlowBlock, suspect, {latencyText(m_median)});
      } else {
        stalls.push_back(suspect);
      }
    }
    if (stalls.size() > m_options.allowedStalls) {
      const std::uint64_t block = m_source.blockSize();
      report(m_journal, StorageEvent::Stalls,
             {m_disk, std::to_string(stalls.size()), latencyText(stalls.front().latency),
              std::to_string(stalls.front().offset / block), std::to_string(block)});
    }
    report(m_journal, StorageEvent::Latency,
           {m_disk, std::to_string(m_latencies.count()), latencyText(m_median),
            latencyText(m_latencies.quantile(0.99)), latencyText(m_latencies.quantile(0.999)),
            latencyText(m_latencies.quantile(1))});
  }

 private:
  struct Suspect {
    std::uint64_t offset = 0;
    Nanoseconds latency{0};
  };

  /// @brief Slow blocks that are read again: each may take seconds.
  static constexpr std::size_t kMostExamined = 16;

  bool isOutlier(Nanoseconds latency) const {
    return latency > m_options.limit &&
           static_cast<double>(latency.count()) >
               m_options.factor * static_cast<double>(m_median.count());
  }

  bool staysSlow(const Suspect& suspect) {
    const Transfer transfer = readOf(0, suspect.offset, slotSize(m_source));
    for (unsigned int repeat = 0; repeat < m_options.repeats; ++repeat) {
      if (m_journal.stopRequested() ||
          !isOutlier(transferOne(m_source, {m_journal, m_disk}, transfer).latency)) {
        return false;
      }
    }
    return true;
  }

  void tellSuspect(StorageEvent event, const Suspect& suspect, std::vector<std::string> further) {
    const std::uint64_t block = m_source.blockSize();
    std::vector<std::string> parameters{m_disk, std::to_string(suspect.offset / block),
                                        std::to_string(block), latencyText(suspect.latency)};
    parameters.insert(parameters.end(), further.begin(), further.end());
    report(m_journal, event, std::move(parameters));
  }

  BlockSource& m_source;
  const LatencyOptions& m_options;
  const std::string& m_disk;
  RunJournal& m_journal;
  Latencies m_latencies;
  Nanoseconds m_median{0};
  std::vector<Suspect> m_suspects;
};

}  // namespace

ReadFigures findSlowBlocks(BlockSource& source, const LatencyOptions& options,
                           const std::string& disk, RunJournal& journal) {
  requireSize(source, slotSize(source));
  RandomPlaces places(source.size(), slotSize(source), options.seed);
  Progress progress(journal, options.reads, Counted::Reads);
  ReadErrors errors(source, journal, disk);
  SlowBlockSearch search(source, options, disk, journal);
  ReadFigures figures;
  const auto begin = Clock::now();
  while (figures.reads < options.reads && !journal.stopRequested() && !errors.isFull()) {
    const Transfer transfer = readOf(0, places.next(), slotSize(source));
    const Completion completion = transferOne(source, {journal, disk}, transfer);
    settle(transfer, completion, figures, errors);
    search.add(transfer.offset, completion.latency);
    progress.at(figures.reads);
  }
  figures.elapsed = Clock::now() - begin;
  search.tell();
  figures.unreadableBlocks = errors.tell();
  return figures;
}

}  // namespace TarvexDiags::Storage
