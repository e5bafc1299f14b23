#pragma once

namespace TarvexDiags::Network::BrokenListing {

constexpr int kNever = 0;

/// @brief From the entry of that number on, counted from 1, folders cannot be read any further.
void failFrom(int entry);

}  // namespace TarvexDiags::Network::BrokenListing
