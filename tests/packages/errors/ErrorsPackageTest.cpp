// The errors package as the controller loads it, on recorded machines and on this one.

#include <string>

#include "packagekit/KitEvents.h"
#include "packagekit/testing/PackageDriver.h"
#include "tests/support/FakeMachine.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Errors {
namespace {

using Diag::DiagnosticResult;
using PackageKit::Testing::PackageDriver;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kDevice = "error-counters";

class ErrorsPackage : public testing::Test {
 protected:
  PackageDriver driver{TARVEX_PACKAGE_DIR, "errors"};
};

TEST_F(ErrorsPackage, fails_a_module_whose_errors_could_not_be_corrected) {
  Tests::FakeMachine machine;
  machine.has("sys/devices/system/edac/mc/mc0/dimm0/dimm_label", "DIMM_A1\n");
  machine.has("sys/devices/system/edac/mc/mc0/dimm0/dimm_ue_count", "1\n");
  driver.set("Package", "SystemRoot", machine.path());
  const auto run = driver.run(kDevice, {1});
  EXPECT_EQ(run.verdict, DiagnosticResult::FAILED);
  EXPECT_EQ(run.parametersOf(202).at(1), "DIMM_A1");
  EXPECT_FALSE(driver.supports(kDevice, 2));
  EXPECT_THAT(driver.logText(), HasSubstr("NO_PCIE_COUNTERS"));
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(ErrorsPackage, looks_at_this_machine_without_trouble) {
  for (int test = 1; test <= 5; ++test) {
    if (driver.supports(kDevice, test)) {
      const auto run = driver.run(kDevice, {test});
      EXPECT_FALSE(run.has(PackageKit::TEST_THREW)) << test;
      EXPECT_FALSE(run.has(PackageKit::NO_PERMISSION)) << test;
    }
  }
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Errors
