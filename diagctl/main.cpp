#include <exception>
#include <iostream>

#include "diagctl/command/CommandLine.h"
#include "diagctl/report/ExitStatus.h"

int main(int argc, char** argv) {
  try {
    return TarvexDiags::FrontEnd::runCommandLine(argc, argv);
  } catch (const std::exception& failure) {
    std::cerr << "diagctl: " << failure.what() << '\n';
    return TarvexDiags::FrontEnd::ExitCode::noVerdict;
  }
}
