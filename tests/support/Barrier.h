#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/support/Eventually.h"

namespace TarvexDiags::TestSupport {

/// A gate at which a thread of the package or pipeline stays until the test opens it.
class Barrier {
 public:
  Barrier() = default;
  /// Opens, so that a test that has failed ends all the same, and lets everybody out.
  ~Barrier() {
    open();
    eventually([this] { return m_inside == 0; });
  }
  Barrier(const Barrier&) = delete;
  Barrier& operator=(const Barrier&) = delete;

  /// For the thread that is to stay.
  void pass() {
    ++m_inside;
    ++m_arrived;
    while (!m_open) {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    --m_inside;
  }
  void open() { m_open = true; }
  /// For the test. @return false if nobody came within the time.
  bool awaitArrival(std::chrono::milliseconds limit = std::chrono::seconds(20)) const {
    return eventually([this] { return m_arrived > 0; }, limit);
  }
  bool isOpen() const { return m_open; }

 private:
  std::atomic<int> m_arrived{0};
  std::atomic<int> m_inside{0};
  std::atomic<bool> m_open{false};
};

}  // namespace TarvexDiags::TestSupport
