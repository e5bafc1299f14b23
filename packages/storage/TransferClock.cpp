#include "packages/storage/TransferClock.h"

#include <algorithm>
#include <cstdint>
#include <fstream>

namespace TarvexDiags::Storage {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

class PlainClock final : public TransferClock {
 public:
  Moment begin() override { return {Clock::now()}; }
  Moment end() override { return begin(); }
};

/// @brief What the kernel counts for the calling thread: time on a processor, time without.
nanoseconds starvation() {
  std::int64_t running = 0;
  std::int64_t waiting = 0;
  std::ifstream("/proc/thread-self/schedstat") >> running >> waiting;
  return nanoseconds(waiting);
}

// The look at the kernel's count encloses the one at the time: a thread that loses its processor in
// between must not look like a disk that is slow.
class StarvationAwareClock final : public TransferClock {
 public:
  Moment begin() override {
    const nanoseconds starved = starvation();
    return {Clock::now(), starved};
  }
  Moment end() override {
    const auto now = Clock::now();
    return {now, starvation()};
  }
};

}  // namespace

nanoseconds TransferClock::between(const Moment& begin, const Moment& end) {
  const nanoseconds whole = end.time - begin.time;
  return whole - std::clamp(end.starved - begin.starved, nanoseconds(0), whole);
}

std::shared_ptr<TransferClock> makePlainClock() {
  return std::make_shared<PlainClock>();
}

std::shared_ptr<TransferClock> makeStarvationAwareClock() {
  return std::make_shared<StarvationAwareClock>();
}

}  // namespace TarvexDiags::Storage
