#include "packages/storage/Disks.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

namespace TarvexDiags::Storage {
namespace {

namespace fs = std::filesystem;

std::string readLine(const fs::path& file) {
  std::string line;
  std::ifstream stream(file);
  std::getline(stream, line);
  const auto first = line.find_first_not_of(" \t");
  const auto last = line.find_last_not_of(" \t");
  return first == std::string::npos ? std::string() : line.substr(first, last - first + 1);
}

std::uint64_t readNumber(const fs::path& file, std::uint64_t fallback) {
  std::uint64_t value = 0;
  return std::ifstream(file) >> value ? value : fallback;
}

/// @brief Names in a folder, sorted; none when it is not there.
std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

/// @brief The disk, its partitions, and everything that lies on one of them.
std::set<std::string> carriedBy(const std::string& disk, const fs::path& sysfs) {
  std::set<std::string> found;
  std::vector<std::string> open{disk};
  while (!open.empty()) {
    const std::string name = open.back();
    open.pop_back();
    if (!found.insert(name).second) {
      continue;
    }
    const fs::path folder = sysfs / "class/block" / name;
    for (const std::string& entry : namesIn(folder)) {
      if (fs::exists(folder / entry / "partition")) {
        open.push_back(entry);
      }
    }
    const std::vector<std::string> holders = namesIn(folder / "holders");
    open.insert(open.end(), holders.begin(), holders.end());
  }
  return found;
}

/// @brief "\040" and the like, as the list of mounts writes blanks in names. What is no such form
/// stays as it is.
std::string unescape(const std::string& text) {
  constexpr std::size_t digits = 3;
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    unsigned int byte = 0;
    const char* const first = text.data() + at + 1;
    const bool isEscaped = text[at] == '\\' && text.size() - at > digits &&
                           std::from_chars(first, first + digits, byte, 8).ptr == first + digits &&
                           byte <= std::numeric_limits<unsigned char>::max();
    plain += isEscaped ? static_cast<char>(byte) : text[at];
    at += isEscaped ? digits : 0;
  }
  return plain;
}

bool isReadOnly(const std::string& mountOptions) {
  return ("," + mountOptions + ",").find(",ro,") != std::string::npos;
}

/// @brief A line of the kernel's list of mounts.
struct MountEntry {
  std::string number;  ///< of its device, as "8:1"
  std::string directory;
  std::string type;
  std::string source;
  std::string superOptions;  ///< of the file system
  bool isReadOnly = false;
};

MountEntry mountEntryFrom(const std::string& line) {
  // id, parent, major:minor, root, directory, options, optional fields, "-", type, source, ...
  // What separates them is one blank alone: a name may hold any other character as it is.
  std::istringstream fields(line);
  const auto next = [&] {
    std::string field;
    std::getline(fields, field, ' ');
    return field;
  };
  MountEntry entry;
  next();
  next();
  entry.number = next();
  next();
  entry.directory = next();
  const std::string options = next();
  while (fields && next() != "-") {
  }
  entry.type = next();
  entry.source = next();
  entry.superOptions = next();
  entry.directory = unescape(entry.directory);
  entry.source = unescape(entry.source);
  // A file system that met an error sets itself read-only, the mount is not asked.
  entry.isReadOnly = isReadOnly(options) || isReadOnly(entry.superOptions);
  return entry;
}

/// @brief The value of a file system's option; empty if it has none.
std::string optionOf(const std::string& superOptions, const std::string& name) {
  std::istringstream options(superOptions);
  for (std::string option; std::getline(options, option, ',');) {
    if (option.starts_with(name + "=")) {
      return unescape(option.substr(name.size() + 1));
    }
  }
  return {};
}

/// @brief The number of the device that carries a mounted file system; empty when nobody knows.
std::string carrierOf(const MountEntry& entry, const DeviceNumbers& numbersOf) {
  const bool isAnonymous = entry.number.starts_with("0:");
  if (!isAnonymous) {
    return entry.number;
  }
  // Those that spread over several disks have a number of their own; the kernel has opened their
  // source as a disk, so it is one.
  if (entry.type == "btrfs" || entry.type == "bcachefs") {
    return numbersOf.ofBlockDevice(entry.source);
  }
  const std::string written =
      entry.type == "overlay" ? optionOf(entry.superOptions, "upperdir") : "";
  return written.empty() ? "" : numbersOf.ofFileSystem(written);
}

std::string numberText(dev_t number) {
  return std::to_string(major(number)) + ":" + std::to_string(minor(number));
}

constexpr std::array<std::pair<Attachment, const char*>, 6> kAttachmentTexts{{
    {Attachment::Nvme, "nvme"},
    {Attachment::Ata, "ata"},
    {Attachment::Scsi, "scsi"},
    {Attachment::MemoryCard, "memory card"},
    {Attachment::VirtualDisk, "virtual"},
    {Attachment::File, "file"},
}};

}  // namespace

