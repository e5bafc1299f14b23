#pragma once

#include <fstream>
#include <memory>
#include <string>

#include "diagctl/report/OpenedFile.h"

namespace TarvexDiags::FrontEnd {

/// Opens what somebody named for output: a regular file, made where there is none, or for those
/// that want it a FIFO or a device. A FIFO must have a reader. For root a link at the end of the
/// path is followed only if it is root's own, and anything but a regular file must be root's, too,
/// unless root has it open, as `/dev/stdout`: nobody else decides what root writes to. What this
/// process has open for writing itself is not opened anew but shared, so that both write behind
/// each other.
/// @param appends behind what is there; else it is cut off.
/// @throws std::system_error with that name.
OpenedFile openOutput(const std::string& path, bool appends, const std::string& name);

/// Opens a directory that files are to be made in, and makes it where there is none. For root a
/// link at the end of the path is followed only if it is root's own.
/// @throws std::system_error with that path.
OpenedFile openFolder(const std::string& path);

/// Whether a path is a link to what a process has open, as `/dev/stdout` is: nothing may take its
/// place, and what stands there is not this output's alone.
bool leadsToWhatIsOpen(const std::string& path);

/// What others may do with a new file.
enum class Access {
  AsUmaskSays,
  OwnerWrites,  ///< the same, but for writing: root trusts no file that others could have written
  EverybodyReads,  ///< and none writes, whatever the umask: it is made for programs of other users
};

/// A new file beside a path, to be renamed to it.
/// @param besides takes its path.
/// @throws std::system_error with that name.
OpenedFile makeBeside(const std::string& path, std::string& besides, const std::string& name,
                      Access access = Access::AsUmaskSays);

/// A stream that writes to a file and closes it.
std::unique_ptr<std::ofstream> streamTo(OpenedFile file);

/// Whether a file ends with anything but the end of a line. What cannot be read does not.
bool endsWithinLine(const std::string& path);

/// @param error as errno tells it; 0 is taken for EIO.
/// @throws std::system_error with that name.
[[noreturn]] void failWith(int error, const std::string& name);

/// Waits until a file is on its disk.
void synchronise(const std::string& path);

}  // namespace TarvexDiags::FrontEnd
