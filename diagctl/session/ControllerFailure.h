#pragma once

#include <string>

#include "DiagCtrl/DiagnosticController.h"
#include "diagctl/session/CodeTable.h"
#include "diagctl/terminal/FailureInLines.h"

namespace TarvexDiags::FrontEnd {

/// A call of the controller that was refused or failed, told with the code's meaning and what to
/// do.
class ControllerFailure : public FailureInLines {
 public:
  ControllerFailure(const std::string& what, DiagCtrl::DiagnosticController::errorCode code);

  DiagCtrl::DiagnosticController::errorCode code() const noexcept { return m_code; }

 private:
  DiagCtrl::DiagnosticController::errorCode m_code;
};

/// Throws unless the call succeeded.
/// @param what the attempt, for people: "reading the tests of package memory".
void require(DiagCtrl::DiagnosticController::errorCode code, const std::string& what);

}  // namespace TarvexDiags::FrontEnd
