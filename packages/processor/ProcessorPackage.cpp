// The package: a device for each core that is online, and the engine's tests on it.

#include "packages/processor/CoreDiagnostic.h"

TARVEX_PACKAGE(package) {
  using namespace TarvexDiags::Processor;
  package.discover(findCoreDevices);
  for (int number = 1; number <= static_cast<int>(TestNumber::SustainedLoad); ++number) {
    package.test<CoreDiagnostic>(number, static_cast<TestNumber>(number));
  }
}
