// What somebody who orders another part is told of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "inventory/Parts.h"
#include "tests/inventory/RecordedMachine.h"

namespace TarvexDiags::Inventory {
namespace {

using ::testing::IsEmpty;

Part partOf(const RecordedMachine& machine, const std::string& id) {
  for (const Part& part : findParts(machine.files(), nullptr)) {
    if (part.id == id) {
      return part;
    }
  }
  ADD_FAILURE() << "there is no " << id;
  return {};
}

struct Machine : RecordedMachine {
  Machine() {
    standsAs("Maker of Servers", "Server of Two Sockets").processors(2, 4);
    modules({{.locator = "DIMM_A1", .serial = "80AD"}});
    nvme(0, "0000:16", "0000:16:02.0/0000:17:00.0", "S5XANA0R1", "GDC5602Q");
    interface("ens1f0", "0000:16", "0000:16:04.0", "a0:88:c2:01:02:03", 100000);
    has("sys/bus/pci/slots/7/address", "0000:17:00\n");
  }
};

TEST(Parts, are_told_as_somebody_orders_them) {
  const Machine machine;
  const Part system = partOf(machine, "part-system");
  EXPECT_EQ(system.manufacturer, "Maker of Servers");
  EXPECT_EQ(system.serialNumber, "SN-4711-0815");
  EXPECT_EQ(partOf(machine, "part-firmware").version, "2.1.7");
  const Part module = partOf(machine, "part-module-DIMM_A1");
  EXPECT_EQ(module.partNumber, "M321R2GA3BB6");
  EXPECT_EQ(module.manufacturer, "Maker of Modules");
  EXPECT_EQ(module.serialNumber, "80AD");
  EXPECT_EQ(module.location, "DIMM_A1");
  const Part disk = partOf(machine, "part-disk-0000:16/02.0/00.0/n1");
  EXPECT_EQ(disk.device, "nvme0n1");
  EXPECT_EQ(disk.location, "7") << "the slot";
  EXPECT_EQ(disk.partNumber, "Disk of 4 TB");
  EXPECT_EQ(disk.version, "GDC5602Q");
}

TEST(Parts, have_ids_of_their_own) {
  const auto parts = findParts(Machine().files(), nullptr);
  std::set<std::string> ids;
  for (const Part& part : parts) {
    EXPECT_TRUE(ids.insert(part.id).second) << part.id;
    EXPECT_NE(part.name, "");
  }
}

TEST(Parts, have_the_firmware_that_drivers_tell) {
  const Machine machine;
  const auto parts = findParts(machine.files(), [](const std::string&) {
    return DriverFacts{.firmware = "22.41", .port = "FIBRE"};
  });
  const auto found = std::find_if(parts.begin(), parts.end(),
                                  [](const Part& part) { return part.device == "ens1f0"; });
  ASSERT_NE(found, parts.end());
  EXPECT_EQ(found->version, "22.41");
}

TEST(Parts, that_tell_nothing_are_left_out) {
  EXPECT_THAT(findParts(RecordedMachine().files(), nullptr), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Inventory
