#pragma once

#include <string>

#include "diagctl/report/Fleet.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// The name of a machine; of two that have the same, with the id as well.
std::string nameAmong(const Fleet& fleet, const Fleet::Machine& machine);

/// Tells people what many machines came to: each that is not well with its findings, the worst
/// first; the others by their names; then each test, what could not be read, the sums and the
/// verdict.
/// @param onlyProblems leaves out what passed or was skipped.
void writeFleet(Printer& out, const Fleet& fleet, bool onlyProblems);

/// The same for a monitor, as the rest of its line: how many machines came to what, and the
/// weightiest finding.
std::string lineOf(const Fleet& fleet);

}  // namespace TarvexDiags::FrontEnd
