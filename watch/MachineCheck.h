#pragma once

#include <cstdint>

#include "watch/Finding.h"

namespace TarvexDiags::Watching {

/// @brief What the status register of a bank says. Bit 61 is set when the error was not corrected
/// (Intel SDM volume 3B, 16.3.2.2; AMD APM volume 2, 9.3.2).
constexpr Kind kindOfMachineCheck(std::uint64_t status) {
  return (status >> 61 & 1) != 0 ? Kind::MachineCheckUncorrected : Kind::MachineCheckCorrected;
}

/// @brief Whether the bank tells of the memory, as the driver of its controller does as well:
/// compound code 000F 0000 1MMM CCCC (Intel SDM volume 3B, 16.9.2).
constexpr bool isOfMemory(std::uint64_t status) {
  return (status & 0xef80) == 0x0080;
}

}  // namespace TarvexDiags::Watching
