#include "packagekit/Exports.h"

#include <memory>
#include <string>

#include "packagekit/internal/Guard.h"
#include "packagekit/internal/KitDiagnostics.h"
#include "packagekit/internal/KitEnumerator.h"
#include "packagekit/internal/KitSettings.h"
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

// A package that has declared nothing of its own may read any key.
std::string settingsText(DefineFunction define) {
  Package package;
  define(package);
  SettingList rules = package.settings();
  if (rules.empty()) {
    rules.push_back({kAnyKey});
  }
  for (const SettingRule& rule : kitPackageSettings()) {
    rules.push_back(rule);
  }
  for (const int testId : package.testIds()) {
    for (SettingRule rule : kitTestSettings()) {
      rule.testId = testId;
      rules.push_back(rule);
    }
  }
  std::string text;
  for (const SettingRule& rule : rules) {
    text += toLine(rule) + '\n';
  }
  return text;
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

void beginDiscovery(DefineFunction define, const char* configFile, const char* logDirectory,
                    DiagnosticMode mode) {
  setConfigFile(configFile);
  setLogDirectory(logDirectory);
  failureOf([&] {
    Module& module = Module::instance();
    if (module.package(define) != nullptr) {
      module.beginDiscovery(mode);
    }
  });
}

const char* describeSettings(DefineFunction define) {
  static const std::string kText = [define] {
    std::string made;
    failureOf([&] { made = settingsText(define); });
    return made;
  }();
  return kText.c_str();
}

}  // namespace TarvexDiags::PackageKit
