#include <exception>

#include "diagctl/command/CommandLine.h"
#include "diagctl/command/Reporting.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/session/Safety.h"
#include "diagctl/terminal/StandardDescriptors.h"

int main(int argc, char** argv) {
  if (!TarvexDiags::FrontEnd::holdStandardDescriptors()) {
    return TarvexDiags::FrontEnd::ExitCode::kNoVerdict;
  }
  TarvexDiags::FrontEnd::forgetVariablesThatNameCode();
  try {
    return TarvexDiags::FrontEnd::runCommandLine(argc, argv);
  } catch (const std::exception& failure) {
    TarvexDiags::FrontEnd::tellFailure(failure);
    return TarvexDiags::FrontEnd::ExitCode::kNoVerdict;
  }
}
