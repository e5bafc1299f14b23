#pragma once

#include <sys/types.h>

#include "packagekit/contract/Privileges.h"

namespace TarvexDiags::PackageKit {

/// For the reaper and all below it: no program that they execute has more rights than they, and
/// none leaves a core file.
void renounceMore();

/// Opens the page map of the process at kPageMapDescriptor, while it still may.
void openPageMap();

/// Gives up all of root's rights but these, refuses calls that no test needs, and keeps other
/// processes of the same user from reading this one. For a debugger, the first alone. What is
/// instrumented stays open to its runtime in the same way.
/// @param host whose process started the reaper, which is this one's parent.
/// @return false when it could not be done, which is told on standard error
bool confine(const Contract::Privileges& privileges, pid_t host, bool isDebugged);

}  // namespace TarvexDiags::PackageKit
