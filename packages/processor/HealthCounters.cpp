#include "packages/processor/HealthCounters.h"

#include <filesystem>
#include <optional>
#include <sstream>

namespace TarvexDiags::Processor {

namespace {

struct Source {
  const char* name;  ///< of the file, or of the row of /proc/interrupts
  Trouble trouble;
};

// Documentation/admin-guide/abi-stable of the kernel, thermal_throttle; arch/x86/kernel/irq.c for
// the rows.
constexpr Source kThrottleFiles[] = {
    {"core_throttle_count", Trouble::Throttling},
    {"package_throttle_count", Trouble::Throttling},
};
constexpr Source kInterruptRows[] = {
    {"TRM", Trouble::Throttling},
    {"THR", Trouble::Corrected},
    {"DFR", Trouble::Corrected},
    {"MCE", Trouble::MachineCheck},
};

/// The column of "CPU<core>" in the head of /proc/interrupts.
std::optional<std::size_t> columnOf(const std::string& head, int core) {
  std::istringstream names(head);
  const std::string wanted = "CPU" + std::to_string(core);
  std::size_t column = 0;
  for (std::string name; names >> name; ++column) {
    if (name == wanted) {
      return column;
    }
  }
  return std::nullopt;
}

}  // namespace

HealthCounters HealthCounters::read(const Common::SystemFiles& files, int core) {
  HealthCounters counters;
  const std::filesystem::path folder = std::filesystem::path("sys/devices/system/cpu") /
                                       ("cpu" + std::to_string(core)) / "thermal_throttle";
  for (const Source& source : kThrottleFiles) {
    if (const auto value = files.number(folder / source.name)) {
      counters.m_counts[source.name] = {source.trouble, *value};
    }
  }
  std::istringstream lines(files.text("proc/interrupts").value_or(""));
  std::string line;
  std::getline(lines, line);
  const std::optional<std::size_t> column = columnOf(line, core);
  while (column && std::getline(lines, line)) {
    std::istringstream fields(line);
    std::string label;
    fields >> label;
    std::uint64_t value = 0;
    for (std::size_t index = 0; index <= *column && fields; ++index) {
      fields >> value;
    }
    for (const Source& source : kInterruptRows) {
      if (fields && label == std::string(source.name) + ":") {
        counters.m_counts[source.name] = {source.trouble, value};
      }
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

}  // namespace TarvexDiags::Processor
