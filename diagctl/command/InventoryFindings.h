#pragma once

#include <string>

#include "inventory/Comparison.h"

namespace TarvexDiags::FrontEnd {

// What differs between a machine and what it should be, told for people.

/// "disk 0000:16/02.0/00.0/n1 (nvme0n1, Disk of 4 TB, serial number S5X)".
std::string nameOf(const Inventory::Finding& finding);

/// The finding in a sentence, with the name of its part.
std::string describe(const Inventory::Finding& finding);

/// What to do about it.
std::string adviceFor(const Inventory::Finding& finding);

/// The identifier of the kind of finding: "part-missing".
const char* symptomOf(const Inventory::Finding& finding);

/// A fact's value, as it is told in a sentence; cut where it is long.
std::string valueText(const Inventory::Json& value);

}  // namespace TarvexDiags::FrontEnd
