#pragma once

#include <vector>

#include "inventory/Comparison.h"

namespace TarvexDiags::Inventory {

// Which parts hang together, so that one fault is one finding.

/// @brief Keeps what is wrong with a PCI link once, at the device's end: the port above it and the
/// further functions of the device tell the same.
void tellLinksOnce(std::vector<Difference>& differences);

/// @brief Puts parts that are missing, or were added, to the one on which they hang: what is behind
/// a bridge, the further functions of a device, and the disk, interface, adapter or GPU that a
/// device is.
/// @param expected, actual the documents, simplified.
void gatherWhatHangsOn(std::vector<Finding>& findings, const Json& expected, const Json& actual);

}  // namespace TarvexDiags::Inventory
