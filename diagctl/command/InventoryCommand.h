#pragma once

#include <optional>
#include <string>
#include <vector>

#include "diagctl/command/RedactionKey.h"
#include "diagctl/terminal/Printer.h"
#include "inventory/Rules.h"

namespace TarvexDiags::FrontEnd {

struct InventoryOptions {
  std::optional<std::string> output;  ///< nothing: standard output
  RedactionWishes redaction;
  std::string root = "/";  ///< below which the machine's /proc and /sys lie
};

/// The verb inventory: what this machine is, as a document.
/// @return the exit code.
[[nodiscard]] int carryOutInventory(Printer& out, const InventoryOptions& options);

struct InventoryGoldenOptions {
  std::vector<std::string> files;
  std::optional<std::string> output;  ///< nothing: standard output
  std::optional<std::string> rules;   ///< that come before those that come along
};

/// The verb "inventory golden": what most of several machines are, as a document to check others
/// against, and which of them are odd.
/// @return the exit code. @throws UsageFault for too few files.
[[nodiscard]] int carryOutInventoryGolden(const InventoryGoldenOptions& options);

/// The verb "inventory diff": each fact in which two inventories differ. @return the exit code.
[[nodiscard]] int carryOutInventoryDiff(Printer& out, const std::string& one,
                                        const std::string& other);

/// The inventory of the machine below a folder.
/// @throws std::system_error naming a folder that is none, or below which no machine lies.
Inventory::Json takeInventory(const std::string& root);

/// The rules of a file; none without one.
/// @throws std::exception naming the file when it cannot be used.
Inventory::Rules rulesFrom(const std::optional<std::string>& file);

}  // namespace TarvexDiags::FrontEnd
