#include "watch/Disks.h"

#include "inventory/Inventory.h"
#include "inventory/PciPath.h"

namespace TarvexDiags::Inventory {

namespace {

const std::filesystem::path kBlock = "sys/block";

/// By the way that the kernel took to the disk.
std::string transportOf(const std::string& name, const std::string& place) {
  struct Way {
    const char* part;
    const char* transport;
  };
  constexpr Way kWays[] = {{"/usb", "usb"},      {"/ata", "sata"},      {"/end_device-", "sas"},
                           {"/rport-", "fc"},    {"/session", "iscsi"}, {"/virtio", "virtio"},
                           {"/mmc_host", "mmc"}, {"/vmbus", "virtual"}};
  if (name.starts_with("nvme")) {
    return "nvme";
  }
  for (const Way& way : kWays) {
    if (place.find(way.part) != std::string::npos) {
      return way.transport;
    }
  }
  return place.find("/host") != std::string::npos ? "scsi" : "";
}

/// The unit serial number page of a SCSI disk: a header of four bytes before it (SPC-4, 7.8.15).
std::string unitSerialNumber(const SystemFiles& files, const std::string& name) {
  constexpr std::size_t kHeader = 4;
  const std::string page = files.text(kBlock / name / "device/vpd_pg80").value_or("");
  return page.size() > kHeader ? cleaned(std::string_view(page).substr(kHeader)) : "";
}

/// The steps of the way behind the controller: the port of a SATA controller, the place on a SAS
/// expander, then channel, target and unit; the name space of an NVMe disk. The number of the host
/// is left out, which goes by the order in which controllers are found.
std::string portOf(const std::string& name, const std::filesystem::path& place) {
  if (name.starts_with("nvme")) {
    const std::size_t space = name.rfind('n');
    return space > 0 ? "/" + name.substr(space) : "";
  }
  std::string port;
  std::filesystem::path above;
  for (const std::filesystem::path& step : place) {
    const std::string text = step.string();
    if (text.starts_with("ata") || text.starts_with("end_device-")) {
      port += "/" + text;
    } else if (above.string().starts_with("target") && text.find(':') != std::string::npos) {
      port += "/" + text.substr(text.find(':') + 1);
    }
    above = step;
  }
  return port;
}

Json factsOf(const SystemFiles& files, const Watching::Disk& disk, const std::string& place) {
  Json tree = {{"bytes", disk.bytes}, {"logicalBlockBytes", disk.logicalBlock}};
  tree["physicalBlockBytes"] = disk.physicalBlock;
  tree["isRotational"] = disk.rotational;
  addUnlessEmpty(tree, "name", disk.name);
  addUnlessEmpty(tree, "model", disk.model);
  if (disk.name.starts_with("sd")) {  // elsewhere it is the number of the bus's device
    addText(tree, "vendor", files, kBlock / disk.name / "device/vendor");
  }
  const std::string serial = unitSerialNumber(files, disk.name);
  addUnlessEmpty(tree, "serialNumber", serial.empty() ? disk.serial : serial);
  addUnlessEmpty(tree, "firmware", disk.firmware);
  addUnlessEmpty(tree, "transport", transportOf(disk.name, place));
  for (const std::string& entry : files.entries(kBlock / disk.name / "device")) {
    if (entry.starts_with("enclosure_device:")) {
      addUnlessEmpty(tree, "slot", entry.substr(entry.find(':') + 1));
    }
  }
  return tree;
}

}  // namespace

Json diskFacts(const SystemFiles& files) {
  Json tree = Json::object();
  for (const Watching::Disk& disk :
       Watching::findDisks(files.absolute("sys"), Watching::VirtualDisks::AsTheirBus)) {
    if (disk.removable) {
      continue;  // a stick that somebody put in is no part of the machine
    }
    const std::filesystem::path place = files.resolved(kBlock / disk.name);
    const std::string path = pciPathOf(place);
    const std::string key = path.empty() ? disk.name : path + portOf(disk.name, place);
    tree[keyFor(tree, key)] = factsOf(files, disk, place.string());
  }
  return tree;
}

}  // namespace TarvexDiags::Inventory
