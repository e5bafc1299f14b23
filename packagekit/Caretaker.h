#pragma once

#include <sys/types.h>

namespace TarvexDiags::PackageKit {

/// @brief Names a process that the test has forked to put something back when the test itself is
/// killed, such as an interface of the network.
///
/// Whatever else a test leaves behind is killed as soon as its process has ended; up to eight such
/// processes have four seconds from there. To be called by the test's own process, before there is
/// anything to put back. Elsewhere than in a worker it does nothing. Thread-safe.
void announceCaretaker(pid_t process) noexcept;

}  // namespace TarvexDiags::PackageKit
