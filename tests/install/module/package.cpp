// A package as its author writes it outside of the tree: the framework's headers and the settings'
// header, nothing else of the controller.

#include <memory>
#include <string>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DeviceEnum/IDeviceEnumerator.h"
#include "DeviceEnum/VirtualDevice.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticSettings.h"
#include "Diag/DiagnosticStatus.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/GlobalSettings.h"

namespace {

using TarvexDiags::DeviceEnum::IDevice;
using TarvexDiags::DeviceEnum::IDeviceEnumerator;
using TarvexDiags::DeviceEnum::VirtualDevice;
using TarvexDiags::DeviceEnum::VirtualDeviceVector;
using TarvexDiags::Diag::DiagnosticEvent;
using TarvexDiags::Diag::DiagnosticResult;
using TarvexDiags::Diag::DiagnosticSettings;
using TarvexDiags::Diag::DiagnosticStatus;
using TarvexDiags::DiagCtrl::GlobalSettings;

class OneDevice final : public IDeviceEnumerator {
 public:
  OneDevice(bool log, DiagnosticMode mode) : IDeviceEnumerator(log, mode) {}

  VirtualDeviceVector* getDeviceVector(const char* resource, TarvexDiags::Uint) override {
    std::string tag(resource);
    generateResourceTag(tag, "device0");
    auto devices = std::make_unique<VirtualDeviceVector>();
    devices->emplace_back(new IDevice(tag, "device 0", "device0"));
    return devices.release();
  }
};

class AlwaysPasses final : public TarvexDiags::Diag::IDiagnostics {
 public:
  DiagnosticResult* runDiagnostic(VirtualDevice&, DiagnosticSettings*) override {
    result_.setTestResult(DiagnosticResult::PASSED);
    return &result_;
  }
  bool IsDeviceSupported(VirtualDevice&, int) override { return true; }
  DiagnosticStatus getDiagnosticStatus() override { return {}; }
  void abortDiagnostic() override {}
  void suspendDiagnostic() override {}
  void resumeDiagnostic() override {}
  std::vector<DiagnosticEvent*>* getDiagnosticEvents() override { return nullptr; }
  std::vector<DiagnosticResult*>* getDiagnosticResults() override { return nullptr; }

 private:
  DiagnosticResult result_;
};

}  // namespace

#define PACKAGE_EXPORT extern "C" __attribute__((visibility("default")))

PACKAGE_EXPORT void setPackageConfigFile(const char*) {}

PACKAGE_EXPORT IDeviceEnumerator* getIDeviceEnumerator(bool log, GlobalSettings::diagMode mode) {
  return new OneDevice(log, static_cast<IDeviceEnumerator::DiagnosticMode>(mode));
}

PACKAGE_EXPORT TarvexDiags::Diag::IDiagnostics* getIDiagnostics(bool, GlobalSettings::diagMode) {
  return new AlwaysPasses();
}
