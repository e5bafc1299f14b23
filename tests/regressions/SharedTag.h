#pragma once

#include "tests/controller/pipeline/PipelineFixture.h"

namespace TarvexDiags::TestSupport {

/// A test that has the whole machine, on a device whose tag others want as well.
class SharedTagTest : public PipelineTest {
 protected:
  SharedTagTest() : whole(harness.addPackage("WHOLE", PackageConfig(1).systemLock())) {
    whole.setDevices({{.tag = "a/1", .name = "w1"}});
  }
  Script& whole;
};

}  // namespace TarvexDiags::TestSupport
