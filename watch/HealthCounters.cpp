#include "watch/HealthCounters.h"

#include <filesystem>
#include <vector>

#include "watch/CpuFiles.h"
#include "watch/InterruptRows.h"

namespace TarvexDiags::Watching {

namespace {

struct Counted {
  const char* name;  ///< of the file, or of the row of /proc/interrupts
  Trouble trouble;
};

// Documentation/admin-guide/abi-stable of the kernel, thermal_throttle; arch/x86/kernel/irq.c for
// the rows.
constexpr Counted kThrottleFiles[] = {
    {"core_throttle_count", Trouble::Throttling},
    {"package_throttle_count", Trouble::Throttling},
};
constexpr Counted kInterruptRows[] = {
    {"TRM", Trouble::Throttling},
    {"THR", Trouble::Corrected},
    {"DFR", Trouble::Corrected},
    {"MCE", Trouble::MachineCheck},
};

}  // namespace

HealthCounters HealthCounters::read(const SystemFiles& files, int core) {
  HealthCounters counters;
  const std::filesystem::path folder = folderOfCpu(core) / "thermal_throttle";
  for (const Counted& source : kThrottleFiles) {
    if (const auto value = files.number(folder / source.name)) {
      counters.m_counts[source.name] = {source.trouble, *value};
    }
  }
  std::vector<std::string> labels;
  for (const Counted& source : kInterruptRows) {
    labels.emplace_back(source.name);
  }
  const auto rows = parseInterruptRows(files.text("proc/interrupts").value_or(""), labels);
  for (const Counted& source : kInterruptRows) {
    const auto row = rows.find(source.name);
    if (row != rows.end() && row->second.contains(core)) {
      counters.m_counts[source.name] = {source.trouble, row->second.at(core)};
    }
  }
  return counters;
}

std::map<std::string, HealthCounters::Count> HealthCounters::since(
    const HealthCounters& earlier) const {
  std::map<std::string, Count> grown;
  for (const auto& [name, count] : m_counts) {
    const auto before = earlier.m_counts.find(name);
    if (before != earlier.m_counts.end() && count.value > before->second.value) {
      grown[name] = {count.trouble, count.value - before->second.value};
    }
  }
  return grown;
}

}  // namespace TarvexDiags::Watching
