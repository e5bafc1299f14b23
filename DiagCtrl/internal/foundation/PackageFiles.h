#pragma once

#include <string>

#include "DiagCtrl/DiagCtrlConstants.h"

namespace TarvexDiags::DiagCtrl {

/// The file name of a package's library.
inline std::string packageLibrary(const std::string& arPackageName) {
  return DiagCtrlConstants::mSconpcLib + arPackageName + DiagCtrlConstants::mSconpcDll;
}

/// A package's configuration file, or that of its texts in a language.
/// @param apcPackageDirectory null (lost to a second initialize with a bad file) gives a path that
///   names nothing. @param apcLanguage may be null.
inline std::string packageConfiguration(const char* apcPackageDirectory, const char* apcPackageName,
                                        const char* apcLanguage = nullptr) {
  if (apcPackageDirectory == nullptr) {
    return {};
  }
  std::string path = std::string(apcPackageDirectory) + DiagCtrlConstants::mSconpcDoubleSlash;
  if (apcLanguage != nullptr) {
    path += std::string(apcLanguage) + DiagCtrlConstants::mSconpcDoubleSlash;
  }
  return path + apcPackageName + DiagCtrlConstants::mSconpcIni;
}

}  // namespace TarvexDiags::DiagCtrl
