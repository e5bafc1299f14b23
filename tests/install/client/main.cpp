// The smallest client: gets the controller and prints its phase.

#include <cstdio>

#include "DiagCtrl/DiagnosticController.h"

int main() {
  using namespace TarvexDiags::DiagCtrl;

  auto* controller = DiagnosticController::getInstance();
  const auto phase = controller->getDiagCtrlPhase(DiagCtrlConstants::mSconlDefaultLockTimeOut);
  std::puts(phase == DiagControllerStatus::UNINITIALISED ? "UNINITIALISED" : "an unexpected phase");
  delete controller;
  return phase == DiagControllerStatus::UNINITIALISED ? 0 : 1;
}
