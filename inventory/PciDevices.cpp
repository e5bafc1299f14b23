#include <algorithm>
#include <charconv>
#include <map>
#include <string_view>
#include <system_error>

#include "inventory/Inventory.h"
#include "inventory/PciPath.h"

namespace TarvexDiags::Inventory {

namespace {

const std::filesystem::path kDevices = "sys/bus/pci/devices";
const std::filesystem::path kSlots = "sys/bus/pci/slots";

/// In gigatransfers a second, of "8.0 GT/s PCIe"; kUnknown for what the kernel calls that, too.
void addSpeed(Json& tree, const char* key, const SystemFiles& files,
              const std::filesystem::path& file) {
  const std::string word = files.word(file);
  if (word.empty()) {
    return;
  }
  double speed = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), speed);
  tree[key] = error == std::errc() ? Json(speed) : Json(kUnknown);
}

/// A link that is down has the width 0, and a port without one 255.
void addWidth(Json& tree, const char* key, const SystemFiles& files,
              const std::filesystem::path& file) {
  constexpr std::uint64_t kWidest = 32;
  if (const auto lanes = files.number(file)) {
    tree[key] = *lanes <= kWidest ? Json(*lanes) : Json(kUnknown);
  }
}

Json linkEnd(const SystemFiles& files, const std::filesystem::path& device) {
  Json end = Json::object();
  addSpeed(end, "speed", files, device / "current_link_speed");
  addSpeed(end, "maximumSpeed", files, device / "max_link_speed");
  addWidth(end, "width", files, device / "current_link_width");
  addWidth(end, "maximumWidth", files, device / "max_link_width");
  return end;
}

/// Whether a device is the lower end of a link. A switch is a port that faces the root, and below
/// it ports that face devices, without a link between them: every other bridge on the way is such.
bool isBelowLink(const std::filesystem::path& device) {
  const std::string path = pciPathOf(device);
  return std::count(path.begin(), path.end(), '/') % 2 == 0;
}

/// The link above a device: its own end, and that of the bridge on which it hangs.
Json linkOf(const SystemFiles& files, const std::filesystem::path& device) {
  Json link = Json::object();
  addTree(link, "device", linkEnd(files, device));
  const std::filesystem::path bridge = device.parent_path();
  if (!link.empty() && isBelowLink(device) && files.exists(bridge / "vendor")) {
    addTree(link, "port", linkEnd(files, bridge));
  }
  return link;
}

void addNode(Json& tree, const SystemFiles& files, const std::filesystem::path& device) {
  // The kernel writes -1 where firmware does not tell; that is no number of SystemFiles.
  if (const auto node = files.number(device / "numa_node")) {
    tree["node"] = *node;
  }
}

void addDriver(Json& tree, const SystemFiles& files, const std::filesystem::path& device) {
  addUnlessEmpty(tree, "driver", files.resolved(device / "driver").filename().string());
}

Json factsOf(const SystemFiles& files, const std::filesystem::path& device,
             const std::map<std::string, std::string>& slots) {
  Json tree = Json::object();
  addText(tree, "vendor", files, device / "vendor");
  addText(tree, "device", files, device / "device");
  addText(tree, "subsystemVendor", files, device / "subsystem_vendor");
  addText(tree, "subsystemDevice", files, device / "subsystem_device");
  addText(tree, "class", files, device / "class");
  addText(tree, "revision", files, device / "revision");
  addText(tree, "label", files, device / "label");
  addDriver(tree, files, device);
  addNode(tree, files, device);
  addTree(tree, "link", linkOf(files, device));
  const std::string address = device.filename().string();
  if (const auto slot = slots.find(address.substr(0, address.rfind('.'))); slot != slots.end()) {
    addUnlessEmpty(tree, "slot", slot->second);
  }
  return tree;
}

}  // namespace

std::map<std::string, std::string> slotsByAddress(const SystemFiles& files) {
  std::map<std::string, std::string> slots;
  for (const std::string& name : files.entries(kSlots)) {
    if (const std::string address = files.word(kSlots / name / "address"); !address.empty()) {
      slots.emplace(address, name);
    }
  }
  return slots;
}

Json pciFacts(const SystemFiles& files) {
  const std::map<std::string, std::string> slots = slotsByAddress(files);
  Json tree = Json::object();
  for (const std::string& address : files.entries(kDevices)) {
    const std::filesystem::path device = files.resolved(kDevices / address);
    if (const std::string path = pciPathOf(device); !path.empty()) {
      tree[keyFor(tree, path)] = factsOf(files, device, slots);
    }
  }
  return tree;
}

}  // namespace TarvexDiags::Inventory
