#pragma once

#include <string>
#include <vector>

#include "diagctl/session/Catalogue.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/session/Selection.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

void listPackages(Printer& out, const Catalogue& catalogue);
void listDevices(Printer& out, const Catalogue& catalogue);
/// Tests with the devices that they are enabled, disabled and not supported on.
void listTests(Printer& out, const Catalogue& catalogue);
/// The control file and the directories in use.
void listPlaces(Printer& out, const Configuration& configuration);
/// All that is known of each package, device and test that matches. @return whether any does.
/// @param directory of the packages.
bool showItem(Printer& out, const Catalogue& catalogue, const std::string& pattern,
              const std::string& directory);
/// Tells what a session has to complain of: packages that could not be loaded.
void tellWarnings(Printer& out, const std::vector<std::string>& warnings);
/// The pairs of a plan that would run and those that would not.
void listPlan(Printer& out, const std::vector<SelectedPair>& pairs);

}  // namespace TarvexDiags::FrontEnd
