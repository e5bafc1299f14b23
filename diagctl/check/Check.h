#pragma once

#include <string>
#include <vector>

#include "diagctl/session/Catalogue.h"
#include "diagctl/session/ConfigurationText.h"

namespace TarvexDiags::FrontEnd {

/// Something that keeps the controller or a package from working as it is written.
struct Problem {
  std::string file;
  std::string section;  ///< empty where there is none
  std::string key;      ///< empty where there is none
  std::string reason;
};

/// "FILE [SECTION] KEY: REASON".
std::string toText(const Problem& problem);

/// All faults of the control file itself.
std::vector<Problem> checkControlFile(const std::string& controlFile);

/// Files of packages that are none: pipes and devices, which may keep a reader waiting for ever,
/// links that lead nowhere, and descriptions that are too large.
std::vector<Problem> checkKinds(const std::string& directory);

/// All faults of the packages in a directory: descriptions, shared objects, tokens and texts.
/// @param mayLoad whether shared objects may be loaded to look at their exports.
std::vector<Problem> checkPackages(const std::string& directory, bool mayLoad);

/// Devices that cannot be tested side by side, because their tags end alike.
std::vector<Problem> checkTags(const Catalogue& catalogue);

}  // namespace TarvexDiags::FrontEnd
