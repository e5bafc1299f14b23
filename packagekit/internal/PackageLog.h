#pragma once

#include <string>

namespace TarvexDiags::PackageKit {

/// Appends a line, with time and process id, to a log file. Never fails for the caller, and never
/// waits: a log that can't be written, or a pipe that nobody reads, is no reason to fail a test or
/// to hold up whoever watches over it; the line is lost. Lines of several processes do not mix. A
/// file that has grown beyond 16 MiB is renamed with ".1" at its end, which replaces the one before
/// it.
/// @param file path; empty: nothing is done
void writeLogLine(const std::string& file, const std::string& line) noexcept;

}  // namespace TarvexDiags::PackageKit
