// The one file of the tests that knows where they were built: all others compile to the same
// objects wherever they lie.

#include "tests/support/Places.h"

namespace TarvexDiags::TestSupport {

std::string sourcePath(const std::string& relative) {
  return TARVEX_SOURCE_DIR "/" + relative;
}

std::string modulePath(const std::string& module) {
  return TARVEX_TEST_MODULE_DIR "/lib" + module + ".so";
}

}  // namespace TarvexDiags::TestSupport
