#include "tests/inventory/MachineKinds.h"

#include <random>

namespace TarvexDiags::Inventory {

namespace {

std::vector<ModuleRecord> modulesNamed(const std::string& head, int count) {
  std::vector<ModuleRecord> modules;
  for (int number = 0; number < count; ++number) {
    modules.push_back({.locator = head + std::to_string(number + 1),
                       .serial = "80AD" + head + std::to_string(number)});
  }
  return modules;
}

std::string pciFolder(const std::string& root, const std::string& way) {
  return "sys/devices/pci" + root + "/" + way;
}

/// A root port with a disk behind it: the disk and the link are what a test spoils.
void addDisk(MachineKind& kind, const std::string& root) {
  const std::string port = root + ":02.0";
  const std::string way = port + "/0000:17:00.0";
  kind.machine->device(root, port, "0x060400", "pcieport");
  kind.machine->nvme(0, root, way, "S5XANA0R1", "GDC5602Q");
  kind.endsOfLink = {pciFolder(root, port), pciFolder(root, way)};
  kind.partOfLink = "/pci/" + root + "~102.0~100.0";
  kind.firmwareOfDisk = pciFolder(root, way) + "/nvme/nvme0/firmware_rev";
  kind.partOfDisk = "/disks/" + root + "~102.0~100.0~1n1";
}

void addThreads(RecordedMachine& machine, int cores) {
  for (int number = 0; number < 2 * cores; ++number) {
    machine.has("sys/devices/system/cpu/cpu" + std::to_string(number) + "/topology/core_id",
                std::to_string(number % cores) + "\n");
  }
  machine.has("sys/devices/system/cpu/smt/control", "on\n");
}

/// A switch with a GPU of two functions below it.
void addGpu(MachineKind& kind, const std::string& root) {
  const std::string bus = root.substr(0, root.size() - 1);
  const std::string port = root + ":02.0";
  const std::string upper = port + "/" + bus + "1:00.0";
  const std::string lower = upper + "/" + bus + "2:00.0";
  const std::string gpu = bus + "3:00";
  RecordedMachine& machine = *kind.machine;
  for (const std::string& bridge : {port, upper, lower}) {
    machine.device(root, bridge, "0x060400", "pcieport");
  }
  machine.device(root, lower + "/" + gpu + ".0", "0x030200", "nvidia");
  machine.device(root, lower + "/" + gpu + ".1", "0x040300", "snd_hda_intel");
  machine.has("proc/driver/nvidia/gpus/" + gpu + ".0/information",
              "Model: \t\t Accelerator of 80 GB\nGPU UUID: \t GPU-12\nVideo BIOS: \t 96.00\n");
  kind.endsOfLink = {pciFolder(root, lower), pciFolder(root, lower + "/" + gpu + ".0"),
                     pciFolder(root, lower + "/" + gpu + ".1")};
  kind.partOfLink = "/pci/" + root + "~102.0~100.0~100.0~100.0";
}

void addAdapter(RecordedMachine& machine, const std::string& root) {
  const std::string way = root + ":04.0/0000:51:00.0";
  machine.device(root, root + ":04.0", "0x060400", "pcieport");
  machine.interface("ibs1", root, way, "a0:88:c2:01:02:03", 200000);
  const std::string adapter = pciFolder(root, way) + "/infiniband/mlx5_0";
  machine.has(adapter + "/fw_ver", "20.35.2000\n").has(adapter + "/board_id", "MT_0000000223\n");
  machine.has(adapter + "/node_guid", "0c42:a103:006f:d2e8\n");
  machine.has(adapter + "/ports/1/rate", "200 Gb/sec (4X HDR)\n");
  machine.has(adapter + "/ports/1/state", "4: ACTIVE\n");
  machine.links("sys/class/infiniband/mlx5_0", adapter);
}

}  // namespace

MachineKind serverOfTwoSockets() {
  MachineKind kind;
  kind.name = "server of two sockets";
  kind.machine->standsAs("Maker of Servers", "Server of Two Sockets").processors(2, 16);
  addThreads(*kind.machine, 8);
  kind.modules = modulesNamed("DIMM_", 16);
  kind.machine->modules(kind.modules).node(0, 131'000'000, "0-7", "10 21");
  kind.machine->node(1, 132'000'000, "8-15", "21 10");
  addDisk(kind, "0000:16");
  kind.machine->interface("ens1f0", "0000:16", "0000:16:04.0", "a0:88:c2:01:02:03", 100000);
  return kind;
}

MachineKind serverWithoutSmt() {
  MachineKind kind;
  kind.name = "server without SMT";
  kind.machine->standsAs("Maker of Servers", "Server of One Socket").processors(1, 8);
  kind.modules = modulesNamed("A", 8);
  kind.machine->modules(kind.modules).node(0, 131'000'000, "0-7", "10");
  addDisk(kind, "0000:c0");
  return kind;
}

MachineKind serverOfGpus() {
  MachineKind kind;
  kind.name = "server of GPUs";
  kind.machine->standsAs("Maker of Accelerators", "Eight of Them").processors(2, 8);
  kind.modules = modulesNamed("P", 4);
  kind.machine->modules(kind.modules).node(0, 264'000'000, "0-7", "10");
  addDisk(kind, "0000:16");
  addAdapter(*kind.machine, "0000:50");
  for (const char* const root : {"0000:60", "0000:70", "0000:80", "0000:90"}) {
    addGpu(kind, root);
  }
  return kind;
}

MachineKind laptop() {
  MachineKind kind;
  kind.name = "laptop";
  kind.machine->standsAs("Maker of Laptops", "Light One").processors(1, 4);
  kind.modules = modulesNamed("ChannelA-DIMM", 2);
  kind.machine->modules(kind.modules);
  addDisk(kind, "0000:00");
  kind.machine->interface("wlp1s0", "0000:00", "0000:00:1c.0/0000:03:00.0", "a0:88:c2:01:02:03",
                          -1);
  kind.machine->has("sys/class/tpm/tpm0/tpm_version_major", "2\n");
  return kind;
}

MachineKind virtualMachine() {
  MachineKind kind;
  kind.name = "virtual machine";
  kind.machine->standsAs("Maker of Clouds", "Machine").processors(1, 2, "0x1");
  kind.machine->interface("ens3", "0000:00", "0000:00:03.0", "52:54:00:12:34:56", -1);
  const std::string way = pciFolder("0000:00", "0000:00:04.0/virtio1/block/vda");
  kind.machine->device("0000:00", "0000:00:04.0", "0x010000", "virtio-pci");
  kind.machine->has(way + "/size", "20000000\n").has(way + "/serial", "root\n");
  kind.machine->links("sys/block/vda", way);
  for (const char* const device : {"0000:00:03.0", "0000:00:04.0"}) {
    for (const char* const file :
         {"current_link_speed", "max_link_speed", "current_link_width", "max_link_width"}) {
      kind.machine->lacks(pciFolder("0000:00", device) + "/" + file);
    }
  }
  return kind;
}

std::vector<MachineKind> kindsOfMachines() {
  std::vector<MachineKind> kinds;
  kinds.push_back(serverOfTwoSockets());
  kinds.push_back(serverWithoutSmt());
  kinds.push_back(serverOfGpus());
  kinds.push_back(laptop());
  kinds.push_back(virtualMachine());
  return kinds;
}

std::unique_ptr<RecordedMachine> machineAtRandom(unsigned int seed) {
  std::minstd_rand engine(seed + 1);
  const auto upTo = [&engine](int most) {
    return static_cast<int>(engine() % static_cast<unsigned int>(most + 1));
  };
  auto machine = std::make_unique<RecordedMachine>();
  machine->standsAs("Maker " + std::to_string(upTo(3)), "unknown");
  const int sockets = upTo(3) + 1;
  machine->processors(sockets, sockets * (upTo(3) + 1));
  std::vector<ModuleRecord> modules;
  for (int number = upTo(20); number > 0; --number) {
    const std::uint16_t sizes[] = {0, 1024, 16384, 0xFFFF};
    modules.push_back({.locator = upTo(3) == 0 ? "" : "D" + std::to_string(upTo(9)),
                       .megabytes = sizes[upTo(3)],
                       .serial = upTo(2) == 0 ? "unknown" : std::to_string(upTo(99))});
  }
  machine->modules(modules);
  for (int root = upTo(5); root > 0; --root) {
    const std::string name = "0000:" + std::to_string(root * 10);
    const std::string speed = upTo(3) == 0 ? "Unknown" : "8.0 GT/s PCIe";
    std::string way = name + ":00.0";
    for (int depth = upTo(4); depth > 0; --depth) {
      machine->device(name, way, "0x060400", "pcieport", {speed, upTo(16)});
      way += "/0000:" + std::to_string(root * 10 + depth) + ":0" + std::to_string(depth) + ".0";
    }
    if (upTo(1) == 0) {
      machine->nvme(root, name, way, std::to_string(upTo(99)), "F1");
    } else {
      machine->interface("eth" + std::to_string(root), name, way, "a0:88:c2:01:02:03",
                         upTo(1) * 10000 - 1);
    }
  }
  return machine;
}

}  // namespace TarvexDiags::Inventory
