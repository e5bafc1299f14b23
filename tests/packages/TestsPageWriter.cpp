// Writes the page of all bundled tests, docs/tests.md, from the packages of the build.

#include <cstdio>
#include <fstream>

#include "tests/packages/TestsPage.h"

int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: %s FILE\n", arguments[0]);
    return 64;
  }
  std::ofstream file(arguments[1]);
  file << TarvexDiags::TestSupport::testsPage(TARVEX_PACKAGE_DIR) << std::flush;
  return file ? 0 : 1;
}
