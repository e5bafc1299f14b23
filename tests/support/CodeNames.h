#pragma once

#include <ostream>
#include <string>

#include "Diag/DiagnosticEvent.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagnosticController.h"

namespace TarvexDiags::TestSupport {

/// The name of a code as it is spelled in the source; the number for a code without a name.
std::string nameOf(DiagCtrl::DiagnosticController::errorCode code);
std::string nameOf(DiagCtrl::DiagCtrlEvent::eventCode code);
std::string nameOf(DiagCtrl::DiagControllerStatus::diagCtrlPhase phase);
std::string nameOf(DiagCtrl::TestRequest::TestRequestStatus status);
/// I, W or E.
std::string letterOf(Diag::DiagnosticEvent::EventType type);

}  // namespace TarvexDiags::TestSupport

// How failed expectations print codes.
namespace TarvexDiags::DiagCtrl {

inline void printTo(DiagnosticController::errorCode code, std::ostream* stream) {
  *stream << TestSupport::nameOf(code);
}
inline void printTo(DiagCtrlEvent::eventCode code, std::ostream* stream) {
  *stream << TestSupport::nameOf(code);
}
inline void printTo(DiagControllerStatus::diagCtrlPhase phase, std::ostream* stream) {
  *stream << TestSupport::nameOf(phase);
}
inline void printTo(TestRequest::TestRequestStatus status, std::ostream* stream) {
  *stream << TestSupport::nameOf(status);
}

}  // namespace TarvexDiags::DiagCtrl
