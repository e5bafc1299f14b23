#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// Declared for handlers; nothing raises it.
class TARVEXDIAGS_EXPORT DiagCtrlInvalidValueInConfigFile : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlInvalidValueInConfigFile(MinorCodeEnum aeMinorCode, unsigned long aulLine,
                                   const char* apcFile, const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlInvalidValueInConfigFile(const DiagCtrlInvalidValueInConfigFile&) = default;
  DiagCtrlInvalidValueInConfigFile& operator=(const DiagCtrlInvalidValueInConfigFile&) = default;
  ~DiagCtrlInvalidValueInConfigFile() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
