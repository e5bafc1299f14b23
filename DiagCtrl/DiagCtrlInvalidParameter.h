#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// An argument is out of range.
class TARVEXDIAGS_EXPORT DiagCtrlInvalidParameter : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlInvalidParameter(MinorCodeEnum aeMinorCode, unsigned long aulLine, const char* apcFile,
                           const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlInvalidParameter(const DiagCtrlInvalidParameter&) = default;
  DiagCtrlInvalidParameter& operator=(const DiagCtrlInvalidParameter&) = default;
  ~DiagCtrlInvalidParameter() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
