#pragma once

#include <list>

#include "DiagCtrl/CallBackObject.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagnosticController.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

/// The objects that are woken for a kind of message, with their lock.
struct DiagnosticController::CallBackList {
  DiagCtrlLock& lock;
  std::list<CallBackObject*>& objects TARVEXDIAGS_GUARDED_BY(lock);

  static CallBackList ofEvents(DiagnosticController& arController) {
    return {arController.mmtxEvtCBObjListLock, arController.mlEventCallBackObjList};
  }
  static CallBackList ofResults(DiagnosticController& arController) {
    return {arController.mmtxResCBObjListLock, arController.mlResultCallBackObjList};
  }
  static CallBackList ofCtrlEvents(DiagnosticController& arController) {
    return {arController.mmtxCtrlEvtCBObjListLock, arController.mlCtrlEventCallBackObjList};
  }
};

}  // namespace TarvexDiags::DiagCtrl
