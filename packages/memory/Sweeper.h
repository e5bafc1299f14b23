#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "System/Mutex.h"
#include "packages/memory/Kernels.h"
#include "packages/memory/Observer.h"
#include "packages/memory/Region.h"
#include "packages/memory/Team.h"

namespace TarvexDiags::Memory {

/// @brief One way through the whole region: compare with one pattern, write another, or both.
struct Sweep {
  /// The order of the slices. Within one it always rises: that is how processors fetch ahead, and
  /// what reaches the memory is ordered by the caches anyway.
  enum class Order { Rising, Falling };
  enum class Writing {
    Streamed,   ///< line by line, past the caches
    Scattered,  ///< the marked words of a modulo pattern first, then twice all others
  };

  Order order = Order::Rising;
  std::optional<Pattern> expected = {};
  std::optional<Pattern> next = {};
  Writing writing = Writing::Streamed;
};

/// @brief Takes all threads of a team through the region, slice by slice, and reports what is
/// wrong.
///
/// A slice goes to the thread that is free first, so a line is often verified by another core than
/// the one that wrote it, and a core that others keep busy holds nobody up.
///
/// Thread-safety: one thread.
class Sweeper {
 public:
  /// So many miscompares are reported one by one; the rest is counted.
  static constexpr std::uint64_t kMaximumReported = 32;
  /// After so many a test ends: nothing new is to be learned.
  static constexpr std::uint64_t kMaximumCounted = 100000;

  /// @param seam  null in a pass; all others outlive the sweeper
  Sweeper(Region& region, Team& team, const Kernels& kernels, Observer& observer,
          FaultSeam* seam = nullptr);

  Region& region() { return m_region; }
  const Kernels& kernels() const { return m_kernels; }
  Observer& observer() { return m_observer; }
  FaultSeam* seam() { return m_seam; }

  /// @brief Words that were wrong, reported or not.
  std::uint64_t miscompares() const { return m_miscompares; }
  /// @brief Bytes that were compared.
  std::uint64_t bytesVerified() const { return m_blocksVerified * kBlockBytes; }

  /// @brief Tells how many walks through the region the test takes, for its progress.
  void expectWalks(std::size_t walks);

  /// @brief Runs one sweep. @return false when the test was asked to stop or found too much
  bool run(const Sweep& sweep);
  /// @brief Runs them in turn, as long as none returns false.
  bool run(const std::vector<Sweep>& sweeps);

  /// @brief Has the threads call `work` for each slice.
  /// @return as run does
  bool forEachSlice(Sweep::Order order, const std::function<void(std::size_t slice)>& work);

  /// @brief Compares one block, reports each wrong word, and writes `next` where it is given. A
  /// block whose content was moved has the number of the one for which it was written.
  void compare(const Block& block, const Pattern& expected, const Pattern* next);

  /// @brief Adds to bytesVerified, for those who call compare themselves. Once a slice and not once
  /// a block: it waits for the streamed stores.
  void countVerified(std::size_t blocks) { m_blocksVerified += blocks; }

  /// @brief Looks at a word that was wrong again, and reports it. Any of the threads.
  void judge(std::uint64_t* word, std::uint64_t expected, std::uint64_t found,
             const std::string& patternName);

  /// @brief To be called between writing and comparing.
  void tellWritten();

  /// @brief Tells the observer of poisoned pages that it has not heard of. Walks do it by
  /// themselves.
  void tellPoisonedPages();

  /// @brief From now on contents move within their slices, at the same offset in their blocks: what
  /// a poisoned page has lost may be missed elsewhere.
  void expectMoves() { m_blocksMove = true; }

  bool stopped() const;

 private:
  void sweepBlock(const Block& block, const Sweep& sweep);
  void judgeLine(const Block& block, std::size_t line, const Pattern& expected,
                 const FoundLine& found);
  /// Whether the content of a word was lost with a poisoned page.
  bool isLost(const void* word) const;

  Region& m_region;
  Team& m_team;
  const Kernels& m_kernels;
  Observer& m_observer;
  FaultSeam* m_seam;
  bool m_blocksMove = false;
  std::size_t m_step = 0;
  std::size_t m_walksExpected = 1;
  std::size_t m_walksDone = 0;
  std::atomic<std::uint64_t> m_miscompares{0};
  std::atomic<std::uint64_t> m_blocksVerified{0};
  System::Mutex m_reportLock;  ///< the observer hears from one thread at a time
};

}  // namespace TarvexDiags::Memory
