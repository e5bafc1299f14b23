#include "watch/ErrorCounters.h"

#include <filesystem>
#include <vector>

namespace TarvexDiags::Watching {

namespace {

std::uint64_t grown(std::uint64_t now, std::uint64_t before) {
  // A driver that was loaded anew counts from 0.
  return now >= before ? now - before : now;
}

}  // namespace

// Documentation/admin-guide/ras.rst of the kernel: mcX/{ce,ue}_count, and the part of each that no
// module could be blamed for; mcX/dimmY/dimm_{ce,ue}_count for the modules.
ErrorCounters ErrorCounters::read(const SystemFiles& files) {
  const std::filesystem::path folder = "sys/devices/system/edac/mc";
  ErrorCounters counters;
  const auto add = [&](const std::string& name, const MemoryCounter& part,
                       const std::filesystem::path& corrected,
                       const std::filesystem::path& uncorrected) {
    const auto correctedCount = files.number(corrected);
    const auto uncorrectedCount = files.number(uncorrected);
    if (correctedCount || uncorrectedCount) {
      MemoryCounter& counter = counters.m_counters[name] = part;
      counter.count = {correctedCount.value_or(0), uncorrectedCount.value_or(0)};
    }
  };
  for (const int controller : files.numberedEntries(folder, "mc")) {
    const std::string name = "mc" + std::to_string(controller);
    const std::filesystem::path path = folder / name;
    const std::vector<int> modules = files.numberedEntries(path, "dimm");
    if (modules.empty()) {
      add(name, {controller, "", {}}, path / "ce_count", path / "ue_count");
      continue;
    }
    add(name, {controller, "", {}}, path / "ce_noinfo_count", path / "ue_noinfo_count");
    for (const int module : modules) {
      const std::string moduleName = "dimm" + std::to_string(module);
      std::string label = files.text(path / moduleName / "dimm_label").value_or("");
      label.erase(label.find_last_not_of(" \n") + 1);
      add(name + "/" + moduleName + (label.empty() ? "" : " (" + label + ")"),
          {controller, label.empty() ? moduleName : label, {}}, path / moduleName / "dimm_ce_count",
          path / moduleName / "dimm_ue_count");
    }
  }
  return counters;
}

std::map<std::string, ErrorCount> ErrorCounters::since(const ErrorCounters& earlier) const {
  std::map<std::string, ErrorCount> differences;
  for (const auto& [name, counter] : m_counters) {
    const auto found = earlier.m_counters.find(name);
    const ErrorCount before =
        found == earlier.m_counters.end() ? ErrorCount() : found->second.count;
    const ErrorCount& count = counter.count;
    const ErrorCount difference = {grown(count.corrected, before.corrected),
                                   grown(count.uncorrected, before.uncorrected)};
    if (difference.corrected + difference.uncorrected > 0) {
      differences[name] = difference;
    }
  }
  return differences;
}

}  // namespace TarvexDiags::Watching
