#include "watch/TraceInstance.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

#include "watch/Reason.h"

namespace TarvexDiags::Watching {

namespace {

constexpr std::string_view kPrefix = "tarvexdiags-";
constexpr const char* kPlaces[] = {"sys/kernel/tracing", "sys/kernel/debug/tracing"};
// Each is absent where the kernel was built without it.
constexpr const char* kEvents[] = {"mce/mce_record", "ras/mc_event", "ras/aer_event",
                                   "ras/memory_failure_event", "block/block_rq_error"};

bool write(const std::filesystem::path& file, std::string_view text) {
  const PackageKit::UniqueDescriptor descriptor(
      ::open(file.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
  return descriptor &&
         ::write(descriptor.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

/// Whether the name is of a process that is no more.
bool isLeftOver(std::string_view name) {
  if (!name.starts_with(kPrefix)) {
    return false;
  }
  name.remove_prefix(kPrefix.size());
  pid_t process = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
  return error == std::errc() && end == name.data() + name.size() && process > 0 &&
         kill(process, 0) != 0 && errno == ESRCH;
}

}  // namespace

std::optional<std::string> TraceInstance::open(const SystemFiles& files) {
  close();
  std::filesystem::path instances;
  for (const char* const place : kPlaces) {
    if (instances.empty() && files.exists(std::filesystem::path(place) / "instances")) {
      instances = std::filesystem::path(place) / "instances";
    }
  }
  if (instances.empty()) {
    return because("the kernel's trace is not mounted, or only root may read it");
  }
  for (const std::string& name : files.entries(instances)) {
    if (isLeftOver(name)) {
      rmdir(files.absolute(instances / name).c_str());
    }
  }
  const std::filesystem::path folder =
      files.absolute(instances / (std::string(kPrefix) + std::to_string(getpid())));
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    return because("the kernel's trace gives no buffer", std::strerror(errno));
  }
  m_folder = folder;
  // Otherwise poll waits until the buffer is half full.
  write(folder / "buffer_percent", "0");
  bool isAny = false;
  for (const char* const event : kEvents) {
    isAny = write(folder / "events" / event / "enable", "1") || isAny;
  }
  if (isAny) {
    m_pipe = PackageKit::UniqueDescriptor(
        ::open((folder / "trace_pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  }
  if (m_pipe) {
    return std::nullopt;
  }
  close();
  return because("the kernel traces none of the events that tell of hardware");
}

void TraceInstance::close() {
  m_pipe.close();
  if (!m_folder.empty()) {
    rmdir(m_folder.c_str());
    m_folder.clear();
  }
}

}  // namespace TarvexDiags::Watching
