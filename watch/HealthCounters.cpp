#include "watch/HealthCounters.h"

#include "watch/CpuFiles.h"
#include "watch/Growth.h"

namespace TarvexDiags::Watching {

HealthCounters HealthCounters::read(const SystemFiles& files, int core) {
  HealthCounters counters;
  for (const HeatCounter counter : {HeatCounter::OfCore, HeatCounter::OfProcessor}) {
    if (const auto value = timesThrottled(files, core, counter)) {
      counters.m_counts[nameOf(counter)] = {Trouble::Throttling, *value};
    }
  }
  for (const TroubleRow& row : readTroubleRows(files)) {
    if (const auto count = row.counts.find(core); count != row.counts.end()) {
      counters.m_counts[row.label] = {row.trouble, count->second};
    }
  }
  return counters;
}

std::map<std::string, HealthCounters::Count> HealthCounters::since(
    const HealthCounters& earlier) const {
  std::map<std::string, Count> grown;
  for (const auto& [name, count] : m_counts) {
    const auto before = earlier.m_counts.find(name);
    const std::uint64_t growth =
        before == earlier.m_counts.end() ? 0 : grownBy(count.value, before->second.value);
    if (growth > 0) {
      grown[name] = {count.trouble, growth};
    }
  }
  return grown;
}

}  // namespace TarvexDiags::Watching
