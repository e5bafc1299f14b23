#pragma once

#include "DiagCtrl/DiagCtrlBaseException.h"

namespace TarvexDiags::DiagCtrl {

/// Throws an exception of the library with the file and line of the calling statement.
/// @param apcText a literal that names the raising method.
template <class Exception>
[[noreturn]] void raise(DiagCtrlBaseException::MinorCodeEnum aeMinorCode, const char* apcText,
                        const char* apcFile = __builtin_FILE(),
                        unsigned long aulLine = __builtin_LINE()) {
  throw Exception(aeMinorCode, aulLine, apcFile, apcText);
}

}  // namespace TarvexDiags::DiagCtrl
