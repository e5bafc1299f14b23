#include "watch/ErrorCounters.h"

#include <filesystem>
#include <vector>

#include "watch/Growth.h"

namespace TarvexDiags::Watching {

namespace {

const std::filesystem::path kFolder = "sys/devices/system/edac/mc";

/// Modules, or the ranks of them where the driver knows no more (mem_is_per_rank).
std::vector<std::string> modulesOf(const SystemFiles& files, const std::filesystem::path& path) {
  std::vector<std::string> names;
  for (const char* const kind : {"dimm", "rank"}) {
    for (const int number : files.numberedEntries(path, kind)) {
      names.push_back(kind + std::to_string(number));
    }
  }
  return names;
}

}  // namespace

std::vector<int> ErrorCounters::controllers(const SystemFiles& files) {
  return files.numberedEntries(kFolder, "mc");
}

// Documentation/admin-guide/ras.rst of the kernel: mcX/{ce,ue}_count, and the part of each that no
// module could be blamed for; mcX/{dimm,rank}Y/dimm_{ce,ue}_count for the modules.
ErrorCounters ErrorCounters::read(const SystemFiles& files) {
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
  for (const int controller : controllers(files)) {
    const std::string name = "mc" + std::to_string(controller);
    const std::filesystem::path path = kFolder / name;
    const std::vector<std::string> modules = modulesOf(files, path);
    if (modules.empty()) {
      add(name, {controller, "", {}}, path / "ce_count", path / "ue_count");
      continue;
    }
    add(name, {controller, "", {}}, path / "ce_noinfo_count", path / "ue_noinfo_count");
    for (const std::string& module : modules) {
      const std::string label = files.line(path / module / "dimm_label");
      add(name + "/" + module + (label.empty() ? "" : " (" + label + ")"),
          {controller, label.empty() ? module : label, {}}, path / module / "dimm_ce_count",
          path / module / "dimm_ue_count");
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
    const ErrorCount difference = {grownBy(count.corrected, before.corrected),
                                   grownBy(count.uncorrected, before.uncorrected)};
    if (difference.corrected + difference.uncorrected > 0) {
      differences[name] = difference;
    }
  }
  return differences;
}

}  // namespace TarvexDiags::Watching
