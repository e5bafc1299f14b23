#pragma once

#include "diagctl/Runner.h"

namespace TarvexDiags::DiagCtl {

/// Interrupt, end and hang-up signals: the first ends the run in order, the second leaves at once.
/// A closed pipe is told by the write that fails, so that the run still ends in order.
namespace Interruption {

/// Catches the signals from now on.
void begin();
/// What signals and keys want of the run.
RunRequests& requests();
/// The signal that came, 0 for none.
int signal();

}  // namespace Interruption

}  // namespace TarvexDiags::DiagCtl
