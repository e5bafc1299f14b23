#include <map>
#include <sstream>

#include "inventory/Inventory.h"
#include "inventory/PciPath.h"

namespace TarvexDiags::Inventory {

namespace {

const std::filesystem::path kPciDevices = "sys/bus/pci/devices";
const std::filesystem::path kAdapters = "sys/class/infiniband";

// Base classes and subclasses of the PCI code and ID assignment specification.
constexpr std::uint64_t kDisplay = 0x03;
constexpr std::uint64_t kAccelerator = 0x12;

bool isGpu(const SystemFiles& files, const std::string& address) {
  const std::uint64_t base = files.hexadecimal(kPciDevices / address / "class").value_or(0) >> 16U;
  return base == kDisplay || base == kAccelerator;
}

/// The rows "Model:  ..." of what the driver nvidia tells of a device.
std::map<std::string, std::string> rowsOfDriver(const SystemFiles& files,
                                                const std::string& address) {
  const std::filesystem::path file =
      std::filesystem::path("proc/driver/nvidia/gpus") / address / "information";
  std::istringstream text(files.text(file).value_or(""));
  std::map<std::string, std::string> rows;
  for (std::string line; std::getline(text, line);) {
    if (const std::size_t colon = line.find(':'); colon != std::string::npos) {
      rows[cleaned(line.substr(0, colon))] = cleaned(line.substr(colon + 1));
    }
  }
  return rows;
}

Json gpuOf(const SystemFiles& files, const std::string& address) {
  const std::filesystem::path device = kPciDevices / address;
  Json tree = Json::object();
  addUnlessEmpty(tree, "driver", files.resolved(device / "driver").filename().string());
  addText(tree, "vendor", files, device / "vendor");
  addText(tree, "device", files, device / "device");
  addText(tree, "model", files, device / "product_name");
  addText(tree, "partNumber", files, device / "product_number");
  addText(tree, "serialNumber", files, device / "serial_number");
  addText(tree, "uniqueId", files, device / "unique_id");
  addText(tree, "firmware", files, device / "vbios_version");
  addNumber(tree, "memoryBytes", files, device / "mem_info_vram_total");
  std::map<std::string, std::string> rows = rowsOfDriver(files, address);
  addUnlessEmpty(tree, "model", rows["Model"]);
  addUnlessEmpty(tree, "uuid", rows["GPU UUID"]);
  addUnlessEmpty(tree, "firmware", rows["Video BIOS"]);
  return tree;
}

Json portOf(const SystemFiles& files, const std::filesystem::path& folder) {
  Json tree = Json::object();
  addText(tree, "linkLayer", files, folder / "link_layer");
  addText(tree, "state", files, folder / "state");
  addText(tree, "rate", files, folder / "rate");
  return tree;
}

Json adapterOf(const SystemFiles& files, const std::string& name) {
  const std::filesystem::path folder = kAdapters / name;
  Json tree = Json::object();
  addUnlessEmpty(tree, "name", name);
  addText(tree, "firmware", files, folder / "fw_ver");
  addText(tree, "board", files, folder / "board_id");
  addText(tree, "model", files, folder / "hca_type");
  addText(tree, "nodeGuid", files, folder / "node_guid");
  for (const int port : files.numberedEntries(folder / "ports", "")) {
    tree["ports"][std::to_string(port)] = portOf(files, folder / "ports" / std::to_string(port));
  }
  return tree;
}

}  // namespace

Json gpuFacts(const SystemFiles& files) {
  Json tree = Json::object();
  for (const std::string& address : files.entries(kPciDevices)) {
    if (isGpu(files, address)) {
      const std::string path = pciPathOf(files.resolved(kPciDevices / address));
      tree[keyFor(tree, path.empty() ? address : path)] = gpuOf(files, address);
    }
  }
  return tree;
}

Json infinibandFacts(const SystemFiles& files) {
  Json tree = Json::object();
  for (const std::string& name : files.entries(kAdapters)) {
    const std::string path = pciPathOf(files.resolved(kAdapters / name));
    tree[keyFor(tree, path.empty() ? name : path)] = adapterOf(files, name);
  }
  return tree;
}

Json tpmFacts(const SystemFiles& files) {
  const std::filesystem::path folder = "sys/class/tpm";
  Json tree = Json::object();
  for (const int number : files.numberedEntries(folder, "tpm")) {
    const std::string name = "tpm" + std::to_string(number);
    Json tpm = Json::object();
    addNumber(tpm, "version", files, folder / name / "tpm_version_major");
    addText(tpm, "description", files, folder / name / "device/description");
    tree[name] = std::move(tpm);
  }
  return tree;
}

}  // namespace TarvexDiags::Inventory
