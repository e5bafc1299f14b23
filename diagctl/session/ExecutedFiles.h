#pragma once

#include <set>
#include <string>

#include "diagctl/session/PathInspection.h"

namespace TarvexDiags::FrontEnd {

/// Inspects all that is executed, or read as code is, when the program works with a control file:
/// - the control file, the directory of packages, and the directory for logs, in which others could
///   put a link where a log is written;
/// - descriptions, shared objects and texts of the packages, the message file, and what a
///   description or a shared object needs, and the folder where a package looks for the machine;
/// - the program itself with the shared objects that it has loaded, the controller and the
///   framework among them, and what `LD_LIBRARY_PATH`, `LD_PRELOAD` and `LD_AUDIT` name for the
///   workers;
/// - each place where a worker is looked for, down to the one that is found, or the one that a
///   description names; of a script also its interpreter;
/// - each directory where a shared object is looked for, those included that the run path of one
///   that needs it hands on, and below them what the loader could take instead for the processor at
///   hand;
/// - the system's own list of shared objects, and what it has for a name that is needed.
/// Directories of the system's own, in which the loader looks last, are the system's to keep.
/// @param unread files that are not opened, as they might keep a reader waiting: of those only the
///   way to them is inspected.
void inspectExecutedFiles(const std::string& controlFile, const std::string& packageDirectory,
                          PathInspection& inspection, const std::set<std::string>& unread = {});

/// Inspects a program that is started, with its interpreter or the shared objects that it needs.
void inspectProgram(const std::string& program, PathInspection& inspection);

}  // namespace TarvexDiags::FrontEnd
