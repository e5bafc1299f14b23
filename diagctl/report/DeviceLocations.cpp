#include "diagctl/report/DeviceLocations.h"

namespace TarvexDiags::FrontEnd {

void DeviceLocations::learn(const RunStarted& start) {
  m_byId.clear();
  m_byName.clear();
  for (const HardwareItem& item : start.hardware) {
    m_byId[item.id] = item.location;
    const auto [entry, isNew] = m_byName.try_emplace(item.name, item.location);
    if (!isNew && entry->second != item.location) {
      entry->second = std::nullopt;
    }
  }
}

std::string DeviceLocations::of(const StepStarted& step) const {
  if (const auto known = m_byId.find(step.hardwareId); known != m_byId.end()) {
    return known->second;
  }
  const auto named = m_byName.find(step.device);
  return named == m_byName.end() ? "" : named->second.value_or("");
}

}  // namespace TarvexDiags::FrontEnd
