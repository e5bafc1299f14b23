#pragma once

#include <termios.h>

#include <atomic>
#include <functional>
#include <thread>

namespace TarvexDiags::FrontEnd {

/// Reads single keys from the terminal on standard input while it lives, without their echo. Does
/// nothing when standard input is no terminal, or this process is not in its foreground.
class Keyboard {
 public:
  /// @param onKey called on a thread of this object.
  explicit Keyboard(std::function<void(char)> onKey);
  ~Keyboard();
  Keyboard(const Keyboard&) = delete;
  Keyboard& operator=(const Keyboard&) = delete;

  /// Gives the terminal its old settings back. Safe in a signal handler.
  static void restoreTerminal();

 private:
  void run();

  std::function<void(char)> m_onKey;
  std::atomic<bool> m_isWanted{false};
  std::thread m_thread;
};

}  // namespace TarvexDiags::FrontEnd
