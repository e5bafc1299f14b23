#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

#include "packages/memory/Region.h"

namespace TarvexDiags::Memory {

inline constexpr int kPageShift = 12;
inline constexpr std::size_t kPageBytes = std::size_t{1} << kPageShift;

/// @brief Sends the calling thread what the kernel sends when a page is poisoned. Only a process
/// itself may pretend to be the kernel.
/// @param code   BUS_MCEERR_AR or BUS_MCEERR_AO
/// @param shift  the binary logarithm of the size of what is lost
inline void signalPoison(void* address, int code, short shift = kPageShift) {
  siginfo_t information{};
  information.si_signo = SIGBUS;
  information.si_code = code;
  information.si_addr = address;
  information.si_addr_lsb = shift;
  ASSERT_EQ(syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), SIGBUS, &information), 0);
}

/// @brief Where a mapping of this size begins at the border of a huge page; null when there is
/// none.
inline std::byte* findMapping(std::size_t bytes) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    if (std::sscanf(line.c_str(), "%lx-%lx", &begin, &end) == 2 && end - begin == bytes &&
        begin % (Region::kBlocksInSlice * kBlockBytes) == 0) {
      return reinterpret_cast<std::byte*>(begin);
    }
  }
  return nullptr;
}

}  // namespace TarvexDiags::Memory