std::optional<Disk> fileAsDisk(const std::string& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) {
    return std::nullopt;
  }
  Disk disk;
  disk.name = fs::path(path).filename().string();
  disk.path = path;
  disk.attachment = Attachment::File;
  disk.model = "file";
  disk.bytes = fs::file_size(path, error);
  return disk;
}

DeviceNumbers deviceNumbersOfSystem() {
  return {.ofBlockDevice =
              [](const std::string& path) {
                struct stat status {};
                return stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode)
                           ? numberText(status.st_rdev)
                           : "";
              },
          .ofFileSystem =
              [](const std::string& path) {
                struct stat status {};
                return stat(path.c_str(), &status) == 0 ? numberText(status.st_dev) : "";
              }};
}

std::vector<Mount> mountsOn(const std::string& disk, const std::filesystem::path& sysfs,
                            const std::filesystem::path& mountInfo,
                            const DeviceNumbers& numbersOf) {
  const std::set<std::string> devices = carriedBy(disk, sysfs);
  std::map<std::string, std::string> numbers;
  for (const std::string& device : devices) {
    if (std::string number = readLine(sysfs / "class/block" / device / "dev"); !number.empty()) {
      numbers.emplace(std::move(number), device);
    }
  }
  std::ifstream stream(mountInfo);
  return mountsAmong(stream, numbers, numbersOf);
}

std::vector<Mount> mountsAmong(std::istream& mountInfo,
                               const std::map<std::string, std::string>& devices,
                               const DeviceNumbers& numbersOf) {
  std::vector<Mount> mounts;
  for (std::string line; std::getline(mountInfo, line);) {
    const MountEntry entry = mountEntryFrom(line);
    const auto carrier = devices.find(carrierOf(entry, numbersOf));
    if (carrier != devices.end()) {
      mounts.push_back({entry.directory, carrier->second, entry.isReadOnly});
    }
  }
  return mounts;
}

std::optional<std::uint64_t> startOnDisk(const std::string& disk, const std::string& device,
                                         const std::filesystem::path& sysfs) {
  if (disk == device) {
    return 0;
  }
  const fs::path partition = sysfs / "block" / disk / device;
  if (!fs::exists(partition / "partition")) {
    return std::nullopt;
  }
  return readNumber(partition / "start", 0) * 512;
}

std::string attachmentText(Attachment attachment) {
  return std::find_if(kAttachmentTexts.begin(), kAttachmentTexts.end(),
                      [&](const auto& entry) { return entry.first == attachment; })
      ->second;
}

Attachment attachmentFrom(const std::string& text) {
  const auto found = std::find_if(kAttachmentTexts.begin(), kAttachmentTexts.end(),
                                  [&](const auto& entry) { return entry.second == text; });
  return found == kAttachmentTexts.end() ? Attachment::VirtualDisk : found->first;
}

}  // namespace TarvexDiags::Storage
