#include <fcntl.h>

#include <array>
#include <cerrno>
#include <utility>

#include "packagekit/UniqueDescriptor.h"
#include "packages/storage/AtaReader.h"
#include "packages/storage/BridgedReader.h"
#include "packages/storage/CommandChannel.h"
#include "packages/storage/Health.h"
#include "packages/storage/HealthRecords.h"
#include "packages/storage/Refusal.h"
#include "packages/storage/ScsiReader.h"

namespace TarvexDiags::Storage {
namespace {

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
    check(getLog(NVME_LOG_LID_ERROR, pages.data(), sizeof pages), "error log");
    return errorLogFrom(pages);
  }

 private:
  nvme_smart_log smartLog() {
    nvme_smart_log log{};
    check(getLog(NVME_LOG_LID_SMART, &log, sizeof log), "health log");
    return log;
  }

  int getLog(nvme_cmd_get_log_lid log, void* data, std::size_t size) {
    // The kernel's own patience with a controller that does not answer is a minute.
    constexpr std::chrono::milliseconds kPatience = kCommandPatience;
    nvme_get_log_args arguments{};
    arguments.args_size = sizeof arguments;
    arguments.fd = m_device.get();
    arguments.timeout = static_cast<std::uint32_t>(kPatience.count());
    arguments.lid = log;
    arguments.nsid = NVME_NSID_ALL;
    arguments.log = data;
    arguments.len = static_cast<std::uint32_t>(size);
    arguments.lsp = NVME_LOG_LSP_NONE;
    arguments.uuidx = NVME_UUID_NONE;
    arguments.csi = NVME_CSI_NVM;
    return nvme_get_log(&arguments);
  }

  void check(int result, const char* what) {
    // The driver takes a command back after its time, which looks as if it had been interrupted.
    if (result < 0 && (errno == EINTR || errno == ETIMEDOUT)) {
      throw SilentCommand(kCommandPatience);
    }
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

void describeByItself(Disk& disk) {
  if (disk.attachment == Attachment::Ata) {
    describe(disk, readAtaIdentity(*openChannel(disk), disk.name));
  }
}

std::unique_ptr<HealthReader> makeHealthReader(const Disk& disk) {
  if (const std::string reason = whyNoHealth(disk); !reason.empty()) {
    throw NotSupported(disk.name + ": " + reason);
  }
  if (disk.attachment == Attachment::Nvme) {
    return std::make_unique<NvmeReader>(disk);
  }
  auto scsi = makeScsiReader([disk] { return openChannel(disk); }, disk.name);
  return disk.attachment == Attachment::Ata
             ? makeBridgedReader(makeAtaReader(openChannel(disk), disk.name), std::move(scsi))
             : std::move(scsi);
}

}  // namespace TarvexDiags::Storage
