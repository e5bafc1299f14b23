#include "packages/storage/Crc32c.h"

#include <isa-l/crc.h>

#include <algorithm>

namespace TarvexDiags::Storage {

std::uint32_t crc32c(std::span<const std::byte> bytes) {
  // The library takes an int as length and leaves the inversions to its caller.
  constexpr std::size_t longest = std::size_t{1} << 30;
  std::uint32_t value = 0xFFFFFFFFU;
  while (!bytes.empty()) {
    const auto part = bytes.first(std::min(bytes.size(), longest));
    // It only reads, whatever its signature says.
    auto* data = reinterpret_cast<unsigned char*>(const_cast<std::byte*>(part.data()));
    value = crc32_iscsi(data, static_cast<int>(part.size()), value);
    bytes = bytes.subspan(part.size());
  }
  return ~value;
}

}  // namespace TarvexDiags::Storage
