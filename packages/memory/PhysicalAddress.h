#pragma once

#include <cstdint>
#include <optional>

namespace TarvexDiags::Memory {

/// @brief The physical address of a virtual one of this process, also of one that the kernel has
/// taken away because it is poisoned. May be called in a signal handler.
/// @return nothing without the privilege to know, or when no page is there
std::optional<std::uint64_t> physicalAddressOf(const void* address);

}  // namespace TarvexDiags::Memory
