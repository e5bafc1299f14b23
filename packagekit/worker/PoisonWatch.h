#pragma once

namespace TarvexDiags::PackageKit {

/// Has poisoned memory that the process meets written into the record at kPoisonDescriptor, and
/// closes the descriptor; the process ends as it would without. To be called before the package is
/// loaded: one that takes care of SIGBUS itself replaces the handler, and nothing is written.
void watchForPoison();

}  // namespace TarvexDiags::PackageKit
