#pragma once

#include <string>

#include "inventory/Facts.h"

namespace TarvexDiags::Inventory {

/// @brief Where a device of the machine hangs, as "0000:00/1c.0/00.0": the root, then device and
/// function of each bridge and of the device. The numbers of the buses between them change whenever
/// a card is put in elsewhere; this does not.
/// @param device below the root of the files, without links. Empty when no PCI device is on the
/// way.
std::string pciPathOf(const std::filesystem::path& device);

/// @brief The address of the PCI device on which something hangs, "0000:01:00.0"; empty for none.
std::string pciAddressOf(const std::filesystem::path& device);

/// @brief A key that no other part of a tree has: the place, or with "#2" and so on behind it.
std::string keyFor(const Json& tree, const std::string& place);

}  // namespace TarvexDiags::Inventory
