#include "watch/ThrottleSource.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "watch/Reason.h"

namespace TarvexDiags::Watching {

// One counter of each core and one of each processor is read.
std::optional<std::string> ThrottleSource::open() {
  m_counters.clear();
  for (const int cpu : m_files.numberedEntries(kCpusFolder, "cpu")) {
    addCounters(cpu);
  }
  return m_counters.empty() ? std::optional<std::string>(
                                  because("the kernel counts no throttling of these processors"))
                            : std::nullopt;
}

void ThrottleSource::addCounters(int cpu) {
  const std::string name = "cpu" + std::to_string(cpu);
  const CpuPlace place = placeOfCpu(m_files, cpu).value_or(CpuPlace());
  const std::string package = std::to_string(std::max(place.socket, 0));
  const auto add = [&](const std::string& device, const std::string& part, HeatCounter kind) {
    const bool isKnown = std::any_of(m_counters.begin(), m_counters.end(),
                                     [&](const Counter& one) { return one.part == part; });
    if (const auto value = timesThrottled(m_files, cpu, kind); value && !isKnown) {
      Counter& counter = m_counters.emplace_back(Counter{device, part, cpu, kind, Growth()});
      counter.growth.to(*value);
    }
  };
  const std::string device = "cpu:" + std::to_string(cpu);
  add(device,
      place.core >= 0 ? "processor " + package + " core " + std::to_string(place.core) : name,
      HeatCounter::OfCore);
  add("processor:" + package, "processor " + package, HeatCounter::OfProcessor);
}

void ThrottleSource::look(Moment now, Collector& collector) {
  for (Counter& counter : m_counters) {
    // A core that is taken offline has no counter until it is back.
    const auto value = timesThrottled(m_files, counter.cpu, counter.kind);
    const std::uint64_t count = value ? counter.growth.to(*value) : 0;
    if (count > 0) {
      Finding finding{.time = now, .source = SourceKind::Throttling, .kind = Kind::Throttled};
      finding.device = counter.device;
      finding.part = counter.part;
      finding.count = count;
      collector.found(std::move(finding));
    }
  }
}

}  // namespace TarvexDiags::Watching
