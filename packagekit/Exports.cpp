#include "packagekit/Exports.h"

#include <memory>

#include "packagekit/internal/Guard.h"
#include "packagekit/internal/KitDiagnostics.h"
#include "packagekit/internal/KitEnumerator.h"
#include "packagekit/internal/Module.h"

namespace TarvexDiags::PackageKit {

namespace {

template <class Product>
Product* make(DefineFunction define, bool diagLog, DiagnosticMode mode) {
  std::unique_ptr<Product> product;
  failureOf([&] {
    Module& module = Module::instance();
    if (const Package* const package = module.package(define)) {
      product = std::make_unique<Product>(module, *package, diagLog, mode);
    }
  });
  return product.release();
}

}  // namespace

void setConfigFile(const char* file) {
  failureOf([file] { Module::instance().setConfigFile(file); });
}

void setLogDirectory(const char* directory) {
  failureOf([directory] { Module::instance().setLogDirectory(directory); });
}

DeviceEnum::IDeviceEnumerator* makeEnumerator(DefineFunction define, bool diagLog,
                                              DiagnosticMode mode) {
  return make<KitEnumerator>(define, diagLog, mode);
}

Diag::IDiagnostics* makeDiagnostics(DefineFunction define, bool diagLog, DiagnosticMode mode) {
  return make<KitDiagnostics>(define, diagLog, mode);
}

}  // namespace TarvexDiags::PackageKit
