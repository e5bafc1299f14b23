#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <istream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "watch/Disks.h"

namespace TarvexDiags::Storage {

using Watching::Attachment;
using Watching::Disk;
using Watching::findDisks;
using Watching::VirtualDisks;

/// @brief A regular file treated as a disk; nothing when there is none.
std::optional<Disk> fileAsDisk(const std::string& path);

/// @brief A mounted file system that lies on a disk, as a whole or in part.
struct Mount {
  std::string directory;
  std::string device;  ///< the kernel's name of what carries it, such as "vda1" or "dm-0"
  bool readOnly = false;
};

/// @brief The device numbers that paths lead to, as "8:1"; empty for none. A seam.
struct DeviceNumbers {
  std::function<std::string(const std::string& path)> ofBlockDevice;  ///< that the path is
  std::function<std::string(const std::string& path)> ofFileSystem;   ///< that the path lies in
};
DeviceNumbers deviceNumbersOfSystem();

/// @brief The mounted file systems on the disk, found through partitions and layers on top of
/// them. What a mount calls its source is not believed: whoever mounts may say anything there.
/// @param mountInfo the kernel's list for a process; tests bring a file of their own.
std::vector<Mount> mountsOn(const std::string& disk, const std::filesystem::path& sysfs = "/sys",
                            const std::filesystem::path& mountInfo = "/proc/self/mountinfo",
                            const DeviceNumbers& numbersOf = deviceNumbersOfSystem());

/// @brief Those of the lines of such a list that lie on the devices.
/// @param devices names by number, such as "vda1" by "254:1".
std::vector<Mount> mountsAmong(std::istream& mountInfo,
                               const std::map<std::string, std::string>& devices,
                               const DeviceNumbers& numbersOf);

/// @brief Where the partition starts on the disk, in bytes: 0 for the disk itself, nothing for a
/// layer whose blocks lie elsewhere.
std::optional<std::uint64_t> startOnDisk(const std::string& disk, const std::string& device,
                                         const std::filesystem::path& sysfs = "/sys");

/// @brief "nvme", "ata" and so on, as it travels among a device's properties; and back.
std::string attachmentText(Attachment attachment);
Attachment attachmentFrom(const std::string& text);

}  // namespace TarvexDiags::Storage
