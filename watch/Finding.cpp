#include "watch/Finding.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace TarvexDiags::Watching {

namespace {

template <class Value>
struct Named {
  Value value;
  const char* name;
};

constexpr Named<SourceKind> kSources[] = {
    {SourceKind::MemoryControllers, "edac"},
    {SourceKind::MachineChecks, "mce"},
    {SourceKind::PcieErrors, "aer"},
    {SourceKind::KernelLog, "kmsg"},
    {SourceKind::Throttling, "throttle"},
    {SourceKind::Sensors, "hwmon"},
    {SourceKind::Power, "power"},
    {SourceKind::Disks, "disk"},
    {SourceKind::NvmeHealth, "nvme"},
    {SourceKind::Network, "net"},
    {SourceKind::Pressure, "psi"},
};

constexpr Named<Kind> kKinds[] = {
    {Kind::MemoryCorrected, "memory-corrected"},
    {Kind::MemoryUncorrected, "memory-uncorrected"},
    {Kind::MemoryFailure, "memory-failure"},
    {Kind::MachineCheckCorrected, "machine-check-corrected"},
    {Kind::MachineCheckUncorrected, "machine-check-uncorrected"},
    {Kind::PcieCorrectable, "pcie-correctable"},
    {Kind::PcieNonfatal, "pcie-nonfatal"},
    {Kind::PcieFatal, "pcie-fatal"},
    {Kind::Throttled, "throttled"},
    {Kind::TemperatureCritical, "temperature-critical"},
    {Kind::FanFailed, "fan-failed"},
    {Kind::SensorAlarm, "sensor-alarm"},
    {Kind::DiskCommandFailed, "disk-command-failed"},
    {Kind::DiskTimeout, "disk-timeout"},
    {Kind::DiskInputOutput, "disk-input-output"},
    {Kind::DiskMedium, "disk-medium"},
    {Kind::NvmeWarning, "nvme-warning"},
    {Kind::NetworkErrors, "network-errors"},
    {Kind::LinkLost, "link-lost"},
    {Kind::AcceleratorError, "accelerator-error"},
    {Kind::FileSystemError, "file-system-error"},
    {Kind::DeviceVanished, "device-vanished"},
    {Kind::Lockup, "lockup"},
    {Kind::HungTask, "hung-task"},
    {Kind::OutOfMemory, "out-of-memory"},
    {Kind::RecordsLost, "records-lost"},
};

template <class Value, std::size_t size>
const char* nameIn(const Named<Value> (&table)[size], Value value) {
  const auto* const found =
      std::find_if(std::begin(table), std::end(table),
                   [value](const Named<Value>& row) { return row.value == value; });
  return found == std::end(table) ? "?" : found->name;
}

template <class Value, std::size_t size>
std::optional<Value> valueIn(const Named<Value> (&table)[size], const std::string& name) {
  const auto* const found = std::find_if(std::begin(table), std::end(table),
                                         [&](const Named<Value>& row) { return row.name == name; });
  return found == std::end(table) ? std::nullopt : std::optional(found->value);
}

template <class Value, std::size_t size>
std::vector<Value> valuesOf(const Named<Value> (&table)[size]) {
  std::vector<Value> values;
  for (const Named<Value>& row : table) {
    values.push_back(row.value);
  }
  return values;
}

}  // namespace

const char* nameOf(SourceKind source) {
  return nameIn(kSources, source);
}

std::optional<SourceKind> sourceNamed(const std::string& name) {
  return valueIn(kSources, name);
}

const std::vector<SourceKind>& allSources() {
  static const std::vector<SourceKind> kAll = valuesOf(kSources);
  return kAll;
}

const char* nameOf(Kind kind) {
  return nameIn(kKinds, kind);
}

std::optional<Kind> kindNamed(const std::string& name) {
  return valueIn(kKinds, name);
}

const std::vector<Kind>& allKinds() {
  static const std::vector<Kind> kAll = valuesOf(kKinds);
  return kAll;
}

}  // namespace TarvexDiags::Watching
