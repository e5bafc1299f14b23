#pragma once

// Workers that are no processes: what they say, and how they end, is known before they start. Takes
// the place of the kit's own process, whose interface it has.

#include <cstddef>
#include <string>
#include <vector>

#include "packagekit/internal/WorkerProcess.h"

namespace TarvexDiags::Fuzz {

/// One worker from its start to its end.
struct WorkerLife {
  std::string messages = {};  ///< bytes on its socket
  std::string output = {};    ///< bytes on its standard output
  PackageKit::ProcessEnd end = {};
  bool hasMetPoison = false;
};

/// What a socket and a pipe take without anybody who reads.
inline constexpr std::size_t kMostSaid = 32 * 1024;

/// The workers that are started from now on, one after the other, and no more of them.
void setLives(std::vector<WorkerLife> lives);

/// How many have been started since.
std::size_t livesBegun();

}  // namespace TarvexDiags::Fuzz
