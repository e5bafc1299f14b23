#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "packages/memory/Miscompare.h"
#include "packages/memory/Region.h"

namespace TarvexDiags::Memory {

/// @brief Who starts a test hears of it here. Calls come from the team's threads.
class Observer {
 public:
  virtual ~Observer() = default;

  /// @brief Asked often; true ends the test soon. Any thread, several at a time.
  virtual bool stopRequested() = 0;

  /// @brief How much of the test is done, 0 to 1. One thread at a time.
  virtual void progress(double share) = 0;

  /// @brief So many bytes more were written or compared, or both. One thread at a time.
  virtual void walked(std::uint64_t bytes) { static_cast<void>(bytes); }

  /// @brief A fault. One thread at a time.
  virtual void miscompare(const Miscompare& fault) = 0;

  /// @brief A page that the kernel took away, and whose content is therefore nobody's fault. Each
  /// is told once. One thread at a time.
  virtual void pagePoisoned(const PoisonedPage& page) = 0;

  /// @brief Waits. @return false when the test shall end.
  virtual bool wait(std::chrono::milliseconds duration) = 0;
};

/// @brief Where faults are put into the memory by tests of the tests. A pass uses none.
///
/// Accesses that look into one word (not the sweeps) are told of each by each, so that a stuck cell
/// or crossed address lines can be played.
class FaultSeam {
 public:
  virtual ~FaultSeam() = default;

  /// @brief Everything is written and nothing compared yet; `step` counts these from 0.
  virtual void written(const Region& region, std::size_t step) {
    static_cast<void>(region);
    static_cast<void>(step);
  }

  /// @brief One word was written, by itself.
  virtual void wordWritten(std::uint64_t* word) { static_cast<void>(word); }

  /// @brief One word that was found wrong will be read again.
  virtual void readAgain(std::uint64_t* word) { static_cast<void>(word); }
};

}  // namespace TarvexDiags::Memory
