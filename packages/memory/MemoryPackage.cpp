// The package: a device for each NUMA node, and the engine's tests on it.

#include "packages/memory/NodeDiagnostic.h"

TARVEX_PACKAGE(package) {
  using namespace TarvexDiags::Memory;
  package.discover(findNodeDevices);
  for (int number = 1; number <= static_cast<int>(TestNumber::BandwidthStress); ++number) {
    package.test<NodeDiagnostic>(number, static_cast<TestNumber>(number));
  }
}
