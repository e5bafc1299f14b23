#include "watch/AerSource.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <utility>
#include <vector>

#include "watch/KernelLog.h"
#include "watch/Reason.h"

namespace TarvexDiags::Watching {

namespace {

struct CounterFile {
  const char* name;
  Kind kind;
};

// Documentation/ABI/testing/sysfs-bus-pci-devices-aer_stats of the kernel. The counters of root
// ports are of messages from below, which their devices count themselves.
constexpr CounterFile kFiles[] = {
    {"aer_dev_correctable", Kind::PcieCorrectable},
    {"aer_dev_nonfatal", Kind::PcieNonfatal},
    {"aer_dev_fatal", Kind::PcieFatal},
};
constexpr std::string_view kTotal = "TOTAL_ERR_";
const std::filesystem::path kDevices = "sys/bus/pci/devices";

bool isPciAddress(const std::string& name) {
  return !name.empty() && pciAddressIn(name) == name;
}

struct Grown {
  std::uint64_t count = 0;
  std::string names;
};

// A counter that went back began anew.
Grown grown(std::string_view before, std::string_view now) {
  Grown all;
  std::map<std::string, std::uint64_t> earlier = parseAerCounters(before);
  for (const auto& [name, value] : parseAerCounters(now)) {
    const std::uint64_t growth = value >= earlier[name] ? value - earlier[name] : value;
    if (growth > 0) {
      all.count += growth;
      all.names += (all.names.empty() ? "" : ", ") + name + " " + std::to_string(growth);
    }
  }
  return all;
}

}  // namespace

std::map<std::string, std::uint64_t> parseAerCounters(std::string_view text) {
  std::map<std::string, std::uint64_t> rows;
  std::map<std::string, std::uint64_t> totals;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    // Names of newer kernels have blanks in them ("Receiver Error 3").
    const std::size_t blank = line.rfind(' ');
    if (blank == std::string_view::npos || blank == 0) {
      continue;
    }
    std::uint64_t count = 0;
    const char* const end = line.data() + line.size();
    const auto [stop, error] = std::from_chars(line.data() + blank + 1, end, count);
    if (error == std::errc() && stop == end) {
      (line.starts_with(kTotal) ? totals : rows)[std::string(line.substr(0, blank))] = count;
    }
  }
  return rows.empty() ? totals : rows;
}

std::optional<std::string> AerSource::open() {
  m_texts.clear();
  for (const std::string& address : m_files.entries(kDevices)) {
    for (const CounterFile& file : kFiles) {
      const std::filesystem::path path = kDevices / address / file.name;
      if (auto text = m_files.text(path)) {
        m_texts[path.string()] = std::move(*text);
      }
    }
  }
  return m_texts.empty()
             ? std::optional<std::string>(
                   because("no PCI Express device of this machine reports errors to the kernel"))
             : std::nullopt;
}

std::optional<std::string> AerSource::openSinceStart() {
  std::optional<std::string> reason = open();
  m_texts.clear();
  return reason;
}

void AerSource::look(Moment now, Collector& collector) {
  const std::vector<std::string> present = m_files.entries(kDevices);
  // The counters of a device that comes back begin at 0.
  std::erase_if(m_texts, [&](const auto& known) {
    const std::string address =
        std::filesystem::path(known.first).parent_path().filename().string();
    return std::find(present.begin(), present.end(), address) == present.end();
  });
  for (const std::string& address : present) {
    for (const CounterFile& file : kFiles) {
      const std::filesystem::path path = kDevices / address / file.name;
      auto text = m_files.text(path);
      if (!text) {
        break;
      }
      std::string& last = m_texts[path.string()];
      const auto [count, names] = *text == last ? Grown() : grown(last, *text);
      last = std::move(*text);
      if (count > 0) {
        Finding finding{.time = now, .source = SourceKind::PcieErrors, .kind = file.kind};
        finding.device = "pci:" + address;
        finding.part = otherEnd(address);
        finding.count = count;
        finding.detail = names;
        collector.found(std::move(finding));
      }
    }
  }
}

// A switch is a port that faces the root, and below it ports that face devices: every other bridge
// on the way is the upper end of a link. Empty for what hangs on the root without one.
std::string AerSource::otherEnd(const std::string& address) const {
  const std::filesystem::path device = m_files.resolved(kDevices / address);
  const auto depth = std::count_if(device.begin(), device.end(),
                                   [](const auto& step) { return isPciAddress(step.string()); });
  if (depth % 2 == 0) {
    return depth == 0 ? "" : device.parent_path().filename().string();
  }
  const std::vector<std::string> entries = m_files.entries(kDevices / address);
  const auto below = std::find_if(entries.begin(), entries.end(), isPciAddress);
  return below == entries.end() ? "" : *below;
}

}  // namespace TarvexDiags::Watching
