#pragma once

#include <chrono>
#include <thread>

namespace TarvexDiags::TestSupport {

/// Polls until the condition holds. @return whether it came to hold within the time.
template <class Condition>
bool eventually(Condition condition,
                std::chrono::milliseconds limit = std::chrono::milliseconds(20'000)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return condition();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

/// For what must not happen: whether the condition stays false for that long.
template <class Condition>
bool neverWithin(std::chrono::milliseconds time, Condition condition) {
  return !eventually(condition, time);
}

}  // namespace TarvexDiags::TestSupport
