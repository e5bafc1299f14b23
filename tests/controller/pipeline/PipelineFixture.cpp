#include "tests/controller/pipeline/PipelineFixture.h"

#include "tests/support/PrivateMember.h"

TARVEX_PRIVATE_MEMBER(WorkerMapTag, DiagCtrl::ExecutionManagerThread::mExecutionThreadMap);
TARVEX_PRIVATE_MEMBER(ManagerTag, DiagCtrl::DiagnosticController::mpTestRequestManager);
TARVEX_PRIVATE_MEMBER(DispatcherTag, DiagCtrl::DiagnosticController::mpExecMgrThread);
TARVEX_PRIVATE_MEMBER(MonitorTag, DiagCtrl::DiagnosticController::mpMoniThread);

namespace TarvexDiags::TestSupport {

using DiagCtrl::DiagnosticController;

DiagCtrl::TestRequestManager& PipelineTest::managers() {
  return *privateMember<ManagerTag>(harness.controller());
}
DiagCtrl::ExecutionManagerThread& PipelineTest::dispatcher() {
  return *privateMember<DispatcherTag>(harness.controller());
}
DiagCtrl::MonitorThread& PipelineTest::monitor() {
  return *privateMember<MonitorTag>(harness.controller());
}
std::size_t PipelineTest::workersKept() {
  return privateMember<WorkerMapTag>(dispatcher()).size();
}
DiagCtrl::DiagnosticPackageInterface& PipelineTest::packageInterface() {
  return *harness.controller().getDiagPackInterfacePtr();
}

}  // namespace TarvexDiags::TestSupport
