#pragma once

#include <termios.h>

#include <atomic>
#include <functional>
#include <thread>

#include "diagctl/terminal/Keys.h"

namespace TarvexDiags::FrontEnd {

/// Reads single keys from the terminal on standard input while it lives, without their echo,
/// whenever this process is in its foreground. Does nothing when standard input is no terminal.
class Keyboard {
 public:
  /// @param onKey called on a thread of this object.
  explicit Keyboard(std::function<void(Key)> onKey);
  ~Keyboard();
  Keyboard(const Keyboard&) = delete;
  Keyboard& operator=(const Keyboard&) = delete;

  /// Gives the terminal its old settings back. Safe in a signal handler.
  static void restoreTerminal();

 private:
  void run();
  void tell(std::optional<Key> key);

  std::function<void(Key)> m_onKey;
  KeyReader m_reader;
  std::atomic<bool> m_isWanted{false};
  std::thread m_thread;
};

}  // namespace TarvexDiags::FrontEnd
