#pragma once

#include <string>
#include <variant>

#include "Diag/DiagnosticEvent.h"

namespace TarvexDiags::FrontEnd {

/// What the front end knows of the event codes that the package kit reserves, 9000 to 9099. A
/// package without the kit raises none of them.
namespace KitCodes {

/// Trouble of the tool: a crash, a time-out, no memory, no permission.
bool isTrouble(const Diag::DiagnosticEvent& event);
/// A figure: parameters test number, test name, tag, name, value, unit.
bool isMeasurement(const Diag::DiagnosticEvent& event);
/// Ends of tests and their progress, which a report has by other means.
bool isBookkeeping(const Diag::DiagnosticEvent& event);
/// The test turned out not to be possible on its device.
bool isNotPossible(const Diag::DiagnosticEvent& event);
/// The test was ended by its client.
bool isAbort(const Diag::DiagnosticEvent& event);
/// A short identifier for a kind of trouble.
std::string symptomOf(const Diag::DiagnosticEvent& event);
/// A number where the text is one.
std::variant<double, std::string> measuredValue(const std::string& text);

}  // namespace KitCodes

}  // namespace TarvexDiags::FrontEnd
