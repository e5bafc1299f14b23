#pragma once

#include <string>

#include "packages/platform/Places.h"
#include "packages/platform/PlatformEvents.h"

namespace TarvexDiags::Platform {

/// @brief Holds the machine's processors against each other: microcode and flags of those of one
/// kind, and how fast they may run. Kinds are told apart by model, stepping and, where processors
/// have strong and frugal cores, by those.
/// @throws NotSupported when the kernel tells nothing of them, or there is one alone.
void judgeProcessors(const std::string& device, const SystemFiles& files, RunJournal& journal);

}  // namespace TarvexDiags::Platform
