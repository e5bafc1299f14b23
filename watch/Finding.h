#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TarvexDiags::Watching {

/// @brief Where a finding or a sample comes from.
enum class SourceKind {
  MemoryControllers,  ///< the kernel's driver for memory controllers (EDAC)
  MachineChecks,      ///< what processors report of themselves
  PcieErrors,         ///< the counters of advanced error reporting
  KernelLog,
  Throttling,
  Sensors,  ///< hwmon: temperatures, fans, voltages
  Power,    ///< RAPL
  Disks,    ///< the kernel's counters of failed commands
  NvmeHealth,
  Network,
  Pressure,
};

/// @brief The name by which users choose a source and reports name it.
const char* nameOf(SourceKind source);
/// @brief The source of that name; nothing when there is none.
std::optional<SourceKind> sourceNamed(const std::string& name);
/// @brief All of them, in order.
const std::vector<SourceKind>& allSources();

/// @brief What was found. Names are never reused for something else: reports keep them.
enum class Kind {
  MemoryCorrected,
  MemoryUncorrected,
  MemoryFailure,  ///< the kernel has taken a page out of use
  MachineCheckCorrected,
  MachineCheckUncorrected,
  PcieCorrectable,
  PcieNonfatal,
  PcieFatal,
  Throttled,
  TemperatureCritical,
  FanFailed,
  SensorAlarm,
  DiskCommandFailed,  ///< also for commands that a disk does not know
  DiskTimeout,
  DiskInputOutput,
  DiskMedium,
  NvmeWarning,
  NetworkErrors,
  LinkLost,
  AcceleratorError,
  FileSystemError,
  DeviceVanished,
  Lockup,
  HungTask,
  OutOfMemory,
  RecordsLost,  ///< the kernel said more than could be read
};

/// @brief The identifier of a kind in reports and settings, such as "memory-corrected".
const char* nameOf(Kind kind);
/// @brief The kind of that name; nothing when there is none.
std::optional<Kind> kindNamed(const std::string& name);
/// @brief All of them, in order.
const std::vector<Kind>& allKinds();

/// @brief What a finding means for the verdict. The policy decides it, never a source.
enum class Severity {
  Information,
  Warning,
  Failure,  ///< of the hardware
  Trouble,  ///< of the machine's software or of the run: no verdict on the hardware
};

using Moment = std::chrono::system_clock::time_point;

/// @brief One thing that kernel or sensors say about the hardware. A plain value.
struct Finding {
  Moment time = {};  ///< when it was seen, or when it happened where the source tells
  SourceKind source = SourceKind::KernelLog;
  Kind kind = Kind::RecordsLost;
  Severity severity = Severity::Information;
  /// The resource: "pci:0000:00:02.0", "block:sda", "net:eth0", "cpu:3", "mc:0", "sensor:...", or
  /// "machine" where nothing narrower is known.
  std::string device = {};
  std::string part = {};  ///< what a technician looks for: a module's label, the bank; may be empty
  std::uint64_t count = 1;
  /// Where in the part, such as a physical address; empty when unknown. Distinct ones are counted.
  std::string place = {};
  bool isOfMemory = false;  ///< a machine check of the memory, which its controller counts as well
  bool isBefore = false;    ///< it is of before the watch began, and is told only now
  std::string detail = {};  ///< in the source's own words; any bytes, so nothing for a terminal
};

/// @brief A sensor's value at one moment.
struct Sample {
  Moment time;
  std::string sensor;  ///< "coretemp/0/Core 3", unique on the machine and stable over runs
  double value = 0;
  std::string unit;             ///< °C, RPM, V, W, %
  std::optional<double> limit;  ///< above which the hardware is in danger, where it tells one
};

}  // namespace TarvexDiags::Watching
