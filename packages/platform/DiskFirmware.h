#pragma once

#include <string>

#include "packages/platform/Places.h"
#include "packages/platform/PlatformEvents.h"

namespace TarvexDiags::Platform {

/// @brief Holds the firmware of disks of one model against each other.
/// @throws NotSupported when no two disks are of one model and tell their firmware.
void judgeDiskFirmware(const std::string& device, const SystemFiles& files, RunJournal& journal);

}  // namespace TarvexDiags::Platform
