#include "watch/DiskSource.h"

#include <filesystem>
#include <utility>
#include <vector>

#include "watch/DiskCounters.h"
#include "watch/Reason.h"

namespace TarvexDiags::Watching {

namespace {

const std::filesystem::path kDisks = "sys/block";

std::filesystem::path deviceOf(const std::string& disk) {
  return kDisks / disk / "device";
}

/// Disks of hardware: those of software (loops, device mapper, memory) have no device.
std::vector<std::string> disksIn(const SystemFiles& files) {
  std::vector<std::string> disks = files.entries(kDisks);
  std::erase_if(disks, [&](const std::string& disk) { return !files.exists(deviceOf(disk)); });
  return disks;
}

Finding about(const std::string& disk, Kind kind, Moment now) {
  Finding finding{.time = now, .source = SourceKind::Disks, .kind = kind};
  finding.device = "block:" + disk;
  finding.part = disk;
  return finding;
}

}  // namespace

std::optional<std::string> DiskSource::open() {
  m_disks.clear();
  for (const std::string& name : disksIn(m_files)) {
    const DiskCounters counters =
        DiskCounters::read(m_files, deviceOf(name)).value_or(DiskCounters());
    Disk& disk = m_disks[name];
    disk.failed.to(counters.failed);
    disk.timedOut.to(counters.timedOut);
  }
  return m_disks.empty() ? std::optional<std::string>(because("this machine has no disk"))
                         : std::nullopt;
}

std::optional<std::string> DiskSource::openSinceStart() {
  std::optional<std::string> reason = open();
  m_disks.clear();
  return reason;
}

void DiskSource::look(Moment now, Collector& collector) {
  tellVanished(now, collector);
  for (const std::string& name : disksIn(m_files)) {
    const auto counters = DiskCounters::read(m_files, deviceOf(name));
    const auto [place, isNew] = m_disks.try_emplace(name);
    if (!counters) {
      continue;
    }
    if (isNew) {
      place->second.failed.to(0);
      place->second.timedOut.to(0);
    }
    const auto tell = [&](Kind kind, std::uint64_t count) {
      if (count > 0) {
        Finding finding = about(name, kind, now);
        finding.count = count;
        collector.found(std::move(finding));
      }
    };
    tell(Kind::DiskCommandFailed, place->second.failed.to(counters->failed));
    tell(Kind::DiskTimeout, place->second.timedOut.to(counters->timedOut));
  }
}

void DiskSource::tellVanished(Moment now, Collector& collector) {
  for (auto disk = m_disks.begin(); disk != m_disks.end();) {
    if (m_files.exists(deviceOf(disk->first))) {
      ++disk;
      continue;
    }
    collector.found(about(disk->first, Kind::DeviceVanished, now));
    disk = m_disks.erase(disk);
  }
}

}  // namespace TarvexDiags::Watching
