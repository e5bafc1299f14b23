#pragma once

#include <string>
#include <vector>

#include "diagctl/check/Check.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// The verb check: tells every problem of a control file and of what it names.
/// @param isForPrograms as a JSON document.
/// @return 0 if there is none, else 2.
[[nodiscard]] int carryOutCheck(Printer& out, const Configuration& configuration,
                                const std::string& language, bool checksPermissions,
                                bool isForPrograms);

/// Tells problems. @param place whose they are. @return as above.
[[nodiscard]] int tellProblems(Printer& out, const std::vector<Problem>& problems,
                               const std::string& place, bool isForPrograms);

}  // namespace TarvexDiags::FrontEnd
