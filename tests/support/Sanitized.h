#pragma once

namespace TarvexDiags::TestSupport {

/** A sanitizer's runtime needs the address space, keeps what was freed, and ignores mlock. */
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool isSanitized = true;
#else
constexpr bool isSanitized = false;
#endif
#else
constexpr bool isSanitized = false;
#endif

}  // namespace TarvexDiags::TestSupport
