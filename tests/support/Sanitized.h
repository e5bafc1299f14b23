#pragma once

namespace TarvexDiags::TestSupport {

/// A sanitizer's runtime needs the address space, keeps what was freed, and ignores mlock.
#ifdef TARVEX_SANITIZED
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

}  // namespace TarvexDiags::TestSupport
