#include "inventory/Parts.h"

#include <utility>

#include "inventory/PciPath.h"

namespace TarvexDiags::Inventory {

namespace {

/// Empty for what is absent or unknown.
std::string factOf(const Json& facts, const char* key) {
  const auto found = facts.find(key);
  const bool isTold = found != facts.end() && found->is_string() && *found != kUnknown;
  return isTold ? found->get<std::string>() : std::string();
}

/// The part of a tree below a key; empty for none.
Json below(const Json& facts, const char* key) {
  const auto found = facts.find(key);
  return found != facts.end() && found->is_object() ? *found : Json::object();
}

std::string named(const std::string& kind, const std::string& name) {
  return name.empty() ? kind : kind + " " + name;
}

class PartFinder {
 public:
  PartFinder(const SystemFiles& files, const AskDriver& ask)
      : m_files(files), m_ask(ask), m_slots(slotsByAddress(files)) {}

  std::vector<Part> find() {
    addMachine();
    addProcessors();
    addModules();
    addDevices("disk", "Disk", diskFacts(m_files), "sys/block");
    addDevices("interface", "Interface", interfaceFacts(m_files, m_ask), "sys/class/net");
    addDevices("adapter", "Adapter", infinibandFacts(m_files), "sys/class/infiniband");
    addAccelerators();
    return std::move(m_parts);
  }

 private:
  void addMachine() {
    const Json system = systemFacts(m_files);
    add({.id = "part-system",
         .name = named("System", factOf(system, "product")),
         .device = "",
         .location = "",
         .manufacturer = factOf(system, "vendor"),
         .partNumber = factOf(system, "sku"),
         .serialNumber = factOf(system, "serialNumber"),
         .version = factOf(system, "version")});
    const Json board = below(system, "board");
    add({.id = "part-board",
         .name = named("Board", factOf(board, "product")),
         .device = "",
         .location = "",
         .manufacturer = factOf(board, "vendor"),
         .partNumber = factOf(board, "product"),
         .serialNumber = factOf(board, "serialNumber"),
         .version = factOf(board, "version")});
    const Json firmware = below(system, "firmware");
    add({.id = "part-firmware",
         .name = "System firmware",
         .device = "",
         .location = "",
         .manufacturer = factOf(firmware, "vendor"),
         .version = factOf(firmware, "version")});
    const Json controller = below(system, "managementController");
    add({.id = "part-management-controller",
         .name = "Management controller",
         .device = "",
         .location = "",
         .version = factOf(controller, "firmware")});
  }

  void addProcessors() {
    const Json processors = processorFacts(m_files);
    const Json microcode = below(processors, "microcode");
    const Json models = below(processors, "model");
    for (const auto& [model, threads] : models.items()) {
      add({.id = "part-processor-" + std::to_string(m_parts.size()),
           .name = named("Processor", model),
           .device = "",
           .location = "threads " + threads.get<std::string>(),
           .partNumber = model,
           .version = microcode.size() == 1 ? microcode.begin().key() : ""});
    }
  }

  void addModules() {
    const Json modules = below(memoryFacts(m_files), "modules");
    for (const auto& [locator, module] : modules.items()) {
      add({.id = "part-module-" + locator,
           .name = "Memory module " + locator,
           .device = "",
           .location = locator,
           .manufacturer = factOf(module, "manufacturer"),
           .partNumber = factOf(module, "partNumber"),
           .serialNumber = factOf(module, "serialNumber")});
    }
  }

  void addDevices(const std::string& kind, const std::string& word, const Json& devices,
                  const std::filesystem::path& folder) {
    for (const auto& [place, facts] : devices.items()) {
      const std::string name = factOf(facts, "name");
      const std::string model = factOf(facts, "model");
      const std::string driver = factOf(facts, "driver");
      add({.id = "part-" + kind + "-" + place,
           .name = named(word, model.empty() ? driver : model),
           .device = name,
           .location = locationOf(facts, folder / name, place),
           .manufacturer = factOf(facts, "vendor"),
           .partNumber = model.empty() ? factOf(facts, "board") : model,
           .serialNumber = factOf(facts, "serialNumber"),
           .version = factOf(facts, "firmware")});
    }
  }

  void addAccelerators() {
    const Json accelerators = gpuFacts(m_files);
    for (const auto& [place, facts] : accelerators.items()) {
      add({.id = "part-gpu-" + place,
           .name = named("GPU", factOf(facts, "model")),
           .device = "",
           .location = place,
           .manufacturer = factOf(facts, "vendor"),
           .partNumber = factOf(facts, "partNumber"),
           .serialNumber = factOf(facts, "serialNumber"),
           .version = factOf(facts, "firmware")});
    }
  }

  /// The slot where one is known, else where it hangs.
  std::string locationOf(const Json& facts, const std::filesystem::path& path,
                         const std::string& place) const {
    if (std::string slot = factOf(facts, "slot"); !slot.empty()) {
      return slot;
    }
    const std::string address = pciAddressOf(m_files.resolved(path));
    const auto slot = m_slots.find(address.substr(0, address.rfind('.')));
    return slot == m_slots.end() ? place : cleaned(slot->second);
  }

  /// What says nothing by which it could be told from others is left out.
  void add(Part part) {
    const bool isTold = !part.manufacturer.empty() || !part.partNumber.empty() ||
                        !part.serialNumber.empty() || !part.version.empty();
    if (isTold) {
      m_parts.push_back(std::move(part));
    }
  }

  const SystemFiles& m_files;
  const AskDriver& m_ask;
  std::map<std::string, std::string> m_slots;
  std::vector<Part> m_parts;
};

}  // namespace

std::vector<Part> findParts(const SystemFiles& files, const AskDriver& ask) {
  return PartFinder(files, ask).find();
}

}  // namespace TarvexDiags::Inventory
