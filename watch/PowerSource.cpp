#include "watch/PowerSource.h"

#include <chrono>
#include <string_view>

#include "watch/Reason.h"

namespace TarvexDiags::Watching {

// Documentation/power/powercap/powercap.rst of the kernel: intel-rapl:0 is a processor,
// intel-rapl:0:1 a part of it.
std::optional<std::string> PowerSource::open() {
  m_zones.clear();
  const std::filesystem::path folder = "sys/class/powercap";
  bool isThere = false;
  for (const std::string& zone : m_files.entries(folder)) {
    if (zone.find(':') == std::string::npos) {
      continue;
    }
    isThere = true;
    const auto energy = m_files.number(folder / zone / "energy_uj");
    if (!energy) {
      continue;
    }
    const auto range = m_files.number(folder / zone / "max_energy_range_uj").value_or(0);
    const auto limit = m_files.number(folder / zone / "constraint_0_power_limit_uw");
    Zone& added = m_zones.emplace_back(Zone{zone + "/" + m_files.word(folder / zone / "name"),
                                            folder / zone / "energy_uj", std::nullopt,
                                            Growth(range), std::nullopt});
    if (limit && *limit > 0) {
      added.limit = static_cast<double>(*limit) * 1e-6;
    }
    added.microjoules.to(*energy);
  }
  if (!m_zones.empty()) {
    return std::nullopt;
  }
  return isThere ? because("only root may read the processors' counters of energy")
                 : because("the kernel counts no energy of these processors");
}

void PowerSource::look(Moment now, Collector& collector) {
  for (Zone& zone : m_zones) {
    const auto energy = m_files.number(zone.energy);
    if (!energy) {
      zone.last.reset();
      continue;
    }
    const auto grown = static_cast<double>(zone.microjoules.to(*energy));
    if (zone.last && now > *zone.last) {
      const double seconds = std::chrono::duration<double>(now - *zone.last).count();
      collector.sampled({now, zone.name, grown * 1e-6 / seconds, "W", zone.limit});
    }
    zone.last = now;
  }
}

}  // namespace TarvexDiags::Watching
