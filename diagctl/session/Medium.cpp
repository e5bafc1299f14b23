#include "diagctl/session/Medium.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <system_error>

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

constexpr int kMostLayers = 16;  // of devices made of others; the kernel has no circles

std::string firstWordOf(const fs::path& file) {
  std::string word;
  std::ifstream(file) >> word;
  return word;
}

std::string numberOf(const std::string& device) {
  struct stat info {};
  if (!device.starts_with('/')) {
    return device;
  }
  if (stat(device.c_str(), &info) != 0 || !S_ISBLK(info.st_mode)) {
    return "";
  }
  return std::to_string(major(info.st_rdev)) + ":" + std::to_string(minor(info.st_rdev));
}

/// A part of the way to a device, such as "usb2".
bool isOpenBus(const std::string& part) {
  const auto isNumbered = [&](const std::string& bus) {
    return part.size() > bus.size() && part.starts_with(bus) &&
           std::all_of(part.begin() + static_cast<std::ptrdiff_t>(bus.size()), part.end(),
                       [](unsigned char letter) { return std::isdigit(letter) != 0; });
  };
  return isNumbered("usb") || isNumbered("fw");
}

bool isTakenOut(const fs::path& disk, const fs::path& sysfs) {
  const fs::path way = disk.lexically_relative(sysfs);
  // The slot of a memory card does not say that its card is taken out.
  return std::any_of(way.begin(), way.end(),
                     [](const fs::path& part) { return isOpenBus(part); }) ||
         firstWordOf(disk / "removable") == "1" || firstWordOf(disk / "device/type") == "SD";
}

bool isOthersNode(const fs::path& node, const fs::path& sysfs, int layers) {
  std::error_code failure;
  const fs::path disk = fs::exists(node / "partition", failure) ? node.parent_path() : node;
  if (isTakenOut(disk, sysfs) || fs::exists(disk / "loop/backing_file", failure)) {
    return true;
  }
  if (layers == 0) {
    return false;
  }
  const fs::directory_iterator below(disk / "slaves", failure);
  return std::any_of(begin(below), end(below), [&](const fs::directory_entry& entry) {
    const fs::path lower = fs::canonical(entry.path(), failure);
    return !lower.empty() && isOthersNode(lower, sysfs, layers - 1);
  });
}

}  // namespace

bool isWrittenElsewhere(const std::string& device, const fs::path& sysfs) {
  std::error_code failure;
  const std::string number = numberOf(device);
  const fs::path node = fs::canonical(sysfs / "dev/block" / number, failure);
  return !number.empty() && !failure &&
         isOthersNode(node, fs::canonical(sysfs, failure), kMostLayers);
}

}  // namespace TarvexDiags::FrontEnd
