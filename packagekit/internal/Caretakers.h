#pragma once

#include <sys/types.h>

namespace TarvexDiags::PackageKit {

/// Whom caretakers of this process are announced to from now on: the reaper of the worker.
void announceCaretakersTo(pid_t reaper) noexcept;

}  // namespace TarvexDiags::PackageKit
