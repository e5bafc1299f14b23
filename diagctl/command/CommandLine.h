#pragma once

namespace TarvexDiags::FrontEnd {

/// The program: parses the arguments and carries the verb out. @return the exit code.
/// @throws std::exception for what keeps it from its work.
[[nodiscard]] int runCommandLine(int argc, char** argv);

/// The same up to the verb, which is not carried out: 0 stands for it. Help and version are told.
[[nodiscard]] int readCommandLine(int argc, char** argv);

}  // namespace TarvexDiags::FrontEnd
