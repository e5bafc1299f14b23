#include <exception>

#include "diagctl/command/CommandLine.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/terminal/Printer.h"

int main(int argc, char** argv) {
  try {
    return TarvexDiags::FrontEnd::runCommandLine(argc, argv);
  } catch (const std::exception& failure) {
    TarvexDiags::FrontEnd::standardError().print("diagctl: {}\n", failure.what());
    return TarvexDiags::FrontEnd::ExitCode::kNoVerdict;
  }
}
