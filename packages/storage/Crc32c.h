#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace TarvexDiags::Storage {

/// @brief CRC-32C (Castagnoli) of the bytes, as RFC 3720 defines it. ISA-L picks the widest
/// instructions that the processor has when it is first called, and a table where it has none.
std::uint32_t crc32c(std::span<const std::byte> bytes);

}  // namespace TarvexDiags::Storage
