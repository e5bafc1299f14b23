#pragma once

#include <string>

#include "packagekit/PackageKit.h"

/// The effective capabilities of the process, as hexadecimal bits.
std::string ownCapabilities();

/// Tells, as measurements, what the process of the test may do and what it knows of its host, and
/// tries each call that workers are refused in a way that does nothing where it is allowed.
TarvexDiags::PackageKit::Verdict tellsItsRights(TarvexDiags::PackageKit::TestContext& context);
