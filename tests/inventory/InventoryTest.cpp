// What the inventory tells of recorded machines, and that it tells nothing that changes by itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "inventory/Inventory.h"
#include "tests/inventory/RecordedMachine.h"

namespace TarvexDiags::Inventory {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::vector<ModuleRecord> sixteenModules() {
  std::vector<ModuleRecord> modules;
  for (int number = 0; number < 16; ++number) {
    const std::string name = (number < 8 ? "A" : "B") + std::to_string(number % 8 + 1);
    modules.push_back({.locator = "DIMM_" + name, .serial = "80AD" + std::to_string(number)});
  }
  return modules;
}

/// A server of two sockets, with a disk behind a bridge and an interface.
struct Server : RecordedMachine {
  explicit Server(const std::string& bus = "17") {
    standsAs("Maker of Servers", "Server of Two Sockets").processors(2, 8);
    modules(sixteenModules())
        .node(0, 131'000'000, "0-3", "10 21")
        .node(1, 132'000'000, "4-7", "21 10");
    const std::string below = "0000:" + bus + ":00.0";
    device("0000:16", "0000:16:02.0", "0x060400", "pcieport");
    nvme(0, "0000:16", "0000:16:02.0/" + below, "S5XANA0R1", "GDC5602Q");
    interface("ens1f0", "0000:16", "0000:16:04.0", "a0:88:c2:01:02:03", 100000);
  }
};

Json inventoryOf(const RecordedMachine& machine) {
  return takeInventory(machine.files(), nullptr);
}

/// The places at which the inventories of two machines differ.
std::vector<std::string> differences(const RecordedMachine& one, const RecordedMachine& other) {
  std::vector<std::string> places;
  for (const Json& step : Json::diff(inventoryOf(one), inventoryOf(other))) {
    places.push_back(step["op"].get<std::string>() + " " + step["path"].get<std::string>());
  }
  return places;
}

TEST(Inventory, tells_what_a_server_is_made_of) {
  const Json inventory = inventoryOf(Server());
  EXPECT_EQ(inventory["system"]["vendor"], "Maker of Servers");
  EXPECT_EQ(inventory["system"]["firmware"]["version"], "2.1.7");
  EXPECT_EQ(inventory["processors"]["sockets"], 2);
  EXPECT_EQ(inventory["processors"]["cores"], 8);
  EXPECT_EQ(inventory["processors"]["microcode"], Json({{"0x2b000590", "0-7"}}));
  EXPECT_EQ(inventory["processors"]["flags"], Json({"avx2", "fpu", "sse2"}));
  EXPECT_EQ(inventory["memory"]["modules"].size(), 16U);
  EXPECT_EQ(inventory["memory"]["modules"]["DIMM_B8"]["bytes"], 16ULL << 30U);
  EXPECT_EQ(inventory["memory"]["nodes"]["1"]["distances"], "21 10");
  const Json disk = inventory["disks"]["0000:16/02.0/00.0/n1"];
  EXPECT_EQ(disk["serialNumber"], "S5XANA0R1");
  EXPECT_EQ(disk["firmware"], "GDC5602Q");
  EXPECT_EQ(disk["transport"], "nvme");
  EXPECT_EQ(disk["bytes"], 7501476528ULL * 512);
  const Json interface = inventory["interfaces"]["0000:16/04.0/port0"];
  EXPECT_EQ(interface["driver"], "mlx5_core");
  EXPECT_EQ(interface["megabitsPerSecond"], 100000);
  const Json link = inventory["pci"]["0000:16/02.0/00.0"]["link"];
  EXPECT_EQ(link["device"]["width"], 16);
  EXPECT_EQ(link["port"]["maximumSpeed"], 16.0);
  EXPECT_EQ(inventory["kernel"]["taints"], Json::array());
}

TEST(Inventory, of_one_machine_is_the_same_byte_for_byte) {
  const Server server;
  EXPECT_EQ(inventoryOf(server).dump(), inventoryOf(server).dump());
}

TEST(Inventory, tells_nothing_that_changes_by_itself) {
  Server later;
  later.processors(2, 0);
  for (int number = 0; number < 8; ++number) {
    later.thread(number, "0x2b000590", "fpu sse2 avx2", "3791.25" + std::to_string(number));
  }
  later.processors(2, 8).has("proc/meminfo", "MemTotal:  263840000 kB\nMemFree:   77 kB\n");
  later.has("proc/uptime", "12345.6 1\n").has("sys/class/hwmon/hwmon0/temp1_input", "45000\n");
  EXPECT_THAT(differences(Server(), later), IsEmpty());
}

TEST(Inventory, stays_when_buses_are_renumbered) {
  EXPECT_THAT(differences(Server("17"), Server("5a")), IsEmpty());
}

TEST(Inventory, differs_by_a_module_that_is_gone_alone) {
  Server odd;
  std::vector<ModuleRecord> modules = sixteenModules();
  modules[5].megabytes = 0;
  odd.modules(modules);
  EXPECT_THAT(differences(Server(), odd),
              UnorderedElementsAre("replace /memory/modules/DIMM_A6/populated",
                                   "remove /memory/modules/DIMM_A6/bytes",
                                   "remove /memory/modules/DIMM_A6/configuredMegatransfers",
                                   "remove /memory/modules/DIMM_A6/ratedMegatransfers",
                                   "remove /memory/modules/DIMM_A6/technology",
                                   "remove /memory/modules/DIMM_A6/manufacturer",
                                   "remove /memory/modules/DIMM_A6/partNumber",
                                   "remove /memory/modules/DIMM_A6/serialNumber"));
}

TEST(Inventory, differs_by_a_link_of_half_its_width_alone) {
  Server odd;
  const std::string device = "sys/devices/pci0000:16/0000:16:02.0/0000:17:00.0/";
  odd.has(device + "current_link_width", "8\n").has(device + "current_link_speed", "Unknown\n");
  EXPECT_THAT(differences(Server(), odd),
              UnorderedElementsAre("replace /pci/0000:16~102.0~100.0/link/device/width",
                                   "replace /pci/0000:16~102.0~100.0/link/device/speed"));
  EXPECT_EQ(inventoryOf(odd)["pci"]["0000:16/02.0/00.0"]["link"]["device"]["speed"], kUnknown);
}

TEST(Inventory, tells_which_threads_have_another_microcode_and_lack_a_flag) {
  RecordedMachine odd;
  odd.thread(0, "0x10", "fpu avx2").thread(1, "0x11", "fpu").thread(2, "0x10", "fpu avx2");
  const Json processors = processorFacts(odd.files());
  EXPECT_EQ(processors["microcode"], Json({{"0x10", "0,2"}, {"0x11", "1"}}));
  EXPECT_EQ(processors["flags"], Json({"fpu"}));
  EXPECT_EQ(processors["flagsOfSome"], Json({{"avx2", "0,2"}}));
}

TEST(Inventory, differs_by_the_firmware_of_one_disk_alone) {
  Server odd;
  odd.has("sys/devices/pci0000:16/0000:16:02.0/0000:17:00.0/nvme/nvme0/firmware_rev", "GDC5302Q\n");
  EXPECT_THAT(differences(Server(), odd),
              ElementsAre("replace /disks/0000:16~102.0~100.0~1n1/firmware"));
}

TEST(Inventory, tells_no_link_of_an_interface_that_nobody_uses) {
  RecordedMachine machine;
  machine.interface("eth0", "0000:00", "0000:00:03.0", "a0:88:c2:01:02:03", -1);
  const Json facts = interfaceFacts(machine.files(), nullptr)["0000:00/03.0/port0"];
  EXPECT_FALSE(facts.contains("megabitsPerSecond"));
  EXPECT_EQ(facts["macAddress"], "a0:88:c2:01:02:03");
  machine.has("sys/class/net/eth0/flags", "0x1003\n")
      .has("sys/class/net/eth0/addr_assign_type", "1");
  const Json used = interfaceFacts(machine.files(), nullptr)["0000:00/03.0/port0"];
  EXPECT_EQ(used["megabitsPerSecond"], kUnknown);
  EXPECT_FALSE(used.contains("macAddress")) << "it was drawn";
}

TEST(Inventory, asks_drivers_for_what_no_file_tells) {
  RecordedMachine machine;
  machine.interface("eth0", "0000:00", "0000:00:03.0", "a0:88:c2:01:02:03", 1000);
  const Json facts = interfaceFacts(machine.files(), [](const std::string& name) {
    return DriverFacts{.firmware = "22.41 of " + name, .port = "FIBRE"};
  });
  EXPECT_EQ(facts["0000:00/03.0/port0"]["firmware"], "22.41 of eth0");
  EXPECT_EQ(facts["0000:00/03.0/port0"]["port"], "FIBRE");
}

TEST(Inventory, tells_gpus_and_adapters_by_their_places) {
  RecordedMachine machine;
  machine.device("0000:00", "0000:00:01.0/0000:01:00.0", "0x030200", "nvidia");
  machine.has("proc/driver/nvidia/gpus/0000:01:00.0/information",
              "Model: \t\t Accelerator of 80 GB\nGPU UUID: \t GPU-1234\nVideo BIOS: 96.00\n");
  const std::string adapter = "sys/devices/pci0000:00/0000:00:02.0/infiniband/mlx5_0";
  machine.has(adapter + "/fw_ver", "20.35\n").has(adapter + "/ports/1/rate", "200 Gb/sec\n");
  machine.links("sys/class/infiniband/mlx5_0", adapter);
  const Json gpu = gpuFacts(machine.files())["0000:00/01.0/00.0"];
  EXPECT_EQ(gpu["model"], "Accelerator of 80 GB");
  EXPECT_EQ(gpu["uuid"], "GPU-1234");
  EXPECT_EQ(gpu["firmware"], "96.00");
  const Json found = infinibandFacts(machine.files())["0000:00/02.0"];
  EXPECT_EQ(found["firmware"], "20.35");
  EXPECT_EQ(found["ports"]["1"]["rate"], "200 Gb/sec");
}

TEST(Inventory, of_a_laptop_or_a_virtual_machine_has_no_keys_for_what_is_not_there) {
  RecordedMachine machine;
  const Json inventory = inventoryOf(machine);
  for (const char* part : {"pci", "disks", "interfaces", "infiniband", "gpus", "tpm", "memory"}) {
    EXPECT_THAT(inventory[part], IsEmpty()) << part;
  }
}

TEST(Inventory, leaves_out_what_somebody_plugged_in) {
  RecordedMachine machine;
  const std::string stick =
      "sys/devices/pci0000:00/0000:00:14.0/usb1/1-1/host2/target2:0:0/"
      "2:0:0:0/block/sdb";
  machine.has(stick + "/size", "1000\n").has(stick + "/removable", "1\n");
  machine.links("sys/block/sdb", stick);
  EXPECT_THAT(diskFacts(machine.files()), IsEmpty());
  machine.has(stick + "/removable", "0\n");
  EXPECT_EQ(diskFacts(machine.files())["0000:00/14.0/0:0:0"]["transport"], "usb");
}

TEST(Inventory, tells_the_serial_number_that_a_disk_gives_itself) {
  RecordedMachine machine;
  const std::string disk =
      "sys/devices/pci0000:00/0000:00:17.0/ata3/host2/target2:0:0/2:0:0:0/block/sda";
  machine.has(disk + "/size", "1000\n").has(disk + "/wwid", "t10.ATA  Disk  WX1\n");
  machine.links(disk + "/device",
                "sys/devices/pci0000:00/0000:00:17.0/ata3/host2/target2:0:0/2:0:0:0");
  machine.has("sys/devices/pci0000:00/0000:00:17.0/ata3/host2/target2:0:0/2:0:0:0/vpd_pg80",
              std::string("\0\x80\0\x08", 4) + "  WX1234");
  machine.links("sys/block/sda", disk);
  const Json facts = diskFacts(machine.files())["0000:00/17.0/ata3/0:0:0"];
  EXPECT_EQ(facts["serialNumber"], "WX1234");
  EXPECT_EQ(facts["transport"], "sata");
}

/// Somebody for whom root's files are closed, for the time of a test.
class Unprivileged {
 public:
  Unprivileged() { EXPECT_EQ(m_isRoot ? seteuid(kNobody) : 0, 0); }
  ~Unprivileged() { EXPECT_EQ(m_isRoot ? seteuid(0) : 0, 0); }
  Unprivileged(const Unprivileged&) = delete;
  Unprivileged& operator=(const Unprivileged&) = delete;

