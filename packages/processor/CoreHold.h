#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace TarvexDiags::Processor {

/// @brief A core was taken away from a thread that worked on it: it was unplugged, or the thread
/// may no longer run there. What was computed elsewhere tells nothing of the core.
class CoreTakenAway : public std::runtime_error {
 public:
  explicit CoreTakenAway(int core)
      : std::runtime_error("core " + std::to_string(core) + " was taken away"), m_core(core) {}

  int core() const { return m_core; }

 private:
  int m_core;
};

/// @brief Keeps the calling thread on one core while it lives, then gives it back the CPUs that it
/// had. Neither the kernel nor the administrator is bound by that, so whoever judges a core looks
/// whether the thread is still there.
///
/// Thread-safety: the thread that made it.
class CoreHold {
 public:
  /// @throws Common::NotSupported when the thread may not run there
  explicit CoreHold(int core);
  ~CoreHold();
  CoreHold(const CoreHold&) = delete;
  CoreHold& operator=(const CoreHold&) = delete;

  /// @brief Throws CoreTakenAway when the thread runs elsewhere at this moment. Some nanoseconds:
  /// asked for after each batch of work.
  void require() const;

  /// @brief Throws CoreTakenAway also when the thread might run elsewhere, or might have: its set
  /// of CPUs is no longer the core alone. A call of the kernel.
  void requireAlone() const;

 private:
  int m_core;
  std::vector<int> m_before;
};

}  // namespace TarvexDiags::Processor
