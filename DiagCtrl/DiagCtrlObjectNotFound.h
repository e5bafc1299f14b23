#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// A package, a request or a test that should exist does not.
class TARVEXDIAGS_EXPORT DiagCtrlObjectNotFound : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlObjectNotFound(MinorCodeEnum aeMinorCode, unsigned long aulLine, const char* apcFile,
                         const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlObjectNotFound(const DiagCtrlObjectNotFound&) = default;
  DiagCtrlObjectNotFound& operator=(const DiagCtrlObjectNotFound&) = default;
  ~DiagCtrlObjectNotFound() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
