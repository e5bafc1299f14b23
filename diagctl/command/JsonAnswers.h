#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "diagctl/check/Check.h"
#include "diagctl/command/EstimateCommand.h"
#include "diagctl/session/Catalogue.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/session/Explanation.h"
#include "diagctl/session/Selection.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// What the verbs that look tell programs: a document each, by the schemas of docs/schemas. A
/// document says which one it is and the version of that; keys are only ever added within one.
using Json = nlohmann::ordered_json;

/// The name of the format on the command line.
inline constexpr const char* kJsonFormat = "json";

Json packagesAsJson(const Catalogue& catalogue);
Json devicesAsJson(const Catalogue& catalogue);
Json testsAsJson(const Catalogue& catalogue);
/// Each package, device and test that matches one of the patterns.
/// @param directory of the packages.
Json itemsAsJson(const Catalogue& catalogue, const std::vector<std::string>& patterns,
                 const std::string& directory);
/// A listing with the control file and the directories in use.
Json withPlaces(Json listing, const Configuration& configuration);
Json estimatesAsJson(const std::vector<Estimate>& estimates);
Json problemsAsJson(const std::vector<Problem>& problems);
Json codesAsJson(const std::vector<Explanation>& explanations);
Json planAsJson(const std::vector<SelectedPair>& pairs);

/// Writes a document: harmless to a terminal, whatever its texts hold.
void writeJson(Printer& out, const Json& document);

}  // namespace TarvexDiags::FrontEnd
