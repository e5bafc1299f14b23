// The package: a device for each core that is online, and the engine's tests on it.

#include "packages/processor/CoreDiagnostic.h"

TARVEX_PACKAGE(package) {
  using namespace TarvexDiags;
  using namespace TarvexDiags::Processor;
  package.discover(findCoreDevices);
  package.reads({Common::kSystemRoot});
  for (const ProcessorTest& test : processorTests()) {
    package.test<CoreDiagnostic>(test.number, test).reads(coreSettings());
  }
}
