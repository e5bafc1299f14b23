// Runs the test of a package that was written with the installed kit, and prints its verdict.

#include <cstdio>

#include "packagekit/testing/PackageDriver.h"

int main() {
  using namespace TarvexDiags;
  PackageKit::Testing::PackageDriver driver(PACKAGES, "clock");
  const auto run = driver.run("clocksource0", {1});
  for (const auto& event : run.events) {
    std::fprintf(stderr, "%u\n", event.code);
  }
  std::puts(run.verdict == Diag::DiagnosticResult::PASSED ? "PASSED" : "not passed");
}
