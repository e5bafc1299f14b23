#include <exception>

#include "diagctl/command/CommandLine.h"
#include "diagctl/command/Reporting.h"
#include "diagctl/report/ExitStatus.h"

int main(int argc, char** argv) {
  try {
    return TarvexDiags::FrontEnd::runCommandLine(argc, argv);
  } catch (const std::exception& failure) {
    TarvexDiags::FrontEnd::tellFailure(failure);
    return TarvexDiags::FrontEnd::ExitCode::kNoVerdict;
  }
}
