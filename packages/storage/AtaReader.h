#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "packages/storage/AtaRecords.h"
#include "packages/storage/CommandChannel.h"
#include "packages/storage/Health.h"

namespace TarvexDiags::Storage {

/// @brief ATA disks: S.M.A.R.T., device statistics, error and self-test logs, by commands that pass
/// through the SCSI layer or a bridge. Nothing is switched on, and no command is sent that the disk
/// does not say it has: it would count it as an error.
/// @param channel to the disk of the name
/// @param sysfs where the kernel counts failed commands; told along with the disk's own log
std::unique_ptr<HealthReader> makeAtaReader(std::unique_ptr<CommandChannel> channel,
                                            const std::string& disk,
                                            const std::filesystem::path& sysfs = "/sys");

/// @brief What was asked does not answer to ATA, and may be asked by other means. All other
/// refusals are those of an ATA disk.
class NotAta : public NotSupported {
 public:
  using NotSupported::NotSupported;
};

/// @brief What the disk behind the channel is by its own account. Throws NotAta when what answers
/// is no ATA disk, and as the channel.
AtaIdentity readAtaIdentity(CommandChannel& channel);

/// @brief Takes the names that the disk gives itself, as far as there are any.
void describe(Disk& disk, const AtaIdentity& identity);

}  // namespace TarvexDiags::Storage
