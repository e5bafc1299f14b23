#include <fcntl.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "packagekit/UniqueDescriptor.h"
#include "packages/storage/Health.h"
#include "packages/storage/HealthRecords.h"
#include "packages/storage/TransferQueue.h"

namespace TarvexDiags::Storage {
namespace {

/// @brief Whether the kernel has the disk; also true where it shows none.
bool isThere(const std::string& disk) {
  const std::filesystem::path disks = "/sys/block";
  std::error_code error;
  return !std::filesystem::exists(disks, error) || std::filesystem::exists(disks / disk, error);
}

/// @brief Throws why the disk does not answer: NotSupported, or that it has left.
[[noreturn]] void refuse(const std::string& disk, const std::string& what, int error) {
  const std::string cause = what + ": " + std::generic_category().message(error);
  if (saysVanished(error) || error == ENOENT || !isThere(disk)) {
    throwVanished(disk, cause);
  }
  throw NotSupported(disk + ": " + cause);
}

/// @brief NVMe: the logs through the driver's passthrough.
class NvmeReader final : public HealthReader {
 public:
  explicit NvmeReader(const Disk& disk)
      : m_name(disk.name), m_device(open(disk.path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (!m_device) {
      refuse(m_name, "the health log cannot be asked for", errno);
    }
  }

  HealthReport health() override { return healthFrom(smartLog()); }

  ErrorLog errorLog() override {
    constexpr unsigned int entries = 16;
    std::array<nvme_error_log_page, entries> pages{};
    check(nvme_get_log_error(m_device.get(), entries, false, pages.data()), "error log");
    return errorLogFrom(pages);
  }

 private:
  nvme_smart_log smartLog() {
    nvme_smart_log log{};
    check(nvme_get_log_smart(m_device.get(), NVME_NSID_ALL, false, &log), "health log");
    return log;
  }

  void check(int result, const char* what) {
    if (result < 0) {
      refuse(m_name, what, errno);
    }
    if (result > 0) {
      throw NotSupported(m_name + ": " + what + ": " + nvme_status_to_string(result, false));
    }
  }

  std::string m_name;
  PackageKit::UniqueDescriptor m_device;
};

/// @brief ATA: S.M.A.R.T. through libatasmart.
class AtaReader final : public HealthReader {
 public:
  explicit AtaReader(const Disk& disk) : m_name(disk.name) {
    SkDisk* opened = nullptr;
    if (sk_disk_open(disk.path.c_str(), &opened) != 0) {
      refuse(m_name, "S.M.A.R.T. cannot be asked for", errno);
    }
    m_disk.reset(opened);
    SkBool available = FALSE;
    if (sk_disk_smart_is_available(opened, &available) != 0 || available == FALSE) {
      throw NotSupported(m_name + ": the disk has no S.M.A.R.T.");
    }
    if (sk_disk_smart_read_data(opened) != 0) {
      refuse(m_name, "S.M.A.R.T. data", errno);
    }
  }

  HealthReport health() override { return healthFrom(*m_disk); }
  ErrorLog errorLog() override { return errorLogFrom(*m_disk, m_name); }

 private:
  std::string m_name;
  AtaDisk m_disk;
};

/// @brief SCSI: what the kernel counts; the disks' own logs need vendors' tools.
class ScsiReader final : public HealthReader {
 public:
  explicit ScsiReader(const Disk& disk) : m_name(disk.name) {}

  HealthReport health() override {
    throw NotSupported(m_name + ": SCSI disks keep their health in vendors' logs");
  }

  ErrorLog errorLog() override {
    if (!isThere(m_name)) {
      throwVanished(m_name, "its counters are gone");
    }
    return kernelErrorLog(m_name);
  }

 private:
  std::string m_name;
};

}  // namespace

std::string whyNoHealth(const Disk& disk) {
  switch (disk.attachment) {
    case Attachment::Nvme:
    case Attachment::Ata:
    case Attachment::Scsi:
      return {};
    case Attachment::MemoryCard:
      return "memory cards keep no health log";
    case Attachment::VirtualDisk:
      return "a virtual disk has no health of its own";
    case Attachment::File:
      return "a file has no health of its own";
  }
  return {};
}

std::unique_ptr<HealthReader> makeHealthReader(const Disk& disk) {
  if (const std::string reason = whyNoHealth(disk); !reason.empty()) {
    throw NotSupported(disk.name + ": " + reason);
  }
  if (disk.attachment == Attachment::Nvme) {
    return std::make_unique<NvmeReader>(disk);
  }
  if (disk.attachment == Attachment::Ata) {
    return std::make_unique<AtaReader>(disk);
  }
  return std::make_unique<ScsiReader>(disk);
}

}  // namespace TarvexDiags::Storage
