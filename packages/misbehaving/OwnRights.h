#pragma once

#include "packagekit/PackageKit.h"

/// Tells, as measurements, what the process of the test may do and what it knows of its host, and
/// tries each call that workers are refused in a way that does nothing where it is allowed.
TarvexDiags::PackageKit::Verdict tellsItsRights(TarvexDiags::PackageKit::TestContext& context);
