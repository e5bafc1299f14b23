#pragma once

#include "packagekit/Package.h"
#include "packagekit/internal/DiscoveryFrames.h"
#include "packagekit/internal/WorkerLink.h"

namespace TarvexDiags::PackageKit {

/// What a worker process does that looks for devices: tells each one with the support of its tests,
/// and at last that there are no more, or what the author's function threw. Devices that can't be
/// offered are left out, with a line in the log.
void runDiscovery(const Package& package, const DiscoverySetup& setup, WorkerLink& link);

}  // namespace TarvexDiags::PackageKit
