// The packages in the hands of a user without privileges: what such a user may not do is not
// offered, and never taken for a fault of the hardware.

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <ostream>
#include <set>
#include <string>

#include "packagekit/KitEvents.h"
#include "packagekit/ResourceTags.h"
#include "packagekit/testing/PackageDriver.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;
using Testing::PackageDriver;

namespace {

constexpr unsigned int kNobody = 65534;

struct Row {
  const char* package;
  std::set<int> leftOut;
  const char* onlyDevice;  ///< null: all of them
};

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.package;
}

// For the rest of this process, which runs no other test.
bool becomeNobody() {
  if (geteuid() == 0 &&
      (setgroups(0, nullptr) != 0 || setresgid(kNobody, kNobody, kNobody) != 0 ||
       setresuid(kNobody, kNobody, kNobody) != 0 || prctl(PR_SET_DUMPABLE, 1) != 0)) {
    return false;
  }
  return access(TARVEX_PACKAGE_DIR "/tarvex-package-worker", X_OK) == 0;
}

void makeShort(PackageDriver& driver) {
  driver.set("Package", "QuickMaximumMegabytes", "2")
      .set("Package", "QuickDurationSeconds", "0.01");
  driver.set("Package", "MarginMegabytes", "0").set("Package", "MarginPercent", "0");
  driver.set("TestID8", "QuickHoldSeconds", "0.01").set("TestID4", "QuickStreamMegabytes", "8");
  driver.set("TestID5", "QuickDatagrams", "500");
}

class Unprivileged : public ::testing::TestWithParam<Row> {};

}  // namespace

TEST_P(Unprivileged, find_no_fault_in_what_they_may_not_do) {
  if (!becomeNobody()) {
    GTEST_SKIP() << "nobody cannot reach the packages";
  }
  PackageDriver driver(TARVEX_PACKAGE_DIR, GetParam().package);
  makeShort(driver);
  PackageDriver::Options quick;
  quick.quickMode = true;
  const int count = std::stoi(Settings(driver.configFile()).package("NumberOfTests").value_or("0"));
  ASSERT_GT(count, 0);
  for (auto& device : driver.devices()) {
    const std::string name = lastComponent(device.getDevice()->getResourceTag());
    if (GetParam().onlyDevice != nullptr && name != GetParam().onlyDevice) {
      continue;
    }
    for (int test = 1; test <= count; ++test) {
      if (GetParam().leftOut.contains(test)) {
        continue;
      }
      if (!driver.supports(name, test)) {
        EXPECT_THAT(driver.logText(),
                    ::testing::HasSubstr("test " + std::to_string(test) + " is not supported on "));
        continue;
      }
      const auto run = driver.run(name, {test}, quick);
      EXPECT_NE(run.verdict, Diag::DiagnosticResult::FAILED) << name << ", test " << test;
      EXPECT_FALSE(run.has(NO_PERMISSION)) << name << ", test " << test;
      EXPECT_FALSE(run.has(SYSTEM_CALL_FAILED)) << name << ", test " << test;
    }
  }
}

// Not those that take long and do nothing that others don't, nor the test that writes files: this
// machine's disks are not the test suite's. Of the interfaces only the one that is the same
// everywhere.
INSTANTIATE_TEST_SUITE_P(
    Users, Unprivileged,
    ::testing::Values(Row{"memory", {2, 3, 7, 9}, nullptr}, Row{"processor", {8}, nullptr},
                      Row{"storage", {8}, nullptr}, Row{"network", {}, "lo"},
                      Row{"platform", {}, nullptr}, Row{"errors", {}, nullptr}),
    [](const ::testing::TestParamInfo<Row>& row) { return std::string(row.param.package); });
