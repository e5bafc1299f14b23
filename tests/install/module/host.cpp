// Loads the package beside it, runs its test on each of its devices and prints each verdict.

#include <dlfcn.h>

#include <cstdio>
#include <memory>

#include "DeviceEnum/IDeviceEnumerator.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticSettings.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/GlobalSettings.h"

namespace {

using namespace TarvexDiags;
using DiagCtrl::GlobalSettings;

template <typename Interface>
std::unique_ptr<Interface> make(void* package, const char* name) {
  using Export = Interface* (*)(bool, GlobalSettings::diagMode);
  const auto function = reinterpret_cast<Export>(dlsym(package, name));
  return std::unique_ptr<Interface>(function(false, GlobalSettings::CUSTOMER));
}

void runOnEachDevice(void* package) {
  const auto enumerator = make<DeviceEnum::IDeviceEnumerator>(package, "getIDeviceEnumerator");
  const auto diagnostics = make<Diag::IDiagnostics>(package, "getIDiagnostics");
  const std::unique_ptr<DeviceEnum::VirtualDeviceVector> devices(
      enumerator->getDeviceVector("host", 0));
  for (auto& device : *devices) {
    Diag::DiagnosticSettings settings;
    const auto* result = diagnostics->runDiagnostic(device, &settings);
    std::printf(
        "%s %s\n", device.getDevice()->getResourceTag().c_str(),
        result->getTestResult() == Diag::DiagnosticResult::PASSED ? "PASSED" : "not passed");
  }
}

}  // namespace

int main(int, char** arguments) {
  void* package = dlopen(arguments[1], RTLD_NOW);
  if (package == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  runOnEachDevice(package);
  return dlclose(package);
}
