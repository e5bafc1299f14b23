// A package without devices and tests, of which the build leaves one export out, or which calls
// something that no library has, or whose objects cannot be made.

#include "DeviceEnum/IDeviceEnumerator.h"
#include "Diag/IDiagnostics.h"
#ifdef THROWING
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#endif
#include "DiagCtrl/GlobalSettings.h"

namespace {

using TarvexDiags::DeviceEnum::IDeviceEnumerator;
using TarvexDiags::DeviceEnum::VirtualDeviceVector;
using TarvexDiags::Diag::IDiagnostics;
using TarvexDiags::DiagCtrl::GlobalSettings;

class NoDevices final : public IDeviceEnumerator {
 public:
  VirtualDeviceVector* getDeviceVector(const char*, TarvexDiags::Uint) override {
    return &m_devices;
  }

 private:
  VirtualDeviceVector m_devices;
};

}  // namespace

#define PACKAGE_EXPORT extern "C" __attribute__((visibility("default")))

#ifndef WITHOUT_CONFIG_FILE
PACKAGE_EXPORT void setPackageConfigFile(const char*) {}
#endif

#ifndef WITHOUT_LOG_DIR
PACKAGE_EXPORT void setPackageLogDir(const char*) {}
#endif

#ifdef THROWING
namespace {
/// Of the controller's family, but what becomes of it is told by code of this library.
class OutOfOrder final : public TarvexDiags::DiagCtrl::DiagCtrlObjectNotFound {
 public:
  OutOfOrder() : DiagCtrlObjectNotFound(ObjectNotFound, __LINE__, __FILE__, "OutOfOrder") {}
};
}  // namespace

PACKAGE_EXPORT IDeviceEnumerator* getIDeviceEnumerator(bool, GlobalSettings::diagMode) {
  throw OutOfOrder();
}

PACKAGE_EXPORT IDiagnostics* getIDiagnostics(bool, GlobalSettings::diagMode) {
  throw OutOfOrder();
}
#define WITHOUT_ENUMERATOR
#define WITHOUT_DIAGNOSTICS
#endif

#ifndef WITHOUT_ENUMERATOR
PACKAGE_EXPORT IDeviceEnumerator* getIDeviceEnumerator(bool, GlobalSettings::diagMode) {
  return new NoDevices;
}
#endif

#ifndef WITHOUT_DIAGNOSTICS
PACKAGE_EXPORT IDiagnostics* getIDiagnostics(bool, GlobalSettings::diagMode) {
  return nullptr;
}
#endif

#ifdef UNRESOLVED
extern "C" int noLibraryHasThis();
PACKAGE_EXPORT int callWhatNoLibraryHas() {
  return noLibraryHasThis();
}
#endif
