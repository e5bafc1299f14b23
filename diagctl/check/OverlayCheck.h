#pragma once

#include <vector>

#include "diagctl/check/Check.h"
#include "diagctl/session/Configuration.h"

namespace TarvexDiags::FrontEnd {

enum class OverlaysOf {
  KnownPackages,  ///< those that were taken in
  AnyPackage,     ///< those too that no package is there for
};

/// All faults of files of settings over packages' descriptions: what is not read, sections and
/// packages that are not there, and values that a package cannot read. Loads the packages.
std::vector<Problem> checkOverlays(const Configuration& configuration, OverlaysOf which);

/// Problems of files that were put together, as those of what somebody wrote.
std::vector<Problem> withSources(std::vector<Problem> problems, const Configuration& configuration);

}  // namespace TarvexDiags::FrontEnd
