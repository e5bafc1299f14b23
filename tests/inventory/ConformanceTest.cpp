// Machines of five kinds, each spoilt in one way: exactly that is found, and nothing else.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "inventory/Comparison.h"
#include "inventory/Golden.h"
#include "inventory/Inventory.h"
#include "tests/inventory/Documents.h"
#include "tests/inventory/MachineKinds.h"

namespace TarvexDiags::Inventory {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

Json inventoryOfMachine(const RecordedMachine& machine) {
  return takeInventory(machine.files(), nullptr);
}

std::vector<std::string> findingsAgainst(const Json& expected, const RecordedMachine& machine) {
  return linesOf(compare(expected, inventoryOfMachine(machine), Rules::shipped()).findings);
}

/// The bytes of a module are missing in the machine and in its last node, as they are then.
void takeOut(MachineKind& kind, std::size_t number) {
  kind.modules[number].megabytes = 0;
  kind.machine->modules(kind.modules);
  kind.machine->has("proc/meminfo", "MemTotal:       200000000 kB\n");
  if (kind.machine->files().exists("sys/devices/system/node/node0")) {
    kind.machine->has("sys/devices/system/node/node0/meminfo", "Node 0 MemTotal: 100000000 kB\n");
  }
}

void giveLastThreadOtherMicrocode(RecordedMachine& machine) {
  std::string text = machine.files().text("proc/cpuinfo").value_or("");
  const std::size_t place = text.rfind("microcode\t: ");
  ASSERT_NE(place, std::string::npos);
  machine.has("proc/cpuinfo", text.insert(place + 12, "0xfff"));
}

TEST(Conformance, of_an_unspoilt_machine_of_any_kind_finds_nothing) {
  const std::vector<MachineKind> again = kindsOfMachines();
  std::size_t number = 0;
  for (const MachineKind& kind : kindsOfMachines()) {
    const Json inventory = inventoryOfMachine(*kind.machine);
    EXPECT_EQ(inventory.dump(), inventoryOfMachine(*again[number].machine).dump()) << kind.name;
    EXPECT_THAT(findingsAgainst(inventory, *again[number++].machine), IsEmpty()) << kind.name;
  }
}

TEST(Conformance, finds_a_module_that_is_gone) {
  for (MachineKind& kind : kindsOfMachines()) {
    for (const std::size_t number : {std::size_t{0}, kind.modules.size() / 2}) {
      if (number < kind.modules.size()) {
        const Json before = inventoryOfMachine(*kind.machine);
        takeOut(kind, number);
        EXPECT_THAT(findingsAgainst(before, *kind.machine),
                    ElementsAre("failure missing /memory/modules/" + kind.modules[number].locator))
            << kind.name;
      }
    }
  }
}

TEST(Conformance, finds_a_link_of_half_its_width) {
  for (MachineKind& kind : kindsOfMachines()) {
    const Json before = inventoryOfMachine(*kind.machine);
    for (const std::string& folder : kind.endsOfLink) {
      kind.machine->has(folder + "/current_link_width", "8\n");
    }
    if (!kind.endsOfLink.empty()) {
      EXPECT_THAT(findingsAgainst(before, *kind.machine),
                  ElementsAre("failure degraded " + kind.partOfLink + " /link/device/width"))
          << kind.name;
    }
  }
}

TEST(Conformance, finds_a_link_that_is_down) {
  for (MachineKind& kind : kindsOfMachines()) {
    const Json before = inventoryOfMachine(*kind.machine);
    for (const std::string& folder : kind.endsOfLink) {
      kind.machine->has(folder + "/current_link_width", "0\n");
    }
    if (!kind.endsOfLink.empty()) {
      EXPECT_THAT(findingsAgainst(before, *kind.machine),
                  ElementsAre("failure degraded " + kind.partOfLink + " /link/device/width"))
          << kind.name;
    }
  }
}

TEST(Conformance, finds_a_cable_that_was_pulled) {
  MachineKind kind = serverOfTwoSockets();
  const Json before = inventoryOfMachine(*kind.machine);
  kind.machine->has("sys/class/net/ens1f0/carrier", "0\n")
      .has("sys/class/net/ens1f0/speed", "-1\n");
  const Json pulled = inventoryOfMachine(*kind.machine);
  EXPECT_THAT(
      findingsAgainst(before, *kind.machine),
      ElementsAre("failure degraded /interfaces/0000:16~104.0~1port0 /duplex /megabitsPerSecond"));
  kind.machine->has("sys/class/net/ens1f0/carrier", "1\n")
      .has("sys/class/net/ens1f0/speed", "100000\n");
  EXPECT_THAT(
      findingsAgainst(pulled, *kind.machine),
      ElementsAre("warning differs /interfaces/0000:16~104.0~1port0 /duplex /megabitsPerSecond"))
      << "it is back";
}

TEST(Conformance, finds_one_core_of_other_microcode) {
  for (MachineKind& kind : kindsOfMachines()) {
    const Json before = inventoryOfMachine(*kind.machine);
    giveLastThreadOtherMicrocode(*kind.machine);
    EXPECT_THAT(findingsAgainst(before, *kind.machine),
                ElementsAre("warning differs /processors /microcode"))
        << kind.name;
  }
}

TEST(Conformance, finds_one_disk_of_other_firmware) {
  for (MachineKind& kind : kindsOfMachines()) {
    if (!kind.firmwareOfDisk.empty()) {
      const Json before = inventoryOfMachine(*kind.machine);
      kind.machine->has(kind.firmwareOfDisk, "GDC5302Q\n");
      EXPECT_THAT(findingsAgainst(before, *kind.machine),
                  ElementsAre("warning differs " + kind.partOfDisk + " /firmware"))
          << kind.name;
    }
  }
}

TEST(Conformance, finds_an_interface_that_is_gone_with_its_device) {
  MachineKind kind = virtualMachine();
  const Json before = inventoryOfMachine(*kind.machine);
  kind.machine->lacks("sys/bus/pci/devices/0000:00:03.0").lacks("sys/class/net/ens3");
  EXPECT_THAT(findingsAgainst(before, *kind.machine),
              ElementsAre("failure missing /pci/0000:00~103.0 +/interfaces/0000:00~103.0~1port0"));
}

TEST(Conformance, finds_a_gpu_that_is_gone_with_all_its_functions) {
  MachineKind kind = serverOfGpus();
  const Json before = inventoryOfMachine(*kind.machine);
  kind.machine->lacks("sys/bus/pci/devices/0000:93:00.0").lacks("sys/bus/pci/devices/0000:93:00.1");
  const std::string place = "0000:90~102.0~100.0~100.0~100.";
  EXPECT_THAT(findingsAgainst(before, *kind.machine),
              ElementsAre("failure missing /pci/" + place + "0 +/gpus/" + place + "0 +/pci/" +
                          place + "1"));
}

TEST(Conformance, of_eight_machines_names_the_odd_one) {
  for (const MachineKind& kind : kindsOfMachines()) {
    std::vector<NamedInventory> fleet;
    const std::string sound = kind.machine->files().text("proc/cpuinfo").value_or("");
    for (int machine = 0; machine < 8; ++machine) {
      const std::string name = std::to_string(machine);
      kind.machine->has("sys/class/dmi/id/product_serial", "SN-" + name);
      kind.machine->has("proc/cpuinfo", sound);
      if (machine == 6) {
        giveLastThreadOtherMicrocode(*kind.machine);
      }
      fleet.push_back({name, inventoryOfMachine(*kind.machine)});
    }
    const Golden golden = goldenOf(fleet, Rules::shipped());
    const std::vector<OddMachine> odd = oddMachines(fleet, golden, Rules::shipped());
    ASSERT_THAT(odd, SizeIs(1)) << kind.name;
    EXPECT_EQ(odd[0].name, "6");
    EXPECT_THAT(linesOf(odd[0].findings), ElementsAre("warning differs /processors /microcode"));
  }
}

TEST(Conformance, of_any_machine_with_itself_finds_nothing) {
  for (unsigned int seed = 0; seed < 10; ++seed) {
    const std::unique_ptr<RecordedMachine> machine = machineAtRandom(seed);
    const Json inventory = inventoryOfMachine(*machine);
    EXPECT_EQ(inventory.dump(), inventoryOfMachine(*machineAtRandom(seed)).dump()) << seed;
    EXPECT_THAT(findingsAgainst(inventory, *machine), IsEmpty()) << seed;
    EXPECT_THAT(differencesOf(inventory, inventory), IsEmpty()) << seed;
  }
}

}  // namespace
}  // namespace TarvexDiags::Inventory
