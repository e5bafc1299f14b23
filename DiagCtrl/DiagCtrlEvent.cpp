#include "DiagCtrl/DiagCtrlEvent.h"

#include <string>

#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

DiagCtrlEvent::DiagCtrlEvent() : mpDiagTracer(DiagTracer::getInstance()) {}

DiagCtrlEvent::DiagCtrlEvent(eventCode aeEventCode, EventType aeEventType) : DiagCtrlEvent() {
  setEventCode(aeEventCode);
  setEventType(aeEventType);
}

DiagCtrlEvent::~DiagCtrlEvent() = default;

const std::string& DiagCtrlEvent::dump() {
  const TraceScope trace(mpDiagTracer, "DiagCtrlEvent::dump");
  return DiagnosticEvent::dump();
}

}  // namespace TarvexDiags::DiagCtrl
