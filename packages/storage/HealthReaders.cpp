#include <utility>

#include "packages/storage/AtaReader.h"
#include "packages/storage/BridgedReader.h"
#include "packages/storage/CommandChannel.h"
#include "packages/storage/Health.h"
#include "packages/storage/NvmeReader.h"
#include "packages/storage/ScsiReader.h"

namespace TarvexDiags::Storage {

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
    return makeNvmeReader(disk);
  }
  auto scsi = makeScsiReader([disk] { return openChannel(disk); }, disk.name);
  return disk.attachment == Attachment::Ata
             ? makeBridgedReader(makeAtaReader(openChannel(disk), disk.name), std::move(scsi),
                                 disk.name)
             : std::move(scsi);
}

}  // namespace TarvexDiags::Storage
