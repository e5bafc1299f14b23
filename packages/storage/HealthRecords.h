#pragma once

#include <libnvme.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include "packages/storage/Health.h"

namespace TarvexDiags::Storage {

/// @brief What the records of NVMe (base specification, logs 02h and 01h) say.
HealthReport healthFrom(const nvme_smart_log& log);
ErrorLog errorLogFrom(std::span<const nvme_error_log_page> pages);

/// @brief What the code says with which a disk tells the end of its last self-test. Those of ATA
/// and SCSI are alike but for the last one that means a failure.
SelfTestEnd selfTestEnd(std::uint8_t code, std::uint8_t lastFailure);

/// @brief The kernel's counters of failed and timed-out commands. Throws NotSupported without.
ErrorLog kernelErrorLog(const std::string& name, const std::filesystem::path& sysfs = "/sys");

/// @brief The same; nothing where the kernel keeps none.
std::optional<ErrorLog> countersOf(const std::string& name, const std::filesystem::path& sysfs);

}  // namespace TarvexDiags::Storage
