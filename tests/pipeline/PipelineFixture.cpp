#include "tests/pipeline/PipelineFixture.h"

#include "tests/support/PrivateMember.h"

namespace TarvexDiags::TestSupport {

using DiagCtrl::DiagnosticController;

struct ManagerTag {
  using Member = DiagCtrl::TestRequestManager* DiagnosticController::*;
};
struct DispatcherTag {
  using Member = DiagCtrl::ExecutionManagerThread* DiagnosticController::*;
};
struct MonitorTag {
  using Member = DiagCtrl::MonitorThread* DiagnosticController::*;
};
struct WorkerMapTag {
  using Member = DiagCtrl::ExecutionThreadMap DiagCtrl::ExecutionManagerThread::*;
};
template struct PrivateMember<WorkerMapTag, &DiagCtrl::ExecutionManagerThread::mExecutionThreadMap>;
template struct PrivateMember<ManagerTag, &DiagnosticController::mpTestRequestManager>;
template struct PrivateMember<DispatcherTag, &DiagnosticController::mpExecMgrThread>;
template struct PrivateMember<MonitorTag, &DiagnosticController::mpMoniThread>;

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
