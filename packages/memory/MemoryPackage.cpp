// The package: a device for each NUMA node, and the engine's tests on it.

#include "packages/memory/NodeDiagnostic.h"

TARVEX_PACKAGE(package) {
  using namespace TarvexDiags;
  using namespace TarvexDiags::Memory;
  package.discover(findNodeDevices);
  package.reads({Common::kSystemRoot});
  for (const MemoryTest& test : memoryTests()) {
    package.test<NodeDiagnostic>(test.number, test).reads(settingsOf(test));
  }
}
