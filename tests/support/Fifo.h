#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/ThreadState.h"

namespace TarvexDiags::TestSupport {

/// A FIFO that nobody writes to: who opens it for reading as if it were a file blocks for ever.
class Fifo {
 public:
  explicit Fifo(std::string path) : m_path(std::move(path)) {
    if (mkfifo(m_path.c_str(), 0600) != 0) {
      throw std::runtime_error("no FIFO at " + m_path);
    }
  }

  /// Runs an action beside. @return whether it ended by itself; it is freed of the FIFO if not.
  bool staysClearOf(const std::function<void()>& action) const {
    Companion companion(action);
    const bool isClear = companion.ends();
    while (!companion.ended()) {
      close(open(m_path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return isClear;
  }

 private:
  std::string m_path;
};

}  // namespace TarvexDiags::TestSupport
