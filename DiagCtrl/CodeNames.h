#pragma once

#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagnosticController.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// The name of a code as the enumeration spells it. It is also the token of the code's text in the
/// message file that is installed with the library, in the sections of its six languages: with that
/// file as `MsgFilePath`, `getLocalizedMessage` with index 0 makes text of it.
///
/// The two enumerations have one name for different numbers, so the text goes by name. The name
/// lives on; the empty text for a number that the enumeration does not have. Any thread, any phase.
TARVEXDIAGS_EXPORT const char* nameOf(DiagnosticController::errorCode aeCode) noexcept;
TARVEXDIAGS_EXPORT const char* nameOf(DiagCtrlEvent::eventCode aeCode) noexcept;

}  // namespace TarvexDiags::DiagCtrl
