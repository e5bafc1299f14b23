#include "packages/memory/PhysicalAddress.h"

#include <fcntl.h>
#include <unistd.h>

namespace TarvexDiags::Memory {

namespace {

// Documentation/admin-guide/mm/pagemap.rst of the kernel: 64 bits a page, bits 0 to 54 the page
// frame (0 without CAP_SYS_ADMIN), bit 62 swapped, bit 63 present. Of a swapped page bits 0 to 4
// are the kind of swap space and bits 5 to 54 the place in it.
constexpr std::uint64_t kPresent = std::uint64_t{1} << 63;
constexpr std::uint64_t kSwapped = std::uint64_t{1} << 62;
constexpr std::uint64_t kPlace = (std::uint64_t{1} << 55) - 1;
constexpr int kKindBits = 5;

// A poisoned page looks like one on swap space of a kind that no real swap space has (there may be
// 23 of these and more, counted from 0), with its frame for the place. The last kind is a mark
// without a page.
constexpr std::uint64_t kFirstKindOfFrame = 20;
constexpr std::uint64_t kMark = 31;

std::uint64_t frameOf(std::uint64_t entry) {
  const std::uint64_t place = entry & kPlace;
  if ((entry & kPresent) != 0) {
    return place;
  }
  const std::uint64_t kind = place & ((std::uint64_t{1} << kKindBits) - 1);
  const bool isFrame = (entry & kSwapped) != 0 && kind >= kFirstKindOfFrame && kind < kMark;
  return isFrame ? place >> kKindBits : 0;
}

}  // namespace

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
  const std::uint64_t frame = got == static_cast<ssize_t>(sizeof(entry)) ? frameOf(entry) : 0;
  if (frame == 0) {
    return std::nullopt;
  }
  return frame * page + location % page;
}

}  // namespace TarvexDiags::Memory
