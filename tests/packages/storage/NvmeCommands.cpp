#include "tests/packages/storage/NvmeCommands.h"

#include <linux/ioctl.h>
#include <linux/nvme_ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstring>

namespace TarvexDiags::Storage {
namespace {

int answer = 0;  ///< errno; 0: the kernel's own
std::vector<NvmeCommands::Command> commands;

}  // namespace

NvmeCommands::NvmeCommands(int error) {
  answer = error;
  commands.clear();
}

NvmeCommands::~NvmeCommands() {
  answer = 0;
}

const std::vector<NvmeCommands::Command>& NvmeCommands::seen() {
  return commands;
}

}  // namespace TarvexDiags::Storage

// In front of the C library's, for the whole test program.
extern "C" __attribute__((visibility("default"))) int ioctl(int descriptor, unsigned long request,
                                                            ...) {
  using namespace TarvexDiags::Storage;
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (answer == 0 || (request != NVME_IOCTL_ADMIN_CMD && request != NVME_IOCTL_ADMIN64_CMD)) {
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
  }
  // Both forms of the command begin alike, as far as the time limit.
  nvme_passthru_cmd command{};
  std::memcpy(&command, argument, offsetof(nvme_passthru_cmd, result));
  commands.push_back({command.nsid, command.timeout_ms});
  errno = answer;
  return -1;
}
