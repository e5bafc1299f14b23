#include "packages/storage/Refusal.h"

#include <cerrno>
#include <system_error>

#include "packages/storage/StorageEvents.h"
#include "packages/storage/TransferQueue.h"

namespace TarvexDiags::Storage {

bool isThere(const std::string& disk, const std::filesystem::path& sysfs) {
  const std::filesystem::path disks = sysfs / "block";
  std::error_code error;
  return !std::filesystem::exists(disks, error) || std::filesystem::exists(disks / disk, error);
}

void refuse(const std::string& disk, Common::Reason reason, int error, const std::string& command,
            const std::filesystem::path& sysfs) {
  const std::string cause =
      (command.empty() ? "" : command + ": ") + std::generic_category().message(error);
  if (saysVanished(error) || error == ENOENT || !isThere(disk, sysfs)) {
    throwVanished(disk, goneBy(error), cause);
  }
  throw NotSupported(reason, cause);
}

}  // namespace TarvexDiags::Storage
