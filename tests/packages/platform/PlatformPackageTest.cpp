// The platform package as the controller loads it, on recorded machines and on this one.

#include <string>
#include <vector>

#include "packagekit/KitEvents.h"
#include "packagekit/ResourceTags.h"
#include "packagekit/testing/PackageDriver.h"
#include "packages/platform/PlatformEvents.h"
#include "tests/inventory/RecordedMachine.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Platform {
namespace {

using Diag::DiagnosticResult;
using PackageKit::Testing::PackageDriver;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// A server in good order.
struct GoodServer : Inventory::RecordedMachine {
  GoodServer() {
    standsAs("Maker of Servers", "Server of Two Sockets").processors(2, 8);
    modules({{.locator = "DIMM_A1", .serial = "1"}, {.locator = "DIMM_B1", .serial = "2"}});
    device("0000:16", "0000:16:02.0", "0x060400", "pcieport");
    device("0000:16", "0000:16:03.0", "0x060400", "pcieport");
    nvme(0, "0000:16", "0000:16:02.0/0000:17:00.0", "S1", "GDC5602Q");
    nvme(1, "0000:16", "0000:16:03.0/0000:18:00.0", "S2", "GDC5602Q");
    has("sys/devices/system/clocksource/clocksource0/current_clocksource", "tsc\n");
    has("sys/class/rtc/rtc0/since_epoch", "1700000000\n");
  }
};

struct Pair {
  const char* device;
  int test;
};

constexpr Pair kPairs[] = {{"pcie-links", 1}, {"processors", 2}, {"memory-modules", 3},
                           {"disks", 4},      {"processors", 5}, {"clocks", 6}};

class PlatformPackage : public testing::Test {
 protected:
  PackageDriver driver{TARVEX_PACKAGE_DIR, "platform"};

  void standOn(const Inventory::RecordedMachine& machine) {
    driver.set("Package", "SystemRoot", machine.path());
  }

  PackageDriver::Run runQuick(const std::string& device, int test) {
    PackageDriver::Options options;
    options.quickMode = true;
    return driver.run(device, {test}, options);
  }
};

TEST_F(PlatformPackage, passes_on_a_server_in_good_order) {
  const GoodServer server;
  standOn(server);
  for (const Pair& pair : kPairs) {
    ASSERT_TRUE(driver.supports(pair.device, pair.test)) << driver.logText();
    EXPECT_EQ(runQuick(pair.device, pair.test).verdict, DiagnosticResult::PASSED) << pair.test;
  }
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(PlatformPackage, fails_a_link_of_half_its_width_after_three_looks) {
  GoodServer server;
  server.has("sys/devices/pci0000:16/0000:16:02.0/0000:17:00.0/current_link_width", "8\n");
  standOn(server);
  driver.set("TestID1", "LookSeconds", "0.01");
  const auto run = runQuick("pcie-links", 1);
  EXPECT_EQ(run.verdict, DiagnosticResult::FAILED);
  EXPECT_EQ(run.parametersOf(201).at(1), "0000:17:00.0");
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(PlatformPackage, fails_a_clock_that_stands_still_in_a_full_run_alone) {
  const GoodServer server;
  standOn(server);
  driver.set("TestID6", "ClockSeconds", "2");
  EXPECT_EQ(runQuick("clocks", 6).verdict, DiagnosticResult::PASSED);
  const auto run = driver.run("clocks", {6});
  EXPECT_EQ(run.verdict, DiagnosticResult::FAILED);
  EXPECT_TRUE(run.has(204));
}

TEST_F(PlatformPackage, says_why_nothing_is_possible_on_a_machine_that_tells_nothing) {
  const Inventory::RecordedMachine nothing;
  standOn(nothing);
  for (const Pair& pair : kPairs) {
    EXPECT_FALSE(driver.supports(pair.device, pair.test)) << pair.test;
  }
  for (const char* const reason : {"NO_PCIE_LINKS", "PROCESSORS_NOT_TOLD", "MODULES_NOT_TOLD",
                                   "NO_LIKE_DISKS", "TAINTS_NOT_TOLD", "NO_CLOCK"}) {
    EXPECT_THAT(driver.logText(), HasSubstr(reason));
  }
}

TEST_F(PlatformPackage, finds_no_fault_where_it_finds_nothing_to_judge_on_this_machine) {
  std::vector<std::string> tags;
  for (auto& device : driver.devices()) {
    tags.push_back(device.getDevice()->getResourceTag());
  }
  EXPECT_THAT(tags, Contains("host/pcie-links"));
  EXPECT_THAT(PackageKit::findTagClashes(tags), IsEmpty());
  for (const Pair& pair : kPairs) {
    if (driver.supports(pair.device, pair.test)) {
      const auto run = runQuick(pair.device, pair.test);
      EXPECT_FALSE(run.has(PackageKit::TEST_THREW)) << pair.test;
      EXPECT_FALSE(run.has(PackageKit::NO_PERMISSION)) << pair.test;
    }
  }
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Platform
