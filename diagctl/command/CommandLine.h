#pragma once

namespace TarvexDiags::FrontEnd {

/// The program: parses the arguments and carries the verb out. @return the exit code.
/// @throws std::exception for what keeps it from its work.
int runCommandLine(int argc, char** argv);

}  // namespace TarvexDiags::FrontEnd
