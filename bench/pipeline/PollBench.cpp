// What one round of polls costs the monitor, by the number of requests that it waits for.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "Diag/DiagnosticResult.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/DiagnosticPackageInterface.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/ExecutionManagerThread.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/MonitorThread.h"
#include "DiagCtrl/TestRequestManager.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/PrivateMember.h"

TARVEX_PRIVATE_MEMBER(PollPendingTag, DiagCtrl::MonitorThread::processLocalTRQueue);
TARVEX_PRIVATE_MEMBER(PollStartedTag, DiagCtrl::MonitorThread::processExecQueue);

namespace {

using namespace TarvexDiags::DiagCtrl;  // NOLINT: the whole machinery is named here
using TarvexDiags::Diag::DiagnosticEvent;
using TarvexDiags::Diag::DiagnosticResult;
using TarvexDiags::Diag::DiagnosticSettings;
using TarvexDiags::Diag::DiagnosticStatus;
using TarvexDiags::TestSupport::ControllerHarness;

/// A test that is never over and answers at once.
class Endless final : public TarvexDiags::Diag::IDiagnostics {
 public:
  DiagnosticResult* runDiagnostic(TarvexDiags::DeviceEnum::VirtualDevice&,
                                  DiagnosticSettings*) override {
    return nullptr;
  }
  bool IsDeviceSupported(TarvexDiags::DeviceEnum::VirtualDevice&, int) override { return true; }
  DiagnosticStatus getDiagnosticStatus() override {
    DiagnosticStatus status;
    status.setStatus(DiagnosticStatus::EXECUTING);
    return status;
  }
  void abortDiagnostic() override {}
  void suspendDiagnostic() override {}
  void resumeDiagnostic() override {}
  std::vector<DiagnosticEvent*>* getDiagnosticEvents() override { return nullptr; }
  std::vector<DiagnosticResult*>* getDiagnosticResults() override { return nullptr; }
};

void pollOfPendingRequests(benchmark::State& state) {
  ControllerHarness harness;
  harness.addPackage("ALPHA");
  harness.start();
  DiagnosticPackage* package = nullptr;
  harness->getDiagPackage(1, package);
  GlobalSettings settings(DiagCtrlConstants::DIAG_NO, GlobalSettings::SERIAL, false, false,
                          GlobalSettings::CUSTOMER);
  TestRequestManager requests;
  ExecutionManagerThread dispatcher(requests, settings, *DiagTracer::getInstance());
  MonitorThread monitor(*EventManager::getInstance(), requests, dispatcher, harness.controller(),
                        *harness->getDiagPackInterfacePtr());
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    auto* request = new TestRequest(*package, *package->getDevice(1),
                                    new DiagnosticSettings(ControllerHarness::settings()));
    request->setIDiagnostics(new Endless);
    requests.queueTestRequest(request);
    requests.pushBackTestRequestQueue(TestRequestManager::EXECUTION, request);
  }
  (monitor.*memberOf(PollStartedTag()))();
  for (auto _ : state) {
    (monitor.*memberOf(PollPendingTag()))();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(pollOfPendingRequests)->Arg(1)->Arg(100)->Arg(10'000)->Unit(benchmark::kMicrosecond);

}  // namespace
