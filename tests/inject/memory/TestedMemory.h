#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace TarvexDiags::Memory {

/// @brief The memory that a worker of the package tests, seen and changed from outside. Needs root.
class TestedMemory {
 public:
  /// @brief Waits until the worker has mapped it. Throws std::runtime_error if it does not.
  explicit TestedMemory(pid_t worker);

  std::uintptr_t begin() const { return m_begin; }
  std::size_t bytes() const { return m_end - m_begin; }

  /// @brief Inverts bits of a word while no thread of the worker runs.
  /// @return false when the worker has gone
  bool flip(std::uintptr_t address, std::uint64_t bits) const;

  /// @brief Waits until the page of an address has been touched. @return its physical address
  std::uint64_t physicalAddressOf(std::uintptr_t address) const;

  /// @brief Has a thread hear from the kernel that a page is poisoned.
  /// @param thread  of the worker, counted from 0, the main one
  /// @param code    BUS_MCEERR_AR or BUS_MCEERR_AO
  void poison(std::size_t thread, std::uintptr_t address, int code) const;

 private:
  bool find();

  pid_t m_worker;
  std::uintptr_t m_begin = 0;
  std::uintptr_t m_end = 0;
};

}  // namespace TarvexDiags::Memory
