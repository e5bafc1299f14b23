#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// Declared for handlers; nothing raises it.
class TARVEXDIAGS_EXPORT DiagCtrlEncoreRequest : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlEncoreRequest(MinorCodeEnum aeMinorCode, unsigned long aulLine, const char* apcFile,
                        const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlEncoreRequest(const DiagCtrlEncoreRequest&) = default;
  DiagCtrlEncoreRequest& operator=(const DiagCtrlEncoreRequest&) = default;
  ~DiagCtrlEncoreRequest() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
