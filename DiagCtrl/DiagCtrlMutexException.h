#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// A lock could not be taken. The library's own locks never fail, so a client meets it only if a
/// lock is replaced by one that can.
class TARVEXDIAGS_EXPORT DiagCtrlMutexException : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlMutexException(MinorCodeEnum aeMinorCode, unsigned long aulLine, const char* apcFile,
                         const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlMutexException(const DiagCtrlMutexException&) = default;
  DiagCtrlMutexException& operator=(const DiagCtrlMutexException&) = default;
  ~DiagCtrlMutexException() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
