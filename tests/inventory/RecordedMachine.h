#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/FakeMachine.h"

namespace TarvexDiags::Inventory {

/// @brief A structure of a memory module as firmware writes it (SMBIOS 3.x, type 17).
struct ModuleRecord {
  std::string locator;
  std::uint16_t megabytes = 16384;
  std::uint16_t ratedSpeed = 4800;
  std::string serial;
  std::uint16_t configuredSpeed = 0;  ///< 0: as rated
  std::uint8_t set = 0;
  std::string bank = "NODE 0";
};

/// @brief The bytes of a structure: its area, and the strings behind it.
std::string dmiStructure(std::uint8_t type, const std::string& body,
                         const std::vector<std::string>& strings);
std::string dmiModule(const ModuleRecord& module);
std::string dmiEnd();

/// @brief A link between a bridge and a device below it.
struct LinkRecord {
  std::string speed = "16.0 GT/s PCIe";
  int width = 16;
};

/// @brief A machine of files, written as the kernel writes them.
class RecordedMachine : public Tests::FakeMachine {
 public:
  /// @brief A symbolic link, both paths below the root.
  RecordedMachine& links(const std::string& place, const std::string& target);
  RecordedMachine& lacks(const std::string& path);

  /// @param count of threads, each a core of its own. @param microcode of all.
  RecordedMachine& processors(int sockets, int count, const std::string& microcode = "0x2b000590");
  RecordedMachine& thread(int number, const std::string& microcode, const std::string& flags,
                          const std::string& megahertz = "2100.000");
  RecordedMachine& modules(const std::vector<ModuleRecord>& modules);
  RecordedMachine& node(int number, std::uint64_t kilobytes, const std::string& cpus,
                        const std::string& distances);
  /// @param way of addresses below the root, "0000:00:01.0/0000:01:00.0", the last the device's.
  RecordedMachine& device(const std::string& root, const std::string& way,
                          const std::string& classCode, const std::string& driver,
                          const LinkRecord& link = {});
  RecordedMachine& nvme(int number, const std::string& root, const std::string& way,
                        const std::string& serial, const std::string& firmware);
  RecordedMachine& interface(const std::string& name, const std::string& root,
                             const std::string& way, const std::string& address, int megabits);
  /// @brief What all machines have: firmware's names, kernel, memory.
  RecordedMachine& standsAs(const std::string& vendor, const std::string& product);

 private:
  RecordedMachine& endOfLink(const std::string& folder, const LinkRecord& link);

  std::string m_cpuinfo;
};

}  // namespace TarvexDiags::Inventory
