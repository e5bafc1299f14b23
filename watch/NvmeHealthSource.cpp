#include "watch/NvmeHealthSource.h"

#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>

#include <cstddef>
#include <filesystem>
#include <utility>

#include "packagekit/UniqueDescriptor.h"
#include "watch/Reason.h"

namespace TarvexDiags::Watching {

namespace {

// NVMe base specification 2.0, figure 207.
constexpr std::size_t kCriticalWarning = 0;
constexpr std::size_t kTemperature = 1;    // two bytes, kelvin
constexpr std::size_t kMediaErrors = 160;  // sixteen bytes
constexpr double kZeroCelsius = 273;

struct Warning {
  unsigned int bit;
  const char* text;
};
constexpr Warning kWarnings[] = {
    {0, "available spare below its threshold"},
    {1, "temperature out of its limits"},
    {2, "reliability degraded"},
    {3, "read-only"},
    {4, "backup of volatile memory failed"},
    {5, "persistent memory region unreliable"},
};

std::uint64_t littleEndian(const NvmeHealthLog& log, std::size_t place, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t index = size; index > 0; --index) {
    value = value << 8 | log[place + index - 1];
  }
  return value;
}

}  // namespace

std::optional<NvmeHealthLog> readNvmeHealthLog(const std::string& controller) {
  const PackageKit::UniqueDescriptor device(
      ::open(("/dev/" + controller).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!device) {
    return std::nullopt;
  }
  NvmeHealthLog log{};
  nvme_admin_cmd command{};
  command.opcode = 0x02;      // Get Log Page
  command.nsid = 0xFFFFFFFF;  // of the controller
  command.addr = reinterpret_cast<std::uintptr_t>(log.data());
  command.data_len = log.size();
  command.cdw10 = 0x02U | (static_cast<std::uint32_t>(log.size() / 4 - 1) << 16);
  command.timeout_ms = 1000;
  return ioctl(device.get(), NVME_IOCTL_ADMIN_CMD, &command) == 0 ? std::optional(log)
                                                                  : std::nullopt;
}

std::optional<std::string> NvmeHealthSource::open() {
  m_controllers.clear();
  const auto names = m_files.numberedEntries("sys/class/nvme", "nvme");
  for (const int number : names) {
    const std::string name = "nvme" + std::to_string(number);
    if (const auto log = m_reader(name)) {
      Controller& controller = m_controllers[name];
      controller.warnings = (*log)[kCriticalWarning];
      controller.mediaErrors.to(littleEndian(*log, kMediaErrors, 8));
    }
  }
  if (!m_controllers.empty()) {
    return std::nullopt;
  }
  return names.empty() ? because("this machine has no NVMe disk")
                       : because("no NVMe disk tells its health; only root may ask");
}

void NvmeHealthSource::look(Moment now, Collector& collector) {
  for (auto& [name, controller] : m_controllers) {
    const auto log = m_reader(name);
    if (!log) {
      continue;
    }
    const auto tell = [&, device = name](Kind kind, std::uint64_t count, std::string detail) {
      Finding finding{.time = now, .source = SourceKind::NvmeHealth, .kind = kind};
      finding.device = "nvme:" + device;
      finding.part = device;
      finding.count = count;
      finding.detail = std::move(detail);
      collector.found(std::move(finding));
    };
    const unsigned int warnings = (*log)[kCriticalWarning];
    for (const Warning& warning : kWarnings) {
      if ((warnings & ~controller.warnings) >> warning.bit & 1U) {
        tell(Kind::NvmeWarning, 1, warning.text);
      }
    }
    controller.warnings = warnings;
    if (const auto errors = controller.mediaErrors.to(littleEndian(*log, kMediaErrors, 8))) {
      tell(Kind::DiskMedium, errors, "media and data integrity errors");
    }
    if (const std::uint64_t kelvin = littleEndian(*log, kTemperature, 2); kelvin > 0) {
      collector.sampled(
          {now, "nvme/" + name, static_cast<double>(kelvin) - kZeroCelsius, "°C", {}});
    }
  }
}

}  // namespace TarvexDiags::Watching
