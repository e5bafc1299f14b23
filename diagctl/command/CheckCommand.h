#pragma once

#include <string>

#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// The verb check: tells every problem of a control file and of what it names.
/// @param isForPrograms as a JSON document.
/// @return 0 if there is none, else 2.
int carryOutCheck(Printer& out, const std::string& controlFile, const std::string& language,
                  bool checksPermissions, bool isForPrograms);

}  // namespace TarvexDiags::FrontEnd
