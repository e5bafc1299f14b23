#pragma once

#include "inventory/Facts.h"

namespace TarvexDiags::Inventory {

/// @brief An inventory with the roots of its PCI devices named as in another one: firmware numbers
/// the buses of host bridges anew when it is set otherwise, and what hangs below them is the same.
/// Roots are matched by what hangs there, by topology and ids, and those of one name first.
/// @param other that has the names.
Json alignedWith(const Json& other, const Json& inventory);

/// @brief An inventory as it is compared: without places for memory modules that are empty, since
/// a module that is gone is no other fact than one that never was there, and without the upper end
/// of PCI links, which the bridge tells of itself. A place of which firmware does not know whether
/// it is empty is kUnknown.
Json simplified(const Json& inventory);

}  // namespace TarvexDiags::Inventory
