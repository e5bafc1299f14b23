#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/Eventually.h"

namespace TarvexDiags::TestSupport {

/// Runs an action on a thread of its own, and tells from outside what has become of it.
class Companion {
 public:
  explicit Companion(std::function<void()> action)
      : m_thread([this, action = std::move(action)] {
          m_kernelId = syscall(SYS_gettid);
          action();
          m_ended = true;
        }) {}
  ~Companion() {
    if (m_thread.joinable()) {
      m_thread.join();
    }
  }
  Companion(const Companion&) = delete;
  Companion& operator=(const Companion&) = delete;

  bool ended() const { return m_ended; }

  /// Waits until the action blocks in the kernel: on a lock, or for a signal.
  bool blocks() const {
    return eventually([this] { return m_ended || isAsleep(); }) && !m_ended;
  }
  /// Waits for the end of the action.
  bool ends() const {
    return eventually([this] { return ended(); });
  }

 private:
  bool isAsleep() const {
    if (m_kernelId == 0) {
      return false;
    }
    std::ifstream status("/proc/self/task/" + std::to_string(m_kernelId) + "/stat");
    std::string text;
    std::getline(status, text);
    const auto name = text.rfind(") ");
    return name != std::string::npos && text.compare(name + 2, 1, "S") == 0;
  }

  std::atomic<long> m_kernelId{0};
  std::atomic<bool> m_ended{false};
  std::thread m_thread;  // last: starts when the others are there
};

}  // namespace TarvexDiags::TestSupport
