#include "packages/memory/Miscompare.h"

#include <fcntl.h>
#include <unistd.h>

namespace TarvexDiags::Memory {

const char* nameOf(FaultKind kind) {
  switch (kind) {
    case FaultKind::ReadDisturbance:
      return "read disturbance";
    case FaultKind::FlippedContent:
      return "flipped content";
    case FaultKind::StuckBit:
      return "stuck bit";
  }
  return "";
}

// Documentation/admin-guide/mm/pagemap.rst of the kernel: 64 bits a page, bits 0 to 54 the page
// frame (0 without CAP_SYS_ADMIN), bit 63 present.
std::optional<std::uint64_t> physicalAddressOf(const void* address) {
  const int file = open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    return std::nullopt;
  }
  const auto page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  const auto location = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(address));
  std::uint64_t entry = 0;
  const ssize_t got =
      pread(file, &entry, sizeof(entry), static_cast<off_t>(location / page * sizeof(entry)));
  close(file);
  const std::uint64_t frame = entry & ((std::uint64_t{1} << 55) - 1);
  const bool present = (entry >> 63) != 0;
  if (got != static_cast<ssize_t>(sizeof(entry)) || !present || frame == 0) {
    return std::nullopt;
  }
  return frame * page + location % page;
}

}  // namespace TarvexDiags::Memory
