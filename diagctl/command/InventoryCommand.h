#pragma once

#include <optional>
#include <string>

#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

struct InventoryOptions {
  std::optional<std::string> output;  ///< nothing: standard output
  bool isRedacted = false;
  std::optional<std::string> keyFile;  ///< of a redaction whose key is not drawn
  std::string root = "/";              ///< below which the machine's /proc and /sys lie
};

/// The verb inventory: what this machine is, as a document.
/// @return the exit code.
int carryOutInventory(Printer& out, const InventoryOptions& options);

}  // namespace TarvexDiags::FrontEnd
