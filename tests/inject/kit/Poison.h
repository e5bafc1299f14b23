#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace TarvexDiags::Injection {

/// A page of a process, as the kernel tells of it.
struct Page {
  std::uint64_t address = 0;   ///< in the process
  std::uint64_t physical = 0;  ///< 0: the kernel does not tell
};

/// A page of the stack of a process, which is in memory.
Page stackPageOf(pid_t process);

/// Delivers the signal by which the kernel tells of memory with an uncorrectable error: as to a
/// process that has just read that address.
/// @throws std::system_error if it cannot be traced.
void poison(pid_t process, std::uint64_t address);

/// "0x7f..", or "?" for an address that is not known.
std::string textOf(std::uint64_t address);

}  // namespace TarvexDiags::Injection
