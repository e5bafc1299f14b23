#pragma once

#include <optional>
#include <string>
#include <vector>

#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// Whose codes are explained beside the program's own.
struct ExplainedPackages {
  std::optional<std::string> config;     ///< the control file of --config, which names a directory
  std::vector<std::string> directories;  ///< instead of that, unless there are none
};

/// The verb explain: all that a word or a number of a report may mean.
/// @param isForPrograms tell it as a document.
/// @return the exit code.
[[nodiscard]] int carryOutExplain(Printer& out, const std::string& asked,
                                  const ExplainedPackages& packages, const std::string& language,
                                  bool isForPrograms);

}  // namespace TarvexDiags::FrontEnd
