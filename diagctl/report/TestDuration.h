#pragma once

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

/// The figure of the seconds that a test itself has taken so far, over all its passes. Whoever
/// looks on from outside sees its beginning and its end late.
inline constexpr const char* kTestDuration = marked("duration");

}  // namespace TarvexDiags::FrontEnd
