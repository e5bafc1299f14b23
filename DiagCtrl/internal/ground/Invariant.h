#pragma once

#include <cstdio>
#include <cstdlib>

namespace TarvexDiags::DiagCtrl {

/// A broken invariant ends the process, in every build type: going on would test hardware without
/// the protection that the locks promise.
inline void assertInvariant(bool abHolds, const char* apcText,
                            const char* apcFile = __builtin_FILE(),
                            unsigned long aulLine = __builtin_LINE()) {
  if (!abHolds) {
    std::fprintf(stderr, "%s:%lu: Assertion `%s' failed.\n", apcFile, aulLine, apcText);
    std::abort();
  }
}

}  // namespace TarvexDiags::DiagCtrl
