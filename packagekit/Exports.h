#pragma once

#include "DeviceEnum/IDeviceEnumerator.h"
#include "Diag/IDiagnostics.h"
#include "System/Export.h"
#include "packagekit/Package.h"

namespace TarvexDiags::PackageKit {

using DefineFunction = void (*)(Package&);

/// @brief What the exports of a package do. A package that must put something of its own around
/// them writes the exports itself and calls these; all others use TARVEX_PACKAGE.
///
/// Thread-safe, as the controller may call exports from several threads. They throw nothing; the
/// two that make objects return null when memory is short or the package's definition is unusable,
/// which the log then tells.
void setConfigFile(const char* file);
void setLogDirectory(const char* directory);
DeviceEnum::IDeviceEnumerator* makeEnumerator(DefineFunction define, bool diagLog,
                                              DiagnosticMode mode);
Diag::IDiagnostics* makeDiagnostics(DefineFunction define, bool diagLog, DiagnosticMode mode);

/// @brief The keys that the package, its tests and the kit read, as contract/SettingRule.h writes
/// them; empty when the package has declared none or can't be defined. Lasts until the shared
/// object is closed.
const char* describeSettings(DefineFunction define);

/// @brief Begins to look for the devices ahead, in a process of its own: the enumerator that is
/// asked for them next takes what was found. See contract/DiscoveryLines.h.
void beginDiscovery(DefineFunction define, const char* configFile, const char* logDirectory,
                    DiagnosticMode mode);

/// @brief The life of a worker process, entered by the worker executable. Returns its exit status.
int runWorker(DefineFunction define, int socket);

}  // namespace TarvexDiags::PackageKit

/// Opens the function that fills the package, and makes the shared object's exports. Once in each
/// package:
///
///   TARVEX_PACKAGE(package) {
///     package.discover(findDisks);
///     package.test(1, readEveryBlock);
///   }
#define TARVEX_PACKAGE(package)                                                                   \
  static void tarvexDefinePackage(::TarvexDiags::PackageKit::Package&);                           \
  extern "C" {                                                                                    \
  TARVEXDIAGS_EXPORT void setPackageConfigFile(const char* file) {                                \
    ::TarvexDiags::PackageKit::setConfigFile(file);                                               \
  }                                                                                               \
  TARVEXDIAGS_EXPORT void setPackageLogDir(const char* directory) {                               \
    ::TarvexDiags::PackageKit::setLogDirectory(directory);                                        \
  }                                                                                               \
  TARVEXDIAGS_EXPORT ::TarvexDiags::DeviceEnum::IDeviceEnumerator* getIDeviceEnumerator(          \
      bool diagLog, ::TarvexDiags::PackageKit::DiagnosticMode mode) {                             \
    return ::TarvexDiags::PackageKit::makeEnumerator(&tarvexDefinePackage, diagLog, mode);        \
  }                                                                                               \
  TARVEXDIAGS_EXPORT ::TarvexDiags::Diag::IDiagnostics* getIDiagnostics(                          \
      bool diagLog, ::TarvexDiags::PackageKit::DiagnosticMode mode) {                             \
    return ::TarvexDiags::PackageKit::makeDiagnostics(&tarvexDefinePackage, diagLog, mode);       \
  }                                                                                               \
  TARVEXDIAGS_EXPORT const char* describePackageSettings() {                                      \
    return ::TarvexDiags::PackageKit::describeSettings(&tarvexDefinePackage);                     \
  }                                                                                               \
  TARVEXDIAGS_EXPORT void beginPackageDiscovery(const char* configFile, const char* logDirectory, \
                                                ::TarvexDiags::PackageKit::DiagnosticMode mode) { \
    ::TarvexDiags::PackageKit::beginDiscovery(&tarvexDefinePackage, configFile, logDirectory,     \
                                              mode);                                              \
  }                                                                                               \
  TARVEXDIAGS_EXPORT int runPackageWorker(int socket) {                                           \
    return ::TarvexDiags::PackageKit::runWorker(&tarvexDefinePackage, socket);                    \
  }                                                                                               \
  }                                                                                               \
  static void tarvexDefinePackage(::TarvexDiags::PackageKit::Package&(package))
