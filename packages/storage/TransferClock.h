#pragma once

#include <chrono>
#include <memory>

namespace TarvexDiags::Storage {

/// @brief What a source measures latencies with. A seam: tests bring clocks that say what they
/// want. Thread-safe.
class TransferClock {
 public:
  struct Moment {
    std::chrono::steady_clock::time_point time;
    /// How long the calling thread has been ready to run so far, and had no processor.
    std::chrono::nanoseconds starved{0};
  };

  TransferClock() = default;
  TransferClock(const TransferClock&) = delete;
  TransferClock& operator=(const TransferClock&) = delete;
  virtual ~TransferClock() = default;

  /// @brief The moment at which something begins, and at which it ended.
  virtual Moment begin() = 0;
  virtual Moment end() = 0;

  /// @brief The time from a moment to a later one of the same thread, without that in which the
  /// thread had no processor: that is not the disk's.
  static std::chrono::nanoseconds between(const Moment& begin, const Moment& end);
};

/// @brief Counts all time as the disk's.
std::shared_ptr<TransferClock> makePlainClock();

/// @brief Knows how long a thread waits for a processor, where the kernel tells; costs some
/// microseconds for each transfer.
std::shared_ptr<TransferClock> makeStarvationAwareClock();

}  // namespace TarvexDiags::Storage
