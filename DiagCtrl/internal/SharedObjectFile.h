#pragma once

namespace TarvexDiags::DiagCtrl {

/// Whether the file of a shared object ends before what its headers say is to be mapped. The
/// dynamic loader does not look: it maps what is missing as well, and the process dies of a bus
/// error at the first access.
/// @return false also for what the loader refuses by itself: no file, no shared object. A name
///   without a "/" is looked for by the loader in its own places, and is not judged here.
bool isCutOff(const char* apcPath);

}  // namespace TarvexDiags::DiagCtrl
