#include "packages/storage/NvmeReader.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <string>
#include <utility>

#include "packagekit/UniqueDescriptor.h"
#include "packages/storage/CommandChannel.h"
#include "packages/storage/HealthRecords.h"
#include "packages/storage/Refusal.h"

namespace TarvexDiags::Storage {
namespace {

using Clock = std::function<std::chrono::steady_clock::time_point()>;

class NvmeReader final : public HealthReader {
 public:
  NvmeReader(const Disk& disk, Clock now, std::filesystem::path sysfs)
      : m_name(disk.name),
        m_device(open(disk.path.c_str(), O_RDONLY | O_CLOEXEC)),
        m_now(std::move(now)),
        m_sysfs(std::move(sysfs)) {
    if (!m_device) {
      refuse(m_name, Reasons::kCannotBeAsked, errno, {}, m_sysfs);
    }
  }

  HealthReport health() override { return healthFrom(smartLog()); }

  ErrorLog errorLog() override {
    constexpr unsigned int entries = 16;
    std::array<nvme_error_log_page, entries> pages{};
    getLog(NVME_LOG_LID_ERROR, pages.data(), sizeof pages, "NVMe Get Log Page 01h");
    return errorLogFrom(pages);
  }

 private:
  nvme_smart_log smartLog() {
    nvme_smart_log log{};
    getLog(NVME_LOG_LID_SMART, &log, sizeof log, "NVMe Get Log Page 02h");
    return log;
  }

  void getLog(nvme_cmd_get_log_lid log, void* data, std::size_t size, const char* command) {
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
    const auto begin = m_now();
    const int result = nvme_get_log(&arguments);
    if (result < 0) {
      fail(command, errno, m_now() - begin);
    }
    if (result > 0) {
      throw NotSupported(Reasons::kCommandRefused,
                         std::string(command) + ": " + nvme_status_to_string(result, false));
    }
  }

  /// @brief The driver takes a command back as if it had been interrupted, when its time is over,
  /// and just so when somebody resets the controller or pulls the disk out.
  [[noreturn]] void fail(const char* command, int error, std::chrono::nanoseconds taken) const {
    if ((error == EINTR || error == ETIMEDOUT) && tookItsTime(taken) && isThere(m_name, m_sysfs)) {
      throw SilentCommand(kCommandPatience);
    }
    refuse(m_name, Reasons::kCommandRefused, error, command, m_sysfs);
  }

  std::string m_name;
  PackageKit::UniqueDescriptor m_device;
  Clock m_now;
  std::filesystem::path m_sysfs;
};

}  // namespace

std::unique_ptr<HealthReader> makeNvmeReader(
    const Disk& disk, std::function<std::chrono::steady_clock::time_point()> now,
    const std::filesystem::path& sysfs) {
  return std::make_unique<NvmeReader>(disk, std::move(now), sysfs);
}

}  // namespace TarvexDiags::Storage
