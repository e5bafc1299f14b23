#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// A shared object lacks a required export.
class TARVEXDIAGS_EXPORT DiagCtrlFunctionNotFoundInDll : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlFunctionNotFoundInDll(MinorCodeEnum aeMinorCode, unsigned long aulLine,
                                const char* apcFile, const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlFunctionNotFoundInDll(const DiagCtrlFunctionNotFoundInDll&) = default;
  DiagCtrlFunctionNotFoundInDll& operator=(const DiagCtrlFunctionNotFoundInDll&) = default;
  ~DiagCtrlFunctionNotFoundInDll() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
