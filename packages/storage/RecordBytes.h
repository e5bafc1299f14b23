#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace TarvexDiags::Storage {

/// @brief A record as a device sent it, of any length. Nothing here reads beyond its end: what
/// would lie there is 0.
using Record = std::span<const std::uint8_t>;

std::uint8_t byteAt(Record record, std::size_t at);

/// @brief The number of `width` bytes (at most 8), the least significant first.
std::uint64_t littleEndian(Record record, std::size_t at, std::size_t width);

/// @brief The same, the most significant first.
std::uint64_t bigEndian(Record record, std::size_t at, std::size_t width);

/// @brief What there is of `length` bytes from `at` on.
Record partOf(Record record, std::size_t at, std::size_t length);

/// @brief Whether all bytes add up to 0 (modulo 256), as records with a checksum do.
bool addsUpToZero(Record record);

/// @brief Text without what no terminal should see: bytes that are no printable ASCII become "?",
/// blanks and zeros at both ends go.
std::string printable(Record text);

}  // namespace TarvexDiags::Storage
