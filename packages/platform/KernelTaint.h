#pragma once

#include <string>

#include "packages/platform/Places.h"
#include "packages/platform/PlatformEvents.h"

namespace TarvexDiags::Platform {

/// @brief Judges what the kernel has noted since its start: a machine check that could not be put
/// right, or a page that it found spoilt.
/// @throws NotSupported when the kernel does not tell.
void judgeTaint(const std::string& device, const SystemFiles& files, RunJournal& journal);

}  // namespace TarvexDiags::Platform
