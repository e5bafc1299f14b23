#pragma once

#include <string>
#include <vector>

#include "inventory/Comparison.h"
#include "inventory/Facts.h"
#include "inventory/Rules.h"

namespace TarvexDiags::Inventory {

/// @brief An inventory, and the name of its file.
struct NamedInventory {
  std::string name;
  Json inventory;
};

/// @brief What machines of one kind should be.
struct Golden {
  Json inventory;
  Rules rules;  ///< facts on which the machines do not agree, each with a note; they come first
};

/// @brief A machine that is not as most are, and in what.
struct OddMachine {
  std::string name;
  std::vector<Finding> findings;
};

/// @brief Fewer would have no majority that means anything.
inline constexpr std::size_t kFewestForGolden = 4;

/// @brief What most of the machines are: each fact that at least three quarters of them have. One
/// on which fewer agree is left out, with a rule that ignores it; what the rules ignore is left out
/// without one. Facts with a tolerance count as one within it.
/// @param machines at least kFewestForGolden, in any order.
/// @param rules by which the machines will be held against it.
Golden goldenOf(const std::vector<NamedInventory>& machines, const Rules& rules);

/// @brief Those of the machines that differ, in their order.
std::vector<OddMachine> oddMachines(const std::vector<NamedInventory>& machines,
                                    const Golden& golden, const Rules& rules);

/// @brief The document "diagctl.golden". @param count of the machines.
Json toJson(const Golden& golden, std::size_t count);

/// @brief What a file says that a machine should be: a document of toJson, or an inventory.
/// @throws std::system_error naming a file that cannot be read. @throws DocumentFault
Golden readGolden(const std::string& file);
Golden parseGolden(const Json& document, const std::string& file);

}  // namespace TarvexDiags::Inventory
