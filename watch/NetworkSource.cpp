#include "watch/NetworkSource.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "watch/Reason.h"

namespace TarvexDiags::Watching {

namespace {

// Documentation/ABI/testing/sysfs-class-net-statistics and sysfs-class-infiniband of the kernel.
// Drops are no faults of hardware.
constexpr const char* kInterfaceErrors[] = {
    "rx_crc_errors",     "rx_frame_errors",   "rx_length_errors", "rx_fifo_errors",
    "tx_carrier_errors", "tx_aborted_errors", "tx_window_errors", "tx_heartbeat_errors",
};
// Sums of those and of what a driver has no other counter for.
constexpr const char* kInterfaceSums[] = {"rx_errors", "tx_errors"};
constexpr const char* kPortErrors[] = {
    "symbol_error",
    "port_rcv_errors",
    "local_link_integrity_errors",
    "port_xmit_discards",
    "excessive_buffer_overrun_errors",
};
constexpr const char* kPortLosses[] = {"link_downed", "link_error_recovery"};
const std::filesystem::path kInterfaces = "sys/class/net";
const std::filesystem::path kAdapters = "sys/class/infiniband";

}  // namespace

std::vector<NetworkSource::Port> NetworkSource::ports() const {
  std::vector<Port> ports;
  for (const std::string& name : m_files.entries(kInterfaces)) {
    const std::filesystem::path folder = kInterfaces / name;
    // Interfaces of software have no device.
    if (!m_files.exists(folder / "device")) {
      continue;
    }
    Port& port = ports.emplace_back(Port{"net:" + name, folder, {}});
    // First, so that what grows meanwhile is not taken for unnamed.
    for (const char* const sum : kInterfaceSums) {
      port.counters.emplace_back(folder / "statistics" / sum, Kind::NetworkErrors);
    }
    for (const char* const counter : kInterfaceErrors) {
      port.counters.emplace_back(folder / "statistics" / counter, Kind::NetworkErrors);
    }
    port.counters.emplace_back(folder / "carrier_down_count", Kind::LinkLost);
  }
  for (const std::string& adapter : m_files.entries(kAdapters)) {
    for (const std::string& number : m_files.entries(kAdapters / adapter / "ports")) {
      const std::filesystem::path folder = kAdapters / adapter / "ports" / number;
      Port& port = ports.emplace_back(Port{"infiniband:" + adapter + "/" + number, folder, {}});
      for (const char* const counter : kPortErrors) {
        port.counters.emplace_back(folder / "counters" / counter, Kind::NetworkErrors);
      }
      for (const char* const counter : kPortLosses) {
        port.counters.emplace_back(folder / "counters" / counter, Kind::LinkLost);
      }
    }
  }
  return ports;
}

std::optional<std::string> NetworkSource::open() {
  m_known.clear();
  for (const Port& port : ports()) {
    m_known[port.device] = port.folder;
    for (const auto& [file, kind] : port.counters) {
      if (const auto value = m_files.number(file)) {
        m_growths.to(file.string(), *value);
      }
    }
  }
  m_growths.open();
  return m_known.empty() ? std::optional<std::string>(
                               because("this machine has no network interface of hardware"))
                         : std::nullopt;
}

std::optional<std::string> NetworkSource::openSinceStart() {
  std::optional<std::string> reason = open();
  m_growths = Growths::sinceStart();
  return reason;
}

void NetworkSource::look(Moment now, Collector& collector) {
  const std::vector<Port> present = ports();
  tellVanished(present, now, collector);
  for (const Port& port : present) {
    m_known[port.device] = port.folder;
    for (const Kind kind : {Kind::NetworkErrors, Kind::LinkLost}) {
      Finding finding = growthOf(port, kind, now);
      if (finding.count > 0) {
        collector.found(std::move(finding));
      }
    }
  }
}

Finding NetworkSource::growthOf(const Port& port, Kind kind, Moment now) {
  Finding finding{.time = now, .source = SourceKind::Network, .kind = kind};
  finding.device = port.device;
  finding.part = port.device.substr(port.device.find(':') + 1);
  finding.count = 0;
  const auto add = [&finding](const std::string& name, std::uint64_t growth) {
    if (growth > 0) {
      finding.count += growth;
      finding.detail += (finding.detail.empty() ? "" : ", ") + name + " " + std::to_string(growth);
    }
  };
  for (const auto& [file, what] : port.counters) {
    const auto value = what == kind ? m_files.number(file) : std::nullopt;
    const std::uint64_t growth = value ? m_growths.to(file.string(), *value) : 0;
    const std::string name = file.filename().string();
    Unnamed& unnamed = m_unnamed[port.device + "/" + name.substr(0, name.find('_'))];
    if (std::find(std::begin(kInterfaceSums), std::end(kInterfaceSums), name) !=
        std::end(kInterfaceSums)) {
      unnamed.all += growth;
    } else {
      unnamed.named += growth;
      add(name, growth);
    }
  }
  for (const char* const sum : kInterfaceSums) {
    const std::string name = sum;
    Unnamed& unnamed = m_unnamed[port.device + "/" + name.substr(0, name.find('_'))];
    const std::uint64_t known = unnamed.named + unnamed.told;
    const std::uint64_t growth =
        kind == Kind::NetworkErrors && unnamed.all > known ? unnamed.all - known : 0;
    unnamed.told += growth;
    add(name, growth);
  }
  return finding;
}

void NetworkSource::tellVanished(const std::vector<Port>& present, Moment now,
                                 Collector& collector) {
  std::erase_if(m_known, [&](const auto& known) {
    const std::string& device = known.first;
    const bool isThere = std::any_of(present.begin(), present.end(),
                                     [&](const Port& port) { return port.device == device; });
    if (!isThere) {
      Finding finding{.time = now, .source = SourceKind::Network, .kind = Kind::DeviceVanished};
      finding.device = device;
      finding.part = device.substr(device.find(':') + 1);
      collector.found(std::move(finding));
      m_growths.forget(known.second.string() + "/");
    }
    return !isThere;
  });
}

}  // namespace TarvexDiags::Watching
