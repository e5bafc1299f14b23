#pragma once

#include <sys/types.h>

namespace TarvexDiags::PackageKit {

/// Splits the process that the host has started: returns in a child, the leader of a process group
/// of its own, in which the tests are to run. The parent passes the host's signals on, ends all
/// that the child leaves behind, tells how the child ended in the ReaperRecord at
/// kPoisonDescriptor, and ends itself. Both die with the thread of the host that has started them.
/// @param host the process id of the host
void runBelowReaper(pid_t host);

}  // namespace TarvexDiags::PackageKit
