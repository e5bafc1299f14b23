#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// The platform refused a thread or wait operation, or the argument names a refused one.
class TARVEXDIAGS_EXPORT DiagCtrlUnsupportedOperation : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlUnsupportedOperation(MinorCodeEnum aeMinorCode, unsigned long aulLine,
                               const char* apcFile, const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlUnsupportedOperation(const DiagCtrlUnsupportedOperation&) = default;
  DiagCtrlUnsupportedOperation& operator=(const DiagCtrlUnsupportedOperation&) = default;
  ~DiagCtrlUnsupportedOperation() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
