#pragma once

#include <cstddef>
#include <cstdint>

namespace TarvexDiags::Memory {

/// @brief The plainest loops that the machine has for the work, with the widest vectors and nothing
/// around them: no blocks, no place where a fault would be told. What a test is measured against.
///
/// Sizes are multiples of 64 bytes, the memory is aligned to that.
struct BareLoops {
  const char* name;
  void (*write)(std::byte* data, std::size_t bytes, std::uint64_t word);
  /// @return whether all words agree
  bool (*compare)(const std::byte* data, std::size_t bytes, std::uint64_t word);
  /// @return whether all words agreed before they were written
  bool (*march)(std::byte* data, std::size_t bytes, std::uint64_t before, std::uint64_t after);
};

const BareLoops& bestBareLoops();

}  // namespace TarvexDiags::Memory
