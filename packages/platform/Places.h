#pragma once

#include <string>
#include <vector>

#include "inventory/Facts.h"

namespace TarvexDiags::Platform {

using Inventory::Json;
using Inventory::SystemFiles;

/// @brief Stands for the name of a slot where neither firmware nor kernel have one.
inline constexpr const char* kSlotNotNamed = "SLOT_NOT_NAMED";

/// @brief The slot in which a part sits, by its place in the inventory; kSlotNotNamed without one.
/// @param pci the devices, as the inventory tells of them.
std::string slotOf(const Json& pci, std::string place);

/// @brief Texts in one, with commas.
std::string joined(const std::vector<std::string>& texts, const char* between = ", ");

/// @brief A fact's text; empty when there is none, or it is unknown.
std::string textOf(const Json& facts, const char* key);

}  // namespace TarvexDiags::Platform
