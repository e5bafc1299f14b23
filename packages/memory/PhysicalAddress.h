#pragma once

#include "packagekit/PhysicalAddress.h"

namespace TarvexDiags::Memory {

using PackageKit::physicalAddressOf;

}  // namespace TarvexDiags::Memory
