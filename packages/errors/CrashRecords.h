#pragma once

#include <string>

#include "packages/errors/ErrorsEvents.h"
#include "watch/SystemFiles.h"

namespace TarvexDiags::Errors {

/// @brief Tells what the kernel left behind when it died earlier, in firmware's memory (pstore).
/// @throws NotSupported where nothing shows or keeps such records, or not to this process.
void tellCrashRecords(const std::string& device, const Watching::SystemFiles& files,
                      RunJournal& journal);

}  // namespace TarvexDiags::Errors
