#pragma once

#include <string>
#include <vector>

#include "inventory/Inventory.h"

namespace TarvexDiags::Inventory {

/// @brief A part as somebody orders another one. Each text is empty when nobody tells it.
struct Part {
  std::string id;      ///< unique in the machine, and the same until the part moves
  std::string name;    ///< for people
  std::string device;  ///< by which the kernel calls it, "nvme0n1"; empty for what has no such name
  std::string location;
  std::string manufacturer = {};
  std::string partNumber = {};
  std::string serialNumber = {};
  std::string version = {};  ///< of its firmware, or its revision
};

/// @brief The parts that a maker sells: the machine itself, its board and firmware, processors,
/// memory modules, disks, interfaces, adapters and accelerators. Reads far fewer files than
/// takeInventory.
/// @param ask as for takeInventory.
std::vector<Part> findParts(const SystemFiles& files, const AskDriver& ask);

}  // namespace TarvexDiags::Inventory
