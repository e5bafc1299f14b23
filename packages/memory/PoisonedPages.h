#pragma once

#include <signal.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace TarvexDiags::Memory {

/// @brief Memory that the kernel took away because of an error in it that nothing can correct.
/// Thread-safety: a plain value.
struct PoisonedPage {
  std::uintptr_t begin = 0;  ///< virtual
  std::size_t bytes = 0;
  std::optional<std::uint64_t> physicalAddress;  ///< where the process may know it
};

/// @brief Keeps a process alive when pages of a mapping are poisoned, and remembers them.
///
/// The kernel tells of such a page by a signal to the thread that touches it, or that happens to
/// run. A fresh page then takes the place of the lost one, so that the thread goes on, with other
/// content than was written. Signals that are about anything else go where they went before.
///
/// Thread-safety: one thread makes and ends these, the last one first; the rest is for any thread.
class PoisonedPages {
 public:
  /// So many are remembered. A mapping that loses more is not worth going on with.
  static constexpr std::size_t kMaximum = 256;

  /// @param data   of a private mapping without a file, at the border of a page
  /// @param bytes  whole pages
  PoisonedPages(std::byte* data, std::size_t bytes);
  ~PoisonedPages();
  PoisonedPages(const PoisonedPages&) = delete;
  PoisonedPages& operator=(const PoisonedPages&) = delete;

  /// @brief Whether there are so many that a test should end.
  bool areTooMany() const { return m_claimed.load(std::memory_order_relaxed) >= kMaximum; }

  /// @brief Whether none has come. Cheap.
  bool empty() const { return m_claimed.load(std::memory_order_relaxed) == 0; }

  /// @brief All so far, each once.
  std::vector<PoisonedPage> pages() const;

  /// @brief Those of pages() that no call has handed over yet. One thread at a time.
  std::vector<PoisonedPage> takeNew();

 private:
  struct Entry {
    PoisonedPage page;
    std::atomic<bool> isWritten{false};
  };
  /// More than kMaximum: threads go on for a moment after there are too many.
  static constexpr std::size_t kRoom = 2 * kMaximum;

  static void onSignal(int signal, siginfo_t* information, void* context);
  /// Called in the signal handler. @return false when the fault is not in the mapping, or no page
  /// could be put there.
  bool replace(std::uintptr_t address, std::size_t bytes);
  static void passOn(int signal, siginfo_t* information, void* context);

  std::byte* const m_data;
  const std::uintptr_t m_begin;
  const std::uintptr_t m_end;
  std::array<Entry, kRoom> m_entries;
  std::atomic<std::size_t> m_claimed{0};
  std::vector<std::uintptr_t> m_handedOver;
  PoisonedPages* m_outer = nullptr;
};

}  // namespace TarvexDiags::Memory
