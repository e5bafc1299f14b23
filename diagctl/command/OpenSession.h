#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagctl/session/Configuration.h"
#include "diagctl/session/Session.h"

namespace TarvexDiags::FrontEnd {

/// Packages and settings that are asked for on the command line.
struct PackageWishes {
  std::vector<std::string> directories;
  std::vector<std::string> settings;  ///< "PACKAGE.KEY=VALUE"
  std::string planFile = {};          ///< of a named plan
  std::vector<std::string> planSettings = {};
};

/// The configuration by the command line.
/// @param isSecure refuse what others than root could change.
/// @throws UsageFault for a setting that no package has; std::exception.
Configuration composeConfiguration(const std::optional<std::string>& controlFile,
                                   const PackageWishes& wishes, bool isSecure);

/// The same, and all that is executed on its account is looked at, and what overlays say.
/// @throws FailureInLines for an overlay that says what cannot be meant.
Configuration openConfiguration(const std::optional<std::string>& controlFile,
                                const PackageWishes& wishes, bool isSecure);

/// Opens a session. A control file that the controller does not take is told with what is wrong
/// with it: the system's reason, or line, section and key.
/// @throws FailureInLines
std::unique_ptr<Session> openSession(const Configuration& configuration,
                                     const std::string& language, const SessionSettings& settings);

}  // namespace TarvexDiags::FrontEnd
