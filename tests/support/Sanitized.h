#pragma once

namespace TarvexDiags::TestSupport {

/// A sanitizer's runtime needs the address space, keeps what was freed, and ignores mlock.
#ifdef TARVEX_SANITIZED
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

/// Workers of an instrumented build, with sanitizers or coverage, stay open to its runtime.
#ifdef TARVEX_INSTRUMENTED
constexpr bool kIsInstrumented = true;
#else
constexpr bool kIsInstrumented = false;
#endif

}  // namespace TarvexDiags::TestSupport
