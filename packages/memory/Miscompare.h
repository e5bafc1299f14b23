#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace TarvexDiags::Memory {

/// @brief What a second look at a word that was wrong has shown.
enum class FaultKind {
  ReadDisturbance,  ///< read again, it was right: the read went wrong, not the cell
  FlippedContent,   ///< wrong again, but right once it was written anew
  StuckBit,         ///< wrong even after it was written anew
};

/// @brief A word that did not hold what was written. Thread-safety: a plain value.
struct Miscompare {
  std::uintptr_t virtualAddress;
  std::optional<std::uint64_t> physicalAddress;  ///< where the process may know it
  std::uint64_t expected;
  std::uint64_t found;
  std::uint64_t foundAgain;  ///< by the second read
  FaultKind kind;
  std::string pattern;  ///< the name of the pattern that was expected

  std::uint64_t differingBits() const { return expected ^ found; }
};

/// @brief "read disturbance", "flipped content" or "stuck bit".
const char* nameOf(FaultKind kind);

}  // namespace TarvexDiags::Memory
