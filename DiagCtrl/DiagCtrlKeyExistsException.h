#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// A resource tag's last component is registered already.
class TARVEXDIAGS_EXPORT DiagCtrlKeyExistsException : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlKeyExistsException(MinorCodeEnum aeMinorCode, unsigned long aulLine, const char* apcFile,
                             const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlKeyExistsException(const DiagCtrlKeyExistsException&) = default;
  DiagCtrlKeyExistsException& operator=(const DiagCtrlKeyExistsException&) = default;
  ~DiagCtrlKeyExistsException() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
