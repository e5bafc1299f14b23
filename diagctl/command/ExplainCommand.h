#pragma once

#include <optional>
#include <string>

#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// The verb explain: all that a word or a number of a report may mean.
/// @param config the control file of --config, by which the packages are found.
/// @param isForPrograms tell it as a document.
/// @return the exit code.
[[nodiscard]] int carryOutExplain(Printer& out, const std::string& asked,
                                  const std::optional<std::string>& config,
                                  const std::string& language, bool isForPrograms);

}  // namespace TarvexDiags::FrontEnd
