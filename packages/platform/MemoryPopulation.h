#pragma once

#include <string>

#include "packages/platform/Places.h"
#include "packages/platform/PlatformEvents.h"

namespace TarvexDiags::Platform {

/// @brief Judges how the machine is filled with memory modules: those that firmware calls a set
/// must be alike, of the others at least three quarters; and no node of processors is without
/// memory.
/// @throws NotSupported when firmware tells of no modules, or not to this process, and no node is
/// without memory.
void judgePopulation(const std::string& device, const SystemFiles& files, RunJournal& journal);

}  // namespace TarvexDiags::Platform
