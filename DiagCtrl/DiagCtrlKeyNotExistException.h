#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// An id, a registration or a resource tag is not known.
class TARVEXDIAGS_EXPORT DiagCtrlKeyNotExistException : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlKeyNotExistException(MinorCodeEnum aeMinorCode, unsigned long aulLine,
                               const char* apcFile, const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlKeyNotExistException(const DiagCtrlKeyNotExistException&) = default;
  DiagCtrlKeyNotExistException& operator=(const DiagCtrlKeyNotExistException&) = default;
  ~DiagCtrlKeyNotExistException() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
