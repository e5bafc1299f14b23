#pragma once

// clang-format off
#include <cstddef>  // atasmart.h uses size_t and includes nothing that declares it
#include <atasmart.h>
// clang-format on
#include <libnvme.h>

#include <filesystem>
#include <memory>
#include <span>

#include "packages/storage/Health.h"

namespace TarvexDiags::Storage {

struct AtaDiskDeleter {
  void operator()(SkDisk* disk) const { sk_disk_free(disk); }
};
using AtaDisk = std::unique_ptr<SkDisk, AtaDiskDeleter>;

/// @brief What the records of NVMe (base specification, logs 02h and 01h) say.
HealthReport healthFrom(const nvme_smart_log& log);
ErrorLog errorLogFrom(std::span<const nvme_error_log_page> pages);

/// @brief What S.M.A.R.T. data says that was read from a disk or set from a recording.
HealthReport healthFrom(SkDisk& disk);

/// @brief The last self-test by S.M.A.R.T., and the kernel's counters of failed commands.
ErrorLog errorLogFrom(SkDisk& disk, const std::string& name,
                      const std::filesystem::path& sysfs = "/sys");

/// @brief The kernel's counters of failed and timed-out commands. Throws NotSupported without.
ErrorLog kernelErrorLog(const std::string& name, const std::filesystem::path& sysfs = "/sys");

}  // namespace TarvexDiags::Storage
