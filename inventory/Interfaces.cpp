#include "inventory/Inventory.h"
#include "inventory/PciPath.h"

namespace TarvexDiags::Inventory {

namespace {

const std::filesystem::path kInterfaces = "sys/class/net";
constexpr std::uint64_t kIsUp = 1;  // IFF_UP

/// The address that the maker gave: one that was set by hand or drawn changes.
void addMaker(Json& tree, const SystemFiles& files, const std::filesystem::path& folder) {
  if (files.number(folder / "addr_assign_type") == 0U) {
    addText(tree, "macAddress", files, folder / "address");
  }
}

/// Of an interface that nobody uses they change with whatever is plugged in: one that is down, or
/// up and without a cable.
void addLink(Json& tree, const SystemFiles& files, const std::filesystem::path& folder) {
  if ((files.hexadecimal(folder / "flags").value_or(0) & kIsUp) == 0 ||
      files.number(folder / "carrier") == 0U) {
    return;
  }
  // The kernel writes -1, or refuses, where the driver does not know.
  const auto megabits = files.number(folder / "speed");
  const bool hasSpeed = megabits && *megabits != UINT32_MAX;
  tree["megabitsPerSecond"] = hasSpeed ? Json(*megabits) : Json(kUnknown);
  addText(tree, "duplex", files, folder / "duplex");
}

Json factsOf(const SystemFiles& files, const std::string& name, const AskDriver& ask) {
  const std::filesystem::path folder = kInterfaces / name;
  Json tree = Json::object();
  addUnlessEmpty(tree, "name", name);
  addUnlessEmpty(tree, "driver", files.resolved(folder / "device/driver").filename().string());
  addMaker(tree, files, folder);
  addNumber(tree, "mtu", files, folder / "mtu");
  addText(tree, "portName", files, folder / "phys_port_name");
  addLink(tree, files, folder);
  if (ask) {
    const DriverFacts driver = ask(name);
    addUnlessEmpty(tree, "firmware", driver.firmware);
    addUnlessEmpty(tree, "port", driver.port);
  }
  return tree;
}

/// Several interfaces of one function are told apart by the number of their port.
std::string placeOf(const SystemFiles& files, const std::string& name) {
  const std::string path = pciPathOf(files.resolved(kInterfaces / name));
  const std::string port = files.word(kInterfaces / name / "dev_port");
  return path.empty() ? name : path + "/port" + (port.empty() ? "0" : port);
}

}  // namespace

Json interfaceFacts(const SystemFiles& files, const AskDriver& ask) {
  Json tree = Json::object();
  for (const std::string& name : files.entries(kInterfaces)) {
    if (files.exists(kInterfaces / name / "device")) {
      tree[keyFor(tree, placeOf(files, name))] = factsOf(files, name, ask);
    }
  }
  return tree;
}

}  // namespace TarvexDiags::Inventory
