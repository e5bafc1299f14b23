#include <algorithm>
#include <set>

#include "inventory/Inventory.h"
#include "inventory/PciPath.h"
#include "watch/NodeFiles.h"

namespace TarvexDiags::Inventory {

namespace {

constexpr const char* kTable = "sys/firmware/dmi/tables/DMI";

Json toJson(const MemoryModule& module) {
  Json tree = Json::object();
  addUnlessEmpty(tree, "bank", module.bank);
  if (!module.isPopulated) {
    tree["populated"] = kUnknown;
    return tree;
  }
  tree["populated"] = *module.isPopulated;
  if (!*module.isPopulated) {
    return tree;
  }
  tree["bytes"] = module.bytes;
  for (const auto& [key, speed] : {std::pair("ratedMegatransfers", module.ratedSpeed),
                                   std::pair("configuredMegatransfers", module.configuredSpeed)}) {
    tree[key] = speed != 0 ? Json(speed) : Json(kUnknown);
  }
  addUnlessEmpty(tree, "technology", module.technology);
  addUnlessEmpty(tree, "manufacturer", module.maker);
  addUnlessEmpty(tree, "partNumber", module.part);
  addUnlessEmpty(tree, "serialNumber", module.serial);
  return tree;
}

/// Whether firmware repeats locators, as for each processor. The bank tells them apart then, of all
/// places alike: when one of them goes missing, the others keep their names.
bool doLocatorsRepeat(const std::vector<MemoryModule>& modules) {
  std::set<std::string> locators;
  return std::any_of(modules.begin(), modules.end(), [&](const MemoryModule& module) {
    return !module.locator.empty() && !locators.insert(module.locator).second;
  });
}

/// By their locators; kUnknown when firmware's table is not for this process.
Json modulesOf(const SystemFiles& files) {
  const ModuleTable table = readModules(files);
  if (table.isWithheld) {
    return kUnknown;
  }
  Json modules = Json::object();
  const bool needBanks = doLocatorsRepeat(table.modules);
  for (const MemoryModule& module : table.modules) {
    std::string place = module.locator.empty() ? "module" : module.locator;
    if (needBanks && !module.bank.empty()) {
      place += " " + module.bank;
    }
    modules[keyFor(modules, place)] = toJson(module);
  }
  return modules;
}

/// What firmware tells of the way from the nearest processors to a node's memory (HMAT).
Json attributesOf(const SystemFiles& files, const std::filesystem::path& node) {
  const std::filesystem::path folder = node / "access0/initiators";
  Json tree = Json::object();
  addNumber(tree, "readMegabytesPerSecond", files, folder / "read_bandwidth");
  addNumber(tree, "writeMegabytesPerSecond", files, folder / "write_bandwidth");
  addNumber(tree, "readNanoseconds", files, folder / "read_latency");
  addNumber(tree, "writeNanoseconds", files, folder / "write_latency");
  return tree;
}

Json nodesOf(const SystemFiles& files) {
  Json nodes = Json::object();
  for (const int number : files.numberedEntries(Watching::kNodesFolder, "node")) {
    const std::filesystem::path folder = Watching::folderOfNode(number);
    Json node = Json::object();
    if (const auto bytes =
            Watching::bytesOfRow(files.text(folder / "meminfo").value_or(""), "MemTotal")) {
      node["bytes"] = *bytes;
    }
    addText(node, "processors", files, folder / "cpulist");
    addText(node, "distances", files, folder / "distance");
    addTree(node, "nearest", attributesOf(files, folder));
    nodes[std::to_string(number)] = std::move(node);
  }
  return nodes;
}

}  // namespace

ModuleTable readModules(const SystemFiles& files) {
  const auto table = files.text(kTable);
  if (!table) {
    return {isWithheld(files, kTable), {}};
  }
  return {false, memoryModules(parseDmiTable(*table))};
}

Json memoryFacts(const SystemFiles& files) {
  Json tree = Json::object();
  if (const auto bytes =
          Watching::bytesOfRow(files.text("proc/meminfo").value_or(""), "MemTotal")) {
    tree["bytes"] = *bytes;
  }
  addTree(tree, "modules", modulesOf(files));
  addTree(tree, "nodes", nodesOf(files));
  return tree;
}

}  // namespace TarvexDiags::Inventory
