#pragma once

#include <ostream>
#include <string>

namespace TarvexDiags::FrontEnd {

/// The verb check: tells every problem of a control file and of what it names.
/// @return 0 if there is none, else 2.
int carryOutCheck(std::ostream& out, const std::string& controlFile, const std::string& language,
                  bool checksPermissions);

}  // namespace TarvexDiags::FrontEnd
