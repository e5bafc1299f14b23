#include "tests/inventory/RecordedMachine.h"

namespace TarvexDiags::Inventory {

namespace {

namespace fs = std::filesystem;

std::string littleEndian(std::uint64_t value, int bytes) {
  std::string text;
  for (int index = 0; index < bytes; ++index) {
    text += static_cast<char>(value >> (8 * index));
  }
  return text;
}

std::string folderOf(const std::string& root, const std::string& way) {
  return "sys/devices/pci" + root + "/" + way;
}

}  // namespace

std::string dmiStructure(std::uint8_t type, const std::string& body,
                         const std::vector<std::string>& strings) {
  constexpr int kHeader = 4;
  std::string bytes = littleEndian(type, 1);
  bytes += littleEndian(body.size() + kHeader, 1) + littleEndian(0x1100, 2) + body;
  for (const std::string& text : strings) {
    bytes += text + '\0';
  }
  bytes += strings.empty() ? std::string(2, '\0') : std::string(1, '\0');
  return bytes;
}

std::string dmiModule(const ModuleRecord& module) {
  std::string body(0x5C - 4, '\0');
  const auto put = [&](std::size_t offset, std::uint64_t value, int bytes) {
    body.replace(offset - 4, static_cast<std::size_t>(bytes), littleEndian(value, bytes));
  };
  put(0x0C, module.megabytes, 2);
  put(0x10, 1, 1);
  put(0x11, 2, 1);
  put(0x12, 0x22, 1);
  put(0x15, module.ratedSpeed, 2);
  put(0x17, 3, 1);
  put(0x18, 4, 1);
  put(0x1A, 5, 1);
  put(0x0F, module.set, 1);
  put(0x20, module.configuredSpeed == 0 ? module.ratedSpeed : module.configuredSpeed, 2);
  return dmiStructure(
      17, body, {module.locator, module.bank, "Maker of Modules", module.serial, "M321R2GA3BB6"});
}

std::string dmiEnd() {
  return dmiStructure(127, "", {});
}

RecordedMachine& RecordedMachine::links(const std::string& place, const std::string& target) {
  const fs::path path = fs::path(this->path()) / place;
  fs::create_directories(path.parent_path());
  fs::create_directories((fs::path(this->path()) / target).parent_path());
  fs::create_symlink(fs::path(this->path()) / target, path);
  return *this;
}

RecordedMachine& RecordedMachine::lacks(const std::string& path) {
  fs::remove_all(fs::path(this->path()) / path);
  return *this;
}

RecordedMachine& RecordedMachine::processors(int sockets, int count, const std::string& microcode) {
  m_cpuinfo.clear();
  for (int number = 0; number < count; ++number) {
    thread(number, microcode, "fpu sse2 avx2");
    const std::string folder = "sys/devices/system/cpu/cpu" + std::to_string(number) + "/";
    has(folder + "topology/physical_package_id", std::to_string(number * sockets / count) + "\n");
    has(folder + "topology/core_id", std::to_string(number) + "\n");
    has(folder + "topology/die_id", "0\n");
    has(folder + "cpufreq/scaling_governor", "performance\n");
    has(folder + "cpufreq/cpuinfo_max_freq", "3800000\n");
  }
  has("sys/devices/system/cpu/online", "0-" + std::to_string(count - 1) + "\n");
  has("sys/devices/system/cpu/smt/control", "off\n");
  has("sys/devices/system/cpu/vulnerabilities/meltdown", "Not affected\n");
  return *this;
}

RecordedMachine& RecordedMachine::thread(int number, const std::string& microcode,
                                         const std::string& flags, const std::string& megahertz) {
  m_cpuinfo += "processor\t: " + std::to_string(number) +
               "\nmodel name\t: Processor of 32 Cores\nstepping\t: 6\nmicrocode\t: " + microcode +
               "\ncpu MHz\t\t: " + megahertz + "\nflags\t\t: " + flags + "\n\n";
  has("proc/cpuinfo", m_cpuinfo);
  return *this;
}

RecordedMachine& RecordedMachine::modules(const std::vector<ModuleRecord>& modules) {
  std::string table;
  for (const ModuleRecord& module : modules) {
    table += dmiModule(module);
  }
  has("sys/firmware/dmi/tables/DMI", table + dmiEnd());
  return *this;
}

RecordedMachine& RecordedMachine::node(int number, std::uint64_t kilobytes, const std::string& cpus,
                                       const std::string& distances) {
  const std::string name = std::to_string(number);
  const std::string folder = "sys/devices/system/node/node" + name + "/";
  has(folder + "meminfo", "Node " + name + " MemTotal:       " + std::to_string(kilobytes) +
                              " kB\nNode " + name + " MemFree:        1000 kB\n");
  has(folder + "cpulist", cpus + "\n");
  has(folder + "distance", distances + "\n");
  return *this;
}

RecordedMachine& RecordedMachine::endOfLink(const std::string& folder, const LinkRecord& link) {
  has(folder + "/current_link_speed", link.speed + "\n");
  has(folder + "/max_link_speed", "16.0 GT/s PCIe\n");
  has(folder + "/current_link_width", std::to_string(link.width) + "\n");
  has(folder + "/max_link_width", "16\n");
  return *this;
}

RecordedMachine& RecordedMachine::device(const std::string& root, const std::string& way,
                                         const std::string& classCode, const std::string& driver,
                                         const LinkRecord& link) {
  const std::string folder = folderOf(root, way);
  const std::string address = fs::path(way).filename().string();
  has(folder + "/vendor", "0x8086\n").has(folder + "/device", "0x1234\n");
  has(folder + "/class", classCode + "\n").has(folder + "/numa_node", "-1\n");
  endOfLink(folder, link);
  links("sys/bus/pci/devices/" + address, folder);
  if (!driver.empty()) {
    has("sys/bus/pci/drivers/" + driver + "/module", "");
    links(folder + "/driver", "sys/bus/pci/drivers/" + driver);
  }
  return *this;
}

RecordedMachine& RecordedMachine::nvme(int number, const std::string& root, const std::string& way,
                                       const std::string& serial, const std::string& firmware) {
  device(root, way, "0x010802", "nvme");
  const std::string controller = "nvme" + std::to_string(number);
  const std::string disk = controller + "n1";
  const std::string folder = folderOf(root, way) + "/nvme/" + controller;
  has(folder + "/model", "Disk of 4 TB\n").has(folder + "/serial", serial + "\n");
  has(folder + "/firmware_rev", firmware + "\n");
  has(folder + "/" + disk + "/size", "7501476528\n");
  links(folder + "/" + disk + "/device", folder);
  return links("sys/block/" + disk, folder + "/" + disk);
}

RecordedMachine& RecordedMachine::interface(const std::string& name, const std::string& root,
                                            const std::string& way, const std::string& address,
                                            int megabits) {
  device(root, way, "0x020000", "mlx5_core");
  const std::string folder = folderOf(root, way) + "/net/" + name;
  has(folder + "/address", address + "\n").has(folder + "/addr_assign_type", "0\n");
  has(folder + "/flags", megabits < 0 ? "0x1002\n" : "0x1003\n").has(folder + "/mtu", "9000\n");
  has(folder + "/speed", std::to_string(megabits) + "\n").has(folder + "/duplex", "full\n");
  has(folder + "/dev_port", "0\n");
  links(folder + "/device", folderOf(root, way));
  return links("sys/class/net/" + name, folder);
}

RecordedMachine& RecordedMachine::standsAs(const std::string& vendor, const std::string& product) {
  const std::string folder = "sys/class/dmi/id/";
  has(folder + "sys_vendor", vendor + "\n").has(folder + "product_name", product + "\n");
  has(folder + "product_serial", "SN-4711-0815\n").has(folder + "bios_version", "2.1.7\n");
  has("proc/sys/kernel/hostname", "node017\n").has("proc/sys/kernel/osrelease", "6.1.0-28\n");
  has("proc/sys/kernel/tainted", "0\n");
  has("proc/meminfo", "MemTotal:       263840000 kB\nMemFree:          123456 kB\n");
  return *this;
}

}  // namespace TarvexDiags::Inventory
