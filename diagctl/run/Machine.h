#pragma once

#include "diagctl/report/RunEvents.h"

namespace TarvexDiags::FrontEnd {

/// What the machine under test is: name, id and platform lines, from the kernel and firmware.
RunStarted describeMachine();

}  // namespace TarvexDiags::FrontEnd
