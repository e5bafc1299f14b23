#pragma once

#include <string>

#include "packagekit/internal/WorkerProcess.h"

namespace TarvexDiags::PackageKit {

/// A signal as "SIGSEGV".
std::string signalName(int signal);

/// "?" when somebody else took it.
std::string exitStatusOf(const ProcessEnd& end);

/// As "SIGSEGV" or "exit status 3".
std::string howItEnded(const ProcessEnd& end);

/// Without zeros at the end: "20", "0.25".
std::string secondsText(double seconds);

}  // namespace TarvexDiags::PackageKit
