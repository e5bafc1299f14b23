#pragma once

#include <sys/types.h>

#include "packagekit/contract/Privileges.h"

namespace TarvexDiags::PackageKit {

/// Whom a worker must not signal: it has their user, and they end what it leaves behind.
struct Guardians {
  pid_t reaper;
  pid_t host;
  pid_t group;  ///< of both; 0 or less when it cannot be told
};

/// Has the kernel refuse the calls of each group that is not among the privileges with EPERM, for
/// this process and all that it starts, for good; and so each call that would signal a guardian,
/// or everybody, or bound a guardian's resources.
/// @return false when it could not be done, which is told on standard error
bool refuseCalls(const Contract::Privileges& privileges, const Guardians& guardians);

}  // namespace TarvexDiags::PackageKit
