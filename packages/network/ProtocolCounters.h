#pragma once

#include <cstdint>

namespace TarvexDiags::Network {

/// @brief What the kernel's protocols have counted in the calling thread's network namespace.
struct ProtocolCounters {
  std::uint64_t udpOverruns = 0;  ///< datagrams that found no room in a socket's buffer
  std::uint64_t damaged = 0;      ///< packets whose header or checksum was wrong
};

/// @brief All of them are 0 where the kernel does not tell.
ProtocolCounters readProtocolCounters();

}  // namespace TarvexDiags::Network
