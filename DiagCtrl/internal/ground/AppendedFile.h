#pragma once

#include <fstream>
#include <string>

namespace TarvexDiags::DiagCtrl {

/// Opens a stream for appending to a regular file, which is made where there is none. Nothing else
/// is written to: no link is followed at the end of the path, so that nobody who may make one
/// decides what is written to, and a FIFO, a terminal or a device holds nobody up.
/// @return whether it is open; if not, the stream is in a failed state.
bool openForAppending(std::ofstream& arStream, const std::string& arPath);

}  // namespace TarvexDiags::DiagCtrl
