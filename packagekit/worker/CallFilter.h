#pragma once

#include "packagekit/contract/Privileges.h"

namespace TarvexDiags::PackageKit {

/// Has the kernel refuse the calls of each group that is not among the privileges with EPERM, for
/// this process and all that it starts, for good.
/// @return false when it could not be done, which is told on standard error
bool refuseCalls(const Contract::Privileges& privileges);

}  // namespace TarvexDiags::PackageKit
