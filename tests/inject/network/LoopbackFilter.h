#pragma once

namespace TarvexDiags::Network {

/// @brief Lets nothing arrive at the loopback interface of the calling thread's namespace, as a
/// rule of a packet filter does that drops without a word. Throws std::system_error.
void filterLoopback();

}  // namespace TarvexDiags::Network
