#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "inventory/DmiTable.h"
#include "inventory/Facts.h"

namespace TarvexDiags::Inventory {

/// @brief What the drivers of interfaces tell only when they are asked.
struct DriverFacts {
  std::string firmware;  ///< empty when not told
  std::string port;      ///< kind of the connector, "TP" or "FIBRE"; empty when not told
};

/// @brief Asks the driver of an interface, by its name.
using AskDriver = std::function<DriverFacts(const std::string&)>;

/// @brief Asks the running kernel (ethtool's calls); needs no privilege.
DriverFacts askDriver(const std::string& interface);

/// @brief What this machine is: its parts with what identifies them and what they can do, and
/// nothing that changes while it stands there, such as temperatures, frequencies, free sizes and
/// addresses. Two of one machine are equal as long as nobody changes it. The keys are those of
/// docs/schemas/inventory.schema.json.
///
/// Reads files alone but for the drivers that it asks; takes no lock and writes nothing.
/// @param files of the machine, or of one that was recorded.
/// @param ask empty for a recorded machine.
Json takeInventory(const SystemFiles& files, const AskDriver& ask);

/// @brief The places for memory modules, as firmware tells of them.
struct ModuleTable {
  bool isWithheld = false;  ///< there is a table, which this process may not read
  std::vector<MemoryModule> modules;
};

ModuleTable readModules(const SystemFiles& files);

/// @brief The names of the slots for cards by "0000:3b:00", the address of what sits in them
/// without its function.
std::map<std::string, std::string> slotsByAddress(const SystemFiles& files);

// The parts, each a tree of its own.
Json systemFacts(const SystemFiles& files);
Json processorFacts(const SystemFiles& files);
Json memoryFacts(const SystemFiles& files);
Json pciFacts(const SystemFiles& files);
Json diskFacts(const SystemFiles& files);
Json interfaceFacts(const SystemFiles& files, const AskDriver& ask);
Json infinibandFacts(const SystemFiles& files);
Json gpuFacts(const SystemFiles& files);
Json tpmFacts(const SystemFiles& files);
Json kernelFacts(const SystemFiles& files);

}  // namespace TarvexDiags::Inventory
