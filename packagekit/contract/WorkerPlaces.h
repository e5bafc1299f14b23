#pragma once

#include <string>
#include <vector>

namespace TarvexDiags::PackageKit::Contract {

/// The key of section `Package` that names the worker executable.
inline constexpr char kWorkerPathKey[] = "WorkerPath";

/// The folder of the installation in which programs lie that are not for people.
struct ProgramFolder {
  std::string fromLibraries;  ///< the way to it from the folder of the framework library
  std::string asConfigured;   ///< its path as the build was configured
};

/// Where the worker of a package is looked for that names none: the first of these files that may
/// be executed is taken.
/// @param packageDirectory where the package's shared object lies, behind all symbolic links.
/// @param frameworkDirectory the same of the framework library.
inline std::vector<std::string> workerPlaces(const std::string& packageDirectory,
                                             const std::string& frameworkDirectory,
                                             const ProgramFolder& programs) {
  const std::string name = "/tarvex-package-worker";
  return {packageDirectory + name, frameworkDirectory + "/packages" + name,
          frameworkDirectory + "/" + programs.fromLibraries + name, programs.asConfigured + name};
}

}  // namespace TarvexDiags::PackageKit::Contract
