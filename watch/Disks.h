#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace TarvexDiags::Watching {

/// @brief How a disk is attached; decides where its health is read.
enum class Attachment { Nvme, Ata, Scsi, MemoryCard, VirtualDisk, File };

/// @brief A disk as the kernel describes it. Texts as the disk gives them.
struct Disk {
  std::string name;  ///< the kernel's name, such as "nvme0n1"; for a file its file name
  std::string path;  ///< what is opened, such as "/dev/nvme0n1"
  Attachment attachment = Attachment::VirtualDisk;
  std::string model;  ///< empty when the kernel does not tell; so are the next two
  std::string serial;
  std::string firmware;
  std::uint64_t bytes = 0;
  std::uint32_t logicalBlock = 512;
  std::uint32_t physicalBlock = 512;
  bool rotational = false;
  bool removable = false;
  bool readOnly = false;
};

/// @brief What a hypervisor's disk on a SATA or SCSI bus counts as.
enum class VirtualDisks {
  WithoutHealth,  ///< virtual: it imitates a bus, its health would be made up
  AsTheirBus,     ///< what it imitates, health included
};

/// @brief The machine's disks, in the order of their names. Left out: what is made of software
/// (loop, RAM, device mapper, RAID), optical and floppy drives, hidden paths, drives without a
/// medium.
/// @param sysfs where the kernel shows its devices; tests bring a tree of their own.
std::vector<Disk> findDisks(const std::filesystem::path& sysfs = "/sys",
                            VirtualDisks virtualDisks = VirtualDisks::WithoutHealth);

}  // namespace TarvexDiags::Watching
