#pragma once

#include <string>

#include "packages/errors/ErrorsEvents.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Errors {

using Watching::SystemFiles;

// What counters hold since the machine's start, judged by the limits that the watch has as it is
// shipped: what a day may bring, for each day since. Each throws NotSupported where the kernel
// counts nothing.

/// @brief Errors of memory, by module.
void judgeMemory(const std::string& device, const SystemFiles& files, RunJournal& journal);

/// @brief Errors of PCI Express links, by function.
void judgePcie(const std::string& device, const SystemFiles& files, RunJournal& journal);

/// @brief Commands that disks failed or never answered.
void judgeDisks(const std::string& device, const SystemFiles& files, RunJournal& journal);

/// @brief Errors of interfaces and InfiniBand ports. Links that went down are told and no more:
/// each time that somebody pulled a cable or switched the other end off is among them.
void judgeInterfaces(const std::string& device, const SystemFiles& files, RunJournal& journal);

}  // namespace TarvexDiags::Errors
