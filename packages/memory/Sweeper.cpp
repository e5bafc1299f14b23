#include "packages/memory/Sweeper.h"

#include <algorithm>

#include "packages/memory/PhysicalAddress.h"
#include "packages/memory/WordAccess.h"

namespace TarvexDiags::Memory {

Sweeper::Sweeper(Region& region, Team& team, const Kernels& kernels, Observer& observer,
                 FaultSeam* seam)
    : m_region(region), m_team(team), m_kernels(kernels), m_observer(observer), m_seam(seam) {}

void Sweeper::expectWalks(std::size_t walks) {
  m_walksExpected = std::max<std::size_t>(walks, 1);
  m_walksDone = 0;
}

bool Sweeper::stopped() const {
  return m_miscompares >= kMaximumCounted || m_region.poisonedPages().areTooMany() ||
         m_observer.stopRequested();
}

void Sweeper::tellWritten() {
  if (m_seam != nullptr) {
    m_seam->written(m_region, m_step);
  }
  ++m_step;
}

bool Sweeper::run(const Sweep& sweep) {
  if (sweep.expected) {
    tellWritten();
  }
  return forEachSlice(sweep.order, [&](std::size_t slice) {
    const std::size_t first = slice * Region::kBlocksInSlice;
    const std::size_t count = m_region.blocksOfSlice(slice);
    for (std::size_t index = 0; index < count; ++index) {
      sweepBlock(m_region.block(first + index), sweep);
    }
    if (sweep.expected) {
      countVerified(count);
    }
  });
}

bool Sweeper::run(const std::vector<Sweep>& sweeps) {
  return std::all_of(sweeps.begin(), sweeps.end(),
                     [this](const Sweep& sweep) { return run(sweep); });
}

bool Sweeper::forEachSlice(Sweep::Order order, const std::function<void(std::size_t)>& work) {
  const std::size_t slices = m_region.slices();
  std::atomic<std::size_t> taken{0};
  const double walks = static_cast<double>(m_walksExpected);
  m_team.onAll([&] {
    for (std::size_t turn = taken++; turn < slices && !stopped(); turn = taken++) {
      const std::size_t slice = order == Sweep::Order::Rising ? turn : slices - 1 - turn;
      work(slice);
      m_kernels.orderStores();
      const double share = static_cast<double>(turn + 1) / static_cast<double>(slices);
      const System::LockHold hold(m_reportLock);
      m_observer.walked(m_region.blocksOfSlice(slice) * kBlockBytes);
      m_observer.progress(std::min(1.0, (static_cast<double>(m_walksDone) + share) / walks));
    }
  });
  tellPoisonedPages();
  ++m_walksDone;
  return !stopped();
}

void Sweeper::tellPoisonedPages() {
  const System::LockHold hold(m_reportLock);
  for (const PoisonedPage& page : m_region.poisonedPages().takeNew()) {
    m_observer.pagePoisoned(page);
  }
}

void Sweeper::sweepBlock(const Block& block, const Sweep& sweep) {
  const bool streamed = sweep.writing == Sweep::Writing::Streamed;
  if (sweep.expected) {
    compare(block, *sweep.expected, sweep.next && streamed ? &*sweep.next : nullptr);
  } else if (sweep.next && streamed) {
    m_kernels.fill(block, *sweep.next);
  }
  if (sweep.next && !streamed) {
    m_kernels.scatter(block, *sweep.next);
  }
}

void Sweeper::compare(const Block& block, const Pattern& expected, const Pattern* next) {
  FoundLine found{};
  std::size_t line = 0;
  while (true) {
    line = next == nullptr ? m_kernels.verify(block, line, expected, found)
                           : m_kernels.march(block, line, expected, *next, found);
    if (line == kLinesInBlock) {
      break;
    }
    judgeLine(block, line, expected, found);
    if (next != nullptr) {
      const auto words = next->expectedLine(block, line);
      auto* const target = reinterpret_cast<std::uint64_t*>(block.data + line * kLineBytes);
      for (std::size_t word = 0; word < kWordsInLine; ++word) {
        writeWord(target + word, words[word]);
      }
    }
    if (++line == kLinesInBlock || stopped()) {
      break;
    }
  }
}

void Sweeper::judgeLine(const Block& block, std::size_t line, const Pattern& expected,
                        const FoundLine& found) {
  const auto words = expected.expectedLine(block, line);
  auto* const target = reinterpret_cast<std::uint64_t*>(block.data + line * kLineBytes);
  for (std::size_t word = 0; word < kWordsInLine; ++word) {
    if (found.words[word] != words[word]) {
      judge(target + word, words[word], found.words[word], expected.name());
    }
  }
}

bool Sweeper::isLost(const void* word) const {
  const PoisonedPages& poisoned = m_region.poisonedPages();
  if (poisoned.empty()) {
    return false;
  }
  constexpr std::size_t kSliceBytes = Region::kBlocksInSlice * kBlockBytes;
  const auto region = reinterpret_cast<std::uintptr_t>(m_region.data());
  const std::size_t at = reinterpret_cast<std::uintptr_t>(word) - region;
  const std::vector<PoisonedPage> pages = poisoned.pages();
  return std::any_of(pages.begin(), pages.end(), [&](const PoisonedPage& page) {
    const std::size_t begin = page.begin - region;
    const bool sameSlice = at / kSliceBytes == begin / kSliceBytes;
    const std::size_t distance =
        m_blocksMove && sameSlice ? (at - begin) % kBlockBytes : at - begin;
    return distance < page.bytes;
  });
}

void Sweeper::judge(std::uint64_t* word, std::uint64_t expected, std::uint64_t found,
                    const std::string& patternName) {
  if (isLost(word)) {
    return;
  }
  if (++m_miscompares > kMaximumReported) {
    return;
  }
  if (m_seam != nullptr) {
    m_seam->readAgain(word);
  }
  const std::uint64_t foundAgain = readFromMemory(word);
  FaultKind kind = FaultKind::ReadDisturbance;
  if (foundAgain != expected) {
    writeToMemory(word, expected);
    if (m_seam != nullptr) {
      m_seam->wordWritten(word);
    }
    kind = readFromMemory(word) == expected ? FaultKind::FlippedContent : FaultKind::StuckBit;
  }
  const Miscompare fault{reinterpret_cast<std::uintptr_t>(word),
                         physicalAddressOf(word),
                         expected,
                         found,
                         foundAgain,
                         kind,
                         patternName};
  const System::LockHold hold(m_reportLock);
  m_observer.miscompare(fault);
}

}  // namespace TarvexDiags::Memory
