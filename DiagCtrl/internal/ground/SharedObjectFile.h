#pragma once

namespace TarvexDiags::DiagCtrl {

/// Why a file must not reach the dynamic loader, which does not look before it opens and maps:
/// - "not a file": a FIFO or a device, where opening or reading can block for ever;
/// - "file is cut off": it ends before what its headers say is to be mapped, and the process would
///   die of a bus error at the first access to what is missing.
/// @return null also for what the loader refuses by itself: no file, no shared object. A name
///   without a "/" is looked for by the loader in its own places, and is not judged here.
const char* faultOfSharedObject(const char* apcPath);

}  // namespace TarvexDiags::DiagCtrl
