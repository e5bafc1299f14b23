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

/// Whether a thread of this process blocks in the kernel.
inline bool isAsleep(const std::string& kernelId) {
  std::ifstream status("/proc/self/task/" + kernelId + "/stat");
  std::string text;
  std::getline(status, text);
  const auto name = text.rfind(") ");
  return name != std::string::npos && text.compare(name + 2, 1, "S") == 0;
}

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

  /// Waits until the action blocks in the kernel: on a lock, or for a signal; it may be on a lock
  /// that others hold for a moment, which WaitPlace.h tells apart.
  bool blocks() const { return comesTo(isAsleep); }
  /// Waits until a predicate holds of the id that the kernel gives the thread. @return false if the
  /// action ends before.
  template <class Predicate>
  bool comesTo(Predicate predicate) const {
    return eventually([&] {
             return m_ended || (m_kernelId != 0 && predicate(std::to_string(m_kernelId)));
           }) &&
           !m_ended;
  }
  /// Waits for the end of the action.
  bool ends() const {
    return eventually([this] { return ended(); });
  }

 private:
  std::atomic<long> m_kernelId{0};
  std::atomic<bool> m_ended{false};
  std::thread m_thread;  // last: starts when the others are there
};

}  // namespace TarvexDiags::TestSupport
