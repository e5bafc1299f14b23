#include "watch/Disks.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "watch/SystemFiles.h"

namespace TarvexDiags::Watching {

namespace {

namespace fs = std::filesystem;

std::string firstOf(const SystemFiles& files, const fs::path& folder,
                    std::initializer_list<const char*> names) {
  for (const char* const name : names) {
    if (std::string line = files.line(folder / name); !line.empty()) {
      return line;
    }
  }
  return {};
}

bool beginsWithAny(std::string_view text, std::initializer_list<std::string_view> beginnings) {
  return std::any_of(beginnings.begin(), beginnings.end(),
                     [&](std::string_view beginning) { return text.starts_with(beginning); });
}

bool isDisk(const SystemFiles& files, const fs::path& folder, const std::string& name) {
  if (beginsWithAny(name, {"loop", "ram", "zram", "dm-", "md", "sr", "fd", "nbd", "drbd", "rbd"})) {
    return false;
  }
  // Boot and replay-protected areas of memory cards are no disks of their own.
  const bool cardArea = name.starts_with("mmcblk") && name.find("boot") != std::string::npos;
  return !cardArea && files.number(folder / "hidden").value_or(0) == 0 &&
         files.number(folder / "size").value_or(0) > 0;
}

/// @brief A hypervisor's disks come under names of their own, whatever bus they imitate.
bool isVirtual(const std::string& vendor, const std::string& model) {
  return beginsWithAny(vendor, {"QEMU", "VMware", "Msft", "VBOX", "Google", "Xen"}) ||
         beginsWithAny(model, {"QEMU", "VMware", "VBOX", "Virtual"});
}

Attachment attachmentOf(const SystemFiles& files, const fs::path& folder, const std::string& name,
                        VirtualDisks virtualDisks) {
  if (name.starts_with("nvme")) {
    return Attachment::Nvme;
  }
  if (name.starts_with("mmcblk")) {
    return Attachment::MemoryCard;
  }
  if (!name.starts_with("sd") && !name.starts_with("hd")) {
    return Attachment::VirtualDisk;
  }
  const std::string vendor = files.line(folder / "device/vendor");
  if (virtualDisks == VirtualDisks::WithoutHealth &&
      isVirtual(vendor, files.line(folder / "device/model"))) {
    return Attachment::VirtualDisk;
  }
  // A bridge that passes ATA commands through describes the disk behind it on a page of its own.
  const bool passesAta = vendor == "ATA" || files.exists(folder / "device/vpd_pg89");
  return passesAta ? Attachment::Ata : Attachment::Scsi;
}

Disk describe(const SystemFiles& files, const fs::path& folder, const std::string& name,
              VirtualDisks virtualDisks) {
  constexpr std::uint64_t sysfsSector = 512;  // "size" counts in it, whatever the disk's own block
  Disk disk;
  disk.name = name;
  disk.path = "/dev/" + name;
  disk.attachment = attachmentOf(files, folder, name, virtualDisks);
  disk.model = firstOf(files, folder, {"device/model", "device/name"});
  disk.serial = firstOf(files, folder, {"device/serial", "serial", "wwid", "device/wwid"});
  disk.firmware = firstOf(files, folder, {"device/firmware_rev", "device/rev", "device/fwrev"});
  disk.bytes = files.number(folder / "size").value_or(0) * sysfsSector;
  disk.logicalBlock =
      static_cast<std::uint32_t>(files.number(folder / "queue/logical_block_size").value_or(512));
  disk.physicalBlock =
      static_cast<std::uint32_t>(files.number(folder / "queue/physical_block_size").value_or(512));
  disk.rotational = files.number(folder / "queue/rotational").value_or(0) != 0;
  disk.removable = files.number(folder / "removable").value_or(0) != 0;
  disk.readOnly = files.number(folder / "ro").value_or(0) != 0;
  return disk;
}

}  // namespace

std::vector<Disk> findDisks(const std::filesystem::path& sysfs, VirtualDisks virtualDisks) {
  const SystemFiles files(sysfs);
  std::vector<Disk> disks;
  for (const std::string& name : files.entries("block")) {
    const fs::path folder = fs::path("block") / name;
    if (isDisk(files, folder, name)) {
      disks.push_back(describe(files, folder, name, virtualDisks));
    }
  }
  return disks;
}

}  // namespace TarvexDiags::Watching
