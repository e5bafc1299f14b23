#include "packages/storage/Refusal.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "packages/storage/StorageEvents.h"
#include "packages/storage/TransferQueue.h"

namespace TarvexDiags::Storage {

bool isThere(const std::string& disk) {
  const std::filesystem::path disks = "/sys/block";
  std::error_code error;
  return !std::filesystem::exists(disks, error) || std::filesystem::exists(disks / disk, error);
}

void refuse(const std::string& disk, const std::string& what, int error) {
  const std::string cause = what + ": " + std::generic_category().message(error);
  if (saysVanished(error) || error == ENOENT || !isThere(disk)) {
    throwVanished(disk, cause);
  }
  throw NotSupported(disk + ": " + cause);
}

}  // namespace TarvexDiags::Storage