 private:
  static constexpr uid_t kNobody = 65534;
  bool m_isRoot = geteuid() == 0;
};

TEST(Inventory, calls_unknown_what_it_may_not_read) {
  Server server;
  ASSERT_EQ(chmod(server.path().c_str(), 0755), 0);
  for (const char* file : {"/sys/class/dmi/id/product_serial", "/sys/firmware/dmi/tables/DMI"}) {
    ASSERT_EQ(chmod((server.path() + file).c_str(), 0), 0);
  }
  Json inventory;
  {
    const Unprivileged nobody;
    inventory = inventoryOf(server);
  }
  EXPECT_EQ(inventory["system"]["serialNumber"], kUnknown);
  EXPECT_EQ(inventory["memory"]["modules"], kUnknown);
  EXPECT_EQ(inventory["system"]["product"], "Server of Two Sockets");
}

TEST(Inventory, takes_texts_of_parts_for_data) {
  RecordedMachine machine;
  machine.has("sys/class/dmi/id/product_name", " Box\x1b[2J\xff \xe2\x82\xac\xc2\x9b \xc0\x80 \n");
  EXPECT_EQ(systemFacts(machine.files())["product"], "Box?[2J? \xe2\x82\xac?? ??");
  EXPECT_EQ(cleaned("\xed\xa0\x80\xf4\x90\x80\x80\xe0\x80\x80"), "??????????");
}

TEST(Inventory, tells_taints_by_their_names) {
  RecordedMachine machine;
  machine.has("proc/sys/kernel/tainted", "4112\n");
  EXPECT_EQ(kernelFacts(machine.files())["taints"], Json({"machine-check", "external-module"}));
}

TEST(Inventory, tells_two_parts_of_one_place_apart) {
  RecordedMachine machine;
  machine.modules({{.locator = "DIMM 0", .serial = "1"},
                   {.locator = "DIMM 0", .serial = "2"},
                   {.locator = "DIMM 0", .serial = "3"}});
  const Json modules = memoryFacts(machine.files())["modules"];
  EXPECT_EQ(modules["DIMM 0 NODE 0"]["serialNumber"], "1");
  EXPECT_EQ(modules["DIMM 0 NODE 0#2"]["serialNumber"], "2");
  EXPECT_EQ(modules["DIMM 0 NODE 0#3"]["serialNumber"], "3");
}

TEST(Inventory, calls_a_module_the_same_whichever_other_one_is_gone) {
  RecordedMachine machine;
  std::vector<ModuleRecord> records = {{.locator = "DIMM A", .serial = "1", .bank = "P0"},
                                       {.locator = "DIMM B", .serial = "2", .bank = "P0"},
                                       {.locator = "DIMM A", .serial = "3", .bank = "P1"},
                                       {.locator = "DIMM B", .serial = "4", .bank = "P1"}};
  machine.modules(records);
  Json modules = memoryFacts(machine.files())["modules"];
  EXPECT_EQ(modules["DIMM A P0"]["serialNumber"], "1");
  records.erase(records.begin());
  machine.modules(records);
  modules.erase("DIMM A P0");
  EXPECT_EQ(memoryFacts(machine.files())["modules"], modules);
}

}  // namespace
}  // namespace TarvexDiags::Inventory
