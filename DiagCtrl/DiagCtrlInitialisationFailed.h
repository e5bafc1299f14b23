#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlBaseException.h"
#include "System/Export.h"

namespace TarvexDiags::DiagCtrl {

/// A package's configuration file is faulty.
class TARVEXDIAGS_EXPORT DiagCtrlInitialisationFailed : public DiagCtrlBaseException {
 public:
  /// @param apcText names the raising method, as a literal: "Class::method()"; stored, not copied.
  DiagCtrlInitialisationFailed(MinorCodeEnum aeMinorCode, unsigned long aulLine,
                               const char* apcFile, const char* apcText)
      : DiagCtrlBaseException(aeMinorCode, aulLine, apcFile), mpcParameterName(apcText) {}
  DiagCtrlInitialisationFailed(const DiagCtrlInitialisationFailed&) = default;
  DiagCtrlInitialisationFailed& operator=(const DiagCtrlInitialisationFailed&) = default;
  ~DiagCtrlInitialisationFailed() override;

  std::string dump() override;
  const char* getParameter() const noexcept { return mpcParameterName; }

 private:
  const char* mpcParameterName;
};

}  // namespace TarvexDiags::DiagCtrl
