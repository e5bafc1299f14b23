// Which of the machine's parts the devices under test are.

#include <gtest/gtest.h>

#include "diagctl/command/MachineParts.h"

namespace TarvexDiags::FrontEnd {
namespace {

Inventory::Part diskPart() {
  return {"part-disk-0000:16/02.0", "Disk of 4 TB", "nvme0n1", "slot 7", "Maker", "D4", "S1", "F1"};
}

TEST(MachineParts, describe_the_device_that_is_tested) {
  RunStarted start;
  start.hardware = {{"1-1", "Disk (nvme0n1)", "host/nvme0n1"}, {"1-2", "Core 0", "host/cpu0"}};
  addParts(start, {diskPart()});
  ASSERT_EQ(start.hardware.size(), 2U);
  EXPECT_EQ(start.hardware[0].id, "1-1") << "by which the steps know it";
  EXPECT_EQ(start.hardware[0].location, "host/nvme0n1");
  EXPECT_EQ(start.hardware[0].serialNumber, "S1");
  EXPECT_EQ(start.hardware[0].partNumber, "D4");
  EXPECT_EQ(start.hardware[0].version, "F1");
  EXPECT_EQ(start.hardware[1].serialNumber, "");
}

TEST(MachineParts, that_no_test_is_on_stand_behind_the_devices) {
  RunStarted start;
  start.hardware = {{"1-1", "Disk (nvme0n10)", "host/nvme0n10"}};
  Inventory::Part module{"part-module-A1", "Memory module A1", "", "A1"};
  module.serialNumber = "80AD";
  addParts(start, {diskPart(), module});
  ASSERT_EQ(start.hardware.size(), 3U);
  EXPECT_EQ(start.hardware[1].id, "part-disk-0000:16/02.0");
  EXPECT_EQ(start.hardware[2].location, "A1");
  EXPECT_EQ(start.hardware[2].serialNumber, "80AD");
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
