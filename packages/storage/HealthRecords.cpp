#include "packages/storage/HealthRecords.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "watch/DiskCounters.h"

namespace TarvexDiags::Storage {
namespace {

/// @brief Little-endian number of any width; what does not fit is the largest value.
template <std::size_t size>
std::uint64_t littleEndian(const std::uint8_t (&bytes)[size]) {
  std::uint64_t value = 0;
  for (std::size_t at = size; at-- > 0;) {
    if (at >= sizeof value && bytes[at] != 0) {
      return std::numeric_limits<std::uint64_t>::max();
    }
    value = value << 8 | bytes[at];
  }
  return value;
}

/// @brief Media errors and internal ones; requests that the disk does not know are no fault of it.
bool blamesTheDisk(int status) {
  constexpr int mediaErrors = 2;
  const bool isMediaError = (status >> 8 & 7) == mediaErrors;
  const int generic = status & 0x7FF;
  return isMediaError || generic == NVME_SC_DATA_XFER_ERROR || generic == NVME_SC_INTERNAL;
}

constexpr int kFreezingPoint = 273;  // temperatures are told in Kelvin

constexpr std::array<std::pair<unsigned int, const char*>, 6> kCriticalWarnings{{
    {NVME_SMART_CRIT_SPARE, "SPARE_BELOW_THRESHOLD"},
    {NVME_SMART_CRIT_TEMPERATURE, "TEMPERATURE_BEYOND_THRESHOLD"},
    {NVME_SMART_CRIT_DEGRADED, "RELIABILITY_DEGRADED"},
    {NVME_SMART_CRIT_MEDIA, "MEDIA_READ_ONLY"},
    {NVME_SMART_CRIT_VOLATILE_MEMORY, "VOLATILE_BACKUP_FAILED"},
    {NVME_SMART_CRIT_PMR_RO, "PERSISTENT_REGION_READ_ONLY"},
}};

}  // namespace

HealthReport healthFrom(const nvme_smart_log& log) {
  HealthReport health;
  for (const auto& [bit, text] : kCriticalWarnings) {
    if ((log.critical_warning & bit) != 0) {
      health.criticalWarnings.emplace_back(text);
    }
  }
  const auto kelvin = static_cast<int>(littleEndian(log.temperature));
  health.celsius = kelvin == 0 ? 0 : kelvin - kFreezingPoint;
  health.spare = log.avail_spare;
  health.spareThreshold = log.spare_thresh;
  health.percentUsed = log.percent_used;
  health.mediaErrors = littleEndian(log.media_errors);
  health.powerOnHours = littleEndian(log.power_on_hours);
  return health;
}

ErrorLog errorLogFrom(std::span<const nvme_error_log_page> pages) {
  ErrorLog log;
  log.origin = "NVME_ERROR_LOG";
  for (const nvme_error_log_page& page : pages) {
    if (page.error_count == 0) {
      continue;  // an entry that was never filled
    }
    // The lowest bit of the field is the phase tag, not part of the status.
    const auto status = static_cast<int>(page.status_field >> 1);
    if (!blamesTheDisk(status)) {
      ++log.harmless;
      continue;
    }
    log.entries.push_back({1, fmt::format("#{}, SQ {}, LBA {}: {}", page.error_count, page.sqid,
                                          page.lba, nvme_status_to_string(status, false))});
  }
  return log;
}

SelfTestEnd selfTestEnd(std::uint8_t code, std::uint8_t lastFailure) {
  constexpr std::uint8_t running = 15;
  constexpr std::uint8_t firstFailure = 3;
  if (code == 0) {
    return SelfTestEnd::PassedOrNever;
  }
  if (code == running) {
    return SelfTestEnd::Running;
  }
  // Codes that nobody has given a meaning tell at least that it did not pass.
  return code >= firstFailure && code <= lastFailure ? SelfTestEnd::Failed
                                                     : SelfTestEnd::Interrupted;
}

ErrorLog kernelErrorLog(const std::string& name, const std::filesystem::path& sysfs) {
  const auto counters = Watching::DiskCounters::read(
      Watching::SystemFiles(sysfs), std::filesystem::path("block") / name / "device");
  if (!counters) {
    throw NotSupported(Reasons::kNoKernelCounters);
  }
  ErrorLog log;
  log.origin = "KERNEL_COUNTERS";
  log.senseData = counters->failed;
  if (counters->timedOut > 0) {
    log.entries.push_back({counters->timedOut, "COMMANDS_TIMED_OUT"});
  }
  return log;
}

std::optional<ErrorLog> countersOf(const std::string& name, const std::filesystem::path& sysfs) {
  try {
    return kernelErrorLog(name, sysfs);
  } catch (const NotSupported&) {
    return std::nullopt;
  }
}

}  // namespace TarvexDiags::Storage
