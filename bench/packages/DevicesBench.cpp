// What it costs to settle which tests run on which devices. The package that is asked answers at
// once, so what is measured is the controller's own work.

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DeviceEnum/VirtualDevice.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/PackageTestInfo.h"

namespace {

using TarvexDiags::DeviceEnum::IDevice;
using TarvexDiags::DeviceEnum::VirtualDevice;
using TarvexDiags::DeviceEnum::VirtualDeviceVector;
using TarvexDiags::Diag::DiagnosticEvent;
using TarvexDiags::Diag::DiagnosticResult;
using TarvexDiags::Diag::DiagnosticSettings;
using TarvexDiags::Diag::DiagnosticStatus;
using TarvexDiags::DiagCtrl::DiagnosticPackage;
using TarvexDiags::DiagCtrl::PackageTestInfo;

class SupportsAll final : public TarvexDiags::Diag::IDiagnostics {
 public:
  bool IsDeviceSupported(VirtualDevice&, int) override { return true; }
  DiagnosticResult* runDiagnostic(VirtualDevice&, DiagnosticSettings*) override {
    return &m_result;
  }
  DiagnosticStatus getDiagnosticStatus() override { return {}; }
  void abortDiagnostic() override {}
  void suspendDiagnostic() override {}
  void resumeDiagnostic() override {}
  std::vector<DiagnosticEvent*>* getDiagnosticEvents() override { return nullptr; }
  std::vector<DiagnosticResult*>* getDiagnosticResults() override { return nullptr; }

 private:
  DiagnosticResult m_result;
};

void createDevices(benchmark::State& state) {
  const auto tests = static_cast<int>(state.range(1));
  VirtualDeviceVector devices;
  for (std::int64_t device = 0; device < state.range(0); ++device) {
    const std::string name = "device" + std::to_string(device);
    devices.emplace_back(new IDevice("bus/" + name, name, name));
  }
  SupportsAll diagnostics;
  for (auto _ : state) {
    DiagnosticPackage package("ALPHA", 1);
    for (int test = 1; test <= tests; ++test) {
      package.updateTestIdMap(test, 0);
      package.updateTestIdTestObjectMap(test, new PackageTestInfo);
    }
    package.createDeviceVector(&devices, &diagnostics);
  }
  state.counters["per pair"] =
      benchmark::Counter(static_cast<double>(state.iterations() * state.range(0) * tests),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(createDevices)
    ->Args({10, 10})
    ->Args({100, 10})
    ->Args({10, 100})
    ->Args({100, 100})
    ->Args({100, 1000})
    ->Unit(benchmark::kMillisecond);

}  // namespace
