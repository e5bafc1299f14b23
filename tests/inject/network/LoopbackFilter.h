#pragma once

namespace TarvexDiags::Network {

/// @brief Lets nothing arrive at the loopback interface of the calling thread's namespace, as a
/// rule of a packet filter does that drops without a word. Throws std::system_error.
void filterLoopback();

/// @brief Lets no more than so much through it, and holds back what comes too early. Throws
/// std::system_error.
void slowLoopback(int bytesPerSecond);

}  // namespace TarvexDiags::Network
