#include "watch/MemoryControllerSource.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "watch/Reason.h"

namespace TarvexDiags::Watching {

std::optional<std::string> MemoryControllerSource::open() {
  const ErrorCounters counters = ErrorCounters::read(m_files);
  if (!counters.present()) {
    return because(
        "the kernel has no driver for this machine's memory controllers, or its memory corrects "
        "nothing");
  }
  for (const auto& [name, counter] : counters.all()) {
    m_growths.to(name + " ce", counter.count.corrected);
    m_growths.to(name + " ue", counter.count.uncorrected);
  }
  m_growths.open();
  m_controllers = ErrorCounters::controllers(m_files);
  return std::nullopt;
}

std::optional<std::string> MemoryControllerSource::openSinceStart() {
  std::optional<std::string> reason = open();
  m_growths = Growths::sinceStart();
  return reason;
}

void MemoryControllerSource::look(Moment now, Collector& collector) {
  const auto tell = [&](const MemoryCounter& counter, Kind kind, std::uint64_t count) {
    if (count > 0) {
      Finding finding{.time = now, .source = SourceKind::MemoryControllers, .kind = kind};
      finding.device = "mc:" + std::to_string(counter.controller);
      finding.part = counter.module;
      finding.count = count;
      collector.found(std::move(finding));
    }
  };
  forgetThoseGone();
  const ErrorCounters counters = ErrorCounters::read(m_files);
  for (const auto& [name, counter] : counters.all()) {
    tell(counter, Kind::MemoryCorrected, m_growths.to(name + " ce", counter.count.corrected));
    tell(counter, Kind::MemoryUncorrected, m_growths.to(name + " ue", counter.count.uncorrected));
  }
}

// A driver that is loaded anew counts from 0.
void MemoryControllerSource::forgetThoseGone() {
  const std::vector<int> present = ErrorCounters::controllers(m_files);
  for (const int controller : m_controllers) {
    if (std::find(present.begin(), present.end(), controller) == present.end()) {
      m_growths.forget("mc" + std::to_string(controller) + "/");
      m_growths.forget("mc" + std::to_string(controller) + " ");
    }
  }
  m_controllers = present;
}

}  // namespace TarvexDiags::Watching
