#pragma once

// A memory of 64 words in which bits flip at any moment of a test, or are stuck: one word in each
// of 64 blocks of a region, behind kernels of its own that touch nothing else.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "tests/packages/memory/MemoryFixture.h"

namespace TarvexDiags::Memory {

/// @brief Runs a test again and again, with other faults, and counts what it finds.
///
/// Time goes by in steps: one for each block that a walk visits. Flips at the 64 steps of a run are
/// told apart by the bit that flips, since no two touch the same; flips of several cells by the
/// address, where contents stay where they are.
class SimulatedMemory {
 public:
  static constexpr std::size_t kCells = 64;

  struct Share {
    std::size_t found = 0;
    std::size_t flips = 0;
    double percent() const {
      return 100.0 * static_cast<double>(found) / static_cast<double>(flips);
    }
  };

  /// @brief Flips each cell once at each step of the test, and tells how many of these flips it
  /// finds.
  Share shareOf(const MemoryTest& test, const TestOptions& options) {
    m_stuckBit = 0;
    run(test, options, std::nullopt, kNever);
    const std::size_t steps = m_step;
    m_found.assign(steps * kCells, false);
    const std::size_t runs = (steps + kBits - 1) / kBits;
    for (std::size_t first = 0; first < runs; ++first) {
      runForCells(test, options, first * kBits);
    }
    return {countFound(), m_found.size()};
  }

  /// @brief Lets a bit of each cell always read the same, and tells in how many of kCells the test
  /// finds it.
  std::size_t cellsFoundStuck(const MemoryTest& test, const TestOptions& options, int bit,
                              bool one) {
    m_stuckBit = std::uint64_t{1} << bit;
    m_stuckAt = one ? m_stuckBit : 0;
    m_found.assign(kCells, false);
    runForCells(test, options, kNever);
    return countFound();
  }

 private:
  static constexpr std::size_t kBits = 64;
  /// Later than any step, and far enough from the last number that there is.
  static constexpr std::size_t kNever = SIZE_MAX / 2;
  /// No power of two: the probes of address lines leave it alone.
  static constexpr std::size_t kWord = 5;

  std::size_t countFound() const {
    return static_cast<std::size_t>(std::count(m_found.begin(), m_found.end(), true));
  }

  /// Contents that move are told apart by the run.
  void runForCells(const MemoryTest& test, const TestOptions& options, std::size_t firstFlip) {
    if (test.number != BlockMove) {
      run(test, options, std::nullopt, firstFlip);
      return;
    }
    for (std::size_t cell = 0; cell < kCells; ++cell) {
      run(test, options, cell, firstFlip);
    }
  }

  /// @param cell  the one that is bad; nothing: all of them
  void run(const MemoryTest& test, const TestOptions& options, std::optional<std::size_t> cell,
           std::size_t firstFlip) {
    current = this;
    m_step = 0;
    m_cell = cell;
    m_firstFlip = firstFlip;
    m_compared = nullptr;
    RecordingObserver observer;
    Sweeper sweeper(*m_region, m_team, kKernels, observer);
    EXPECT_TRUE(runTest(test, sweeper, options).completed) << test.number;
    EXPECT_TRUE(firstFlip != kNever || m_stuckBit != 0 || sweeper.miscompares() == 0)
        << test.number;
  }

  void step() {
    const std::size_t bit = m_step++ - m_firstFlip;
    for (std::size_t cell = 0; cell < kCells && bit < kBits; ++cell) {
      if (m_cell.value_or(cell) == cell) {
        wordOf(m_region->block(cell)) ^= std::uint64_t{1} << bit;
      }
    }
  }

  std::size_t cellAt(const Block& block) const {
    return static_cast<std::size_t>(block.data - m_region->data()) / kBlockBytes;
  }

  /// To a cell, or to what lies aside while blocks move.
  void write(const Block& block, std::uint64_t word) const {
    const std::size_t cell = cellAt(block);
    const bool isBad = cell < kCells && m_cell.value_or(cell) == cell;
    wordOf(block) = isBad ? (word & ~m_stuckBit) | m_stuckAt : word;
  }

  static std::uint64_t& wordOf(const Block& block) {
    return reinterpret_cast<std::uint64_t*>(block.data)[kWord];
  }

  bool differs(const Block& block, const Pattern& expected, FoundLine& found) {
    step();
    found.words = expected.expectedLine(block, 0);
    const std::uint64_t difference = found.words[kWord] ^ wordOf(block);
    found.words[kWord] = wordOf(block);
    const std::size_t cell = m_cell.value_or(cellAt(block));
    if (m_stuckBit != 0) {
      m_found[cell] = m_found[cell] || difference == m_stuckBit;
      return difference != 0;
    }
    for (std::size_t bit = 0; bit < kBits; ++bit) {
      if ((difference >> bit & 1) != 0 && m_firstFlip + bit < m_step) {
        m_found[(m_firstFlip + bit) * kCells + cell] = true;
      }
    }
    return difference != 0;
  }

  // The kernels. Of each block they know the first line.

  static void fill(const Block& block, const Pattern& next) {
    current->step();
    current->write(block, next.expectedLine(block, 0)[kWord]);
  }

  static std::size_t verify(const Block& block, std::size_t line, const Pattern& expected,
                            FoundLine& found) {
    if (line > 0) {
      return kLinesInBlock;
    }
    current->m_compared = block.data;
    return current->differs(block, expected, found) ? 0 : kLinesInBlock;
  }

  static std::size_t march(const Block& block, std::size_t line, const Pattern& expected,
                           const Pattern& next, FoundLine& found) {
    if (line > 0) {
      return kLinesInBlock;
    }
    if (current->differs(block, expected, found)) {
      return 0;
    }
    current->write(block, next.expectedLine(block, 0)[kWord]);
    return kLinesInBlock;
  }

  static void copy(const Block& to, const Block& from) {
    current->step();
    current->write(to, wordOf(from));
  }

  /// One visit together with the comparison before it.
  static void scatter(const Block& block, const Pattern& next) {
    if (current->m_compared != block.data) {
      current->step();
    }
    current->m_compared = nullptr;
    current->write(block, next.expectedLine(block, 0)[kWord]);
  }

  static constexpr Kernels kKernels = {
      "simulated", [] { return true; }, fill, verify, march, copy, scatter, [] {}};

  inline static SimulatedMemory* current = nullptr;

  Team m_team{{twoCpus().front()}};
  std::unique_ptr<Region> m_region = smallRegion(m_team, kCells);
  std::size_t m_step = 0;
  std::size_t m_firstFlip = 0;
  std::optional<std::size_t> m_cell;
  const std::byte* m_compared = nullptr;
  std::uint64_t m_stuckBit = 0;  ///< 0: none
  std::uint64_t m_stuckAt = 0;
  std::vector<bool> m_found;
};

}  // namespace TarvexDiags::Memory
