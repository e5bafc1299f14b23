#pragma once

namespace TarvexDiags::TestSupport {

/// A sanitizer's runtime needs the address space, keeps what was freed, and ignores mlock.
#ifdef TARVEX_SANITIZED
constexpr bool isSanitized = true;
#else
constexpr bool isSanitized = false;
#endif

}  // namespace TarvexDiags::TestSupport
