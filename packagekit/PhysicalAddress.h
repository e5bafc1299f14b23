#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <optional>

namespace TarvexDiags::PackageKit {

/// @brief The frame that an entry of the kernel's page map tells of; 0 for none.
///
/// Documentation/admin-guide/mm/pagemap.rst of the kernel: 64 bits a page, bits 0 to 54 the page
/// frame (0 without CAP_SYS_ADMIN), bit 62 swapped, bit 63 present. Of a swapped page bits 0 to 4
/// are the kind of swap space and bits 5 to 54 the place in it. A poisoned page looks like one on
/// swap space of a kind that no real swap space has (there may be 23 of these and more, counted
/// from 0), with its frame for the place. The last kind is a mark without a page.
constexpr std::uint64_t frameOfMapEntry(std::uint64_t entry) {
  constexpr std::uint64_t present = std::uint64_t{1} << 63;
  constexpr std::uint64_t swapped = std::uint64_t{1} << 62;
  constexpr int kindBits = 5;
  constexpr std::uint64_t firstKindOfFrame = 20;
  constexpr std::uint64_t mark = 31;
  const std::uint64_t place = entry & ((std::uint64_t{1} << 55) - 1);
  if ((entry & present) != 0) {
    return place;
  }
  const std::uint64_t kind = place & ((std::uint64_t{1} << kindBits) - 1);
  const bool isFrame = (entry & swapped) != 0 && kind >= firstKindOfFrame && kind < mark;
  return isFrame ? place >> kindBits : 0;
}

/// @brief Where a worker keeps its page map open, since it gives up the right to open it.
constexpr int kPageMapDescriptor = 4;

/// @brief The page map that is kept open in this program or shared object, and for which process.
struct KeptPageMap {
  int descriptor = -1;
  pid_t process = 0;
};
inline KeptPageMap keptPageMap;

/// @brief Takes the worker's. To be called by the worker's own process before there are threads.
inline void useKeptPageMap() {
  keptPageMap = {kPageMapDescriptor, getpid()};
}

/// @brief The physical address of a virtual one of this process, also of one that the kernel has
/// taken away because it is poisoned. May be called in a signal handler.
/// @return nothing without the privilege to know, or when no page is there
inline std::optional<std::uint64_t> physicalAddressOf(const void* address) {
  const bool isKept = keptPageMap.process == getpid();
  const int file =
      isKept ? keptPageMap.descriptor : open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    return std::nullopt;
  }
  const auto page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  const auto location = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(address));
  std::uint64_t entry = 0;
  const ssize_t got =
      pread(file, &entry, sizeof(entry), static_cast<off_t>(location / page * sizeof(entry)));
  if (!isKept) {
    close(file);
  }
  const std::uint64_t frame =
      got == static_cast<ssize_t>(sizeof(entry)) ? frameOfMapEntry(entry) : 0;
  if (frame == 0) {
    return std::nullopt;
  }
  return frame * page + location % page;
}

}  // namespace TarvexDiags::PackageKit
