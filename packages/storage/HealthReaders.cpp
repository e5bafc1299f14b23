#include <utility>

#include "packages/storage/AtaReader.h"
#include "packages/storage/BridgedReader.h"
#include "packages/storage/CommandChannel.h"
#include "packages/storage/Health.h"
#include "packages/storage/NvmeReader.h"
#include "packages/storage/ScsiReader.h"

namespace TarvexDiags::Storage {

std::optional<Common::Reason> whyNoHealth(const Disk& disk) {
  switch (disk.attachment) {
    case Attachment::Nvme:
    case Attachment::Ata:
    case Attachment::Scsi:
      return {};
    case Attachment::MemoryCard:
      return Reasons::kCardWithoutHealth;
    case Attachment::VirtualDisk:
      return Reasons::kVirtualWithoutHealth;
    case Attachment::File:
      return Reasons::kFileWithoutHealth;
  }
  return {};
}

void describeByItself(Disk& disk) {
  if (disk.attachment == Attachment::Ata) {
    describe(disk, readAtaIdentity(*openChannel(disk)));
  }
}

std::unique_ptr<HealthReader> makeHealthReader(const Disk& disk) {
  if (const auto reason = whyNoHealth(disk)) {
    throw NotSupported(*reason);
  }
  if (disk.attachment == Attachment::Nvme) {
    return makeNvmeReader(disk);
  }
  auto scsi = makeScsiReader([disk] { return openChannel(disk); }, disk.name);
  return disk.attachment == Attachment::Ata
             ? makeBridgedReader(makeAtaReader(openChannel(disk), disk.name), std::move(scsi),
                                 disk.name)
             : std::move(scsi);
}

}  // namespace TarvexDiags::Storage
