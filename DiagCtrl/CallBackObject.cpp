#include "DiagCtrl/CallBackObject.h"

#include "DiagCtrl/DiagCtrlConditionVar.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"

namespace TarvexDiags::DiagCtrl {

CallBackObject::CallBackObject()
    : mpCondVar(new DiagCtrlConditionVar), mpDiagTracer(DiagTracer::getInstance()) {}

CallBackObject::~CallBackObject() {
  delete mpCondVar;
}

void CallBackObject::wait() {
  const TraceScope trace(mpDiagTracer, "CallBackObject::wait");
  mpCondVar->wait();
}

void CallBackObject::notify() noexcept {
  const TraceScope trace(mpDiagTracer, "CallBackObject::notify");
  mpCondVar->signal();
}

}  // namespace TarvexDiags::DiagCtrl
