#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/inventory/RecordedMachine.h"

namespace TarvexDiags::Inventory {

/// @brief A machine of a kind, and where its parts are that a test spoils.
struct MachineKind {
  std::string name;
  std::unique_ptr<RecordedMachine> machine = std::make_unique<RecordedMachine>();
  std::vector<ModuleRecord> modules;
  std::vector<std::string> endsOfLink;  ///< folders of all that tell of one link
  std::string partOfLink;               ///< where it is found: "/pci/..."
  std::string firmwareOfDisk;           ///< the file; empty without one
  std::string partOfDisk;
};

MachineKind serverOfTwoSockets();
MachineKind serverWithoutSmt();
MachineKind serverOfGpus();
MachineKind laptop();
MachineKind virtualMachine();

/// @brief All of them.
std::vector<MachineKind> kindsOfMachines();

/// @brief A machine that nobody would build. @param seed the same gives the same.
std::unique_ptr<RecordedMachine> machineAtRandom(unsigned int seed);

}  // namespace TarvexDiags::Inventory
