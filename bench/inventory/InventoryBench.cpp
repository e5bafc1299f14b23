// What the inventory of a large server takes, and what most of many such servers are: 64 cores of
// two threads, 32 memory modules, 24 disks and 16 interfaces behind ports of their own. The machine
// is one of files. Wanted: an inventory in less than 2 s.

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/support/ProgramRun.h"
#include "tests/inventory/RecordedMachine.h"

namespace {

using Json = nlohmann::json;
using TarvexDiags::Bench::memoryOfRun;
using TarvexDiags::Inventory::ModuleRecord;
using TarvexDiags::Inventory::RecordedMachine;

constexpr int kCores = 64;
constexpr int kModules = 32;
constexpr int kDisks = 24;
constexpr int kInterfaces = 16;

std::string hexadecimal(int number) {
  constexpr const char* digits = "0123456789abcdef";
  return {digits[number / 16], digits[number % 16]};
}

void addProcessors(RecordedMachine& machine) {
  std::string flags = "fpu";
  for (int flag = 0; flag < 150; ++flag) {
    flags += " flag" + std::to_string(flag);
  }
  machine.processors(2, 2 * kCores);
  std::string text;
  for (int thread = 0; thread < 2 * kCores; ++thread) {
    text += "processor\t: " + std::to_string(thread) +
            "\nmodel name\t: Processor of 32 Cores\nstepping\t: 6\nmicrocode\t: 0x2b000590\n" +
            "flags\t\t: " + flags + "\n\n";
    machine.has("sys/devices/system/cpu/cpu" + std::to_string(thread) + "/topology/core_id",
                std::to_string(thread % kCores) + "\n");
  }
  machine.has("proc/cpuinfo", text);
}

void addMemory(RecordedMachine& machine) {
  std::vector<ModuleRecord> modules;
  for (int module = 0; module < kModules; ++module) {
    modules.push_back(
        {.locator = "DIMM_" + std::to_string(module), .serial = "80AD" + std::to_string(module)});
  }
  machine.modules(modules);
  machine.node(0, 262'000'000, "0-63", "10 21").node(1, 264'000'000, "64-127", "21 10");
}

/// A root port for each, with the part behind it.
void addDevices(RecordedMachine& machine) {
  for (int number = 0; number < kDisks + kInterfaces; ++number) {
    const std::string root = "0000:" + hexadecimal(4 * number);
    const std::string port = root + ":02.0";
    const std::string way = port + "/0000:" + hexadecimal(4 * number + 1) + ":00.0";
    machine.device(root, port, "0x060400", "pcieport");
    if (number < kDisks) {
      machine.nvme(number, root, way, "S5XANA" + std::to_string(number), "GDC5602Q");
    } else {
      machine.interface("ens" + std::to_string(number), root, way,
                        "a0:88:c2:01:02:" + hexadecimal(number), 100000);
    }
  }
}

/// The machine, and a folder beside it for documents.
class LargeMachine {
 public:
  LargeMachine() {
    m_machine.standsAs("Maker of Servers", "Server of 64 Cores");
    addProcessors(m_machine);
    addMemory(m_machine);
    addDevices(m_machine);
  }
  std::vector<std::string> taking() const {
    return {TARVEX_DIAGCTL, "inventory", "--root", m_machine.path(), "-o", document("one")};
  }
  std::string document(const std::string& name) const {
    return m_machine.path() + "/" + name + ".json";
  }

 private:
  RecordedMachine m_machine;
};

/// Gives each part a serial number of the machine's own.
void renumber(Json& tree, const std::string& machine) {
  for (auto& [key, value] : tree.items()) {
    if (value.is_structured()) {
      renumber(value, machine);
    } else if (key == "serialNumber" || key == "hostName" || key == "macAddress") {
      value = value.get<std::string>() + machine;
    }
  }
}

void InventoryOfLargeMachine(benchmark::State& state) {
  const LargeMachine machine;
  double memory = 0;
  for ([[maybe_unused]] auto _ : state) {
    memory = memoryOfRun(machine.taking());
  }
  state.counters["MiB"] = memory;
}

/// The argument is how many machines there are, one of which has other firmware.
void GoldenOfLargeMachines(benchmark::State& state) {
  const LargeMachine machine;
  memoryOfRun(machine.taking());
  const Json inventory = Json::parse(std::ifstream(machine.document("one")));
  std::vector<std::string> words = {TARVEX_DIAGCTL, "inventory", "golden", "-o",
                                    machine.document("golden")};
  for (long number = 0; number < state.range(0); ++number) {
    Json other = inventory;
    renumber(other, std::to_string(number));
    if (number == 2) {
      other["system"]["firmware"]["version"] = "2.1.8";
    }
    words.push_back(machine.document("n" + std::to_string(number)));
    std::ofstream(words.back()) << other;
  }
  double memory = 0;
  for ([[maybe_unused]] auto _ : state) {
    memory = memoryOfRun(words);
  }
  state.counters["MiB"] = memory;
}

BENCHMARK(InventoryOfLargeMachine)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(GoldenOfLargeMachines)->Arg(8)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
