#include <iterator>

#include "inventory/Inventory.h"
#include "watch/FirmwareFiles.h"

namespace TarvexDiags::Inventory {

namespace {

struct DmiFact {
  const char* key;
  const char* file;
};

constexpr DmiFact kOfMachine[] = {
    {"vendor", "sys_vendor"},     {"product", "product_name"}, {"version", "product_version"},
    {"family", "product_family"}, {"sku", "product_sku"},      {"serialNumber", "product_serial"},
    {"uuid", "product_uuid"},
};
constexpr DmiFact kOfBoard[] = {
    {"vendor", "board_vendor"},
    {"product", "board_name"},
    {"version", "board_version"},
    {"serialNumber", "board_serial"},
};
constexpr DmiFact kOfChassis[] = {
    {"vendor", "chassis_vendor"},
    {"type", "chassis_type"},
    {"serialNumber", "chassis_serial"},
};
constexpr DmiFact kOfFirmware[] = {
    {"vendor", "bios_vendor"},
    {"version", "bios_version"},
    {"date", "bios_date"},
    {"release", "bios_release"},
};

template <class Facts>
Json factsOf(const SystemFiles& files, const Facts& facts) {
  Json tree = Json::object();
  for (const DmiFact& fact : facts) {
    addText(tree, fact.key, files, Watching::firmwareFile(fact.file));
  }
  return tree;
}

Json managementController(const SystemFiles& files) {
  const std::filesystem::path folder = "sys/bus/platform/devices";
  Json controller = Json::object();
  for (const std::string& name : files.entries(folder)) {
    if (name.starts_with("ipmi_bmc.")) {
      addText(controller, "firmware", files, folder / name / "firmware_revision");
      addText(controller, "manufacturer", files, folder / name / "manufacturer_id");
      addText(controller, "product", files, folder / name / "product_id");
      addText(controller, "uuid", files, folder / name / "guid");
      break;
    }
  }
  return controller;
}

}  // namespace

Json systemFacts(const SystemFiles& files) {
  Json system = factsOf(files, kOfMachine);
  addText(system, "hostName", files, "proc/sys/kernel/hostname");
  addText(system, "deviceTreeModel", files, "sys/firmware/devicetree/base/model");
  addTree(system, "board", factsOf(files, kOfBoard));
  addTree(system, "chassis", factsOf(files, kOfChassis));
  addTree(system, "firmware", factsOf(files, kOfFirmware));
  addTree(system, "managementController", managementController(files));
  return system;
}

}  // namespace TarvexDiags::Inventory
