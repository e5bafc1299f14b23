#include "diagctl/session/MountTable.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <vector>

#include "diagctl/session/Medium.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kRoot = "0";
constexpr const char* kUnknown = "?";

/// The number of the mount that a file lies in; 0 for one that the kernel does not tell.
std::uint64_t mountNumberOf(const OpenedFile& file) {
  struct statx info {};
  const bool isKnown =
      statx(file.get(), "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_MNT_ID, &info) == 0 &&
      (info.stx_mask & STATX_MNT_ID) != 0;
  return isKnown ? info.stx_mnt_id : 0;
}

// A program may also fail to answer.
bool mayBeServedByProgram(const OpenedFile& file) {
  struct statfs system {};
  return fstatfs(file.get(), &system) != 0 || system.f_type == FUSE_SUPER_MAGIC;
}

std::vector<std::string> partsOf(std::string_view text, char separator) {
  std::vector<std::string> parts;
  std::istringstream list{std::string(text)};
  for (std::string part; std::getline(list, part, separator);) {
    parts.push_back(part);
  }
  return parts;
}

std::string optionIn(const std::string& options, const std::string& key) {
  for (const std::string& option : partsOf(options, ',')) {
    if (option.starts_with(key)) {
      return option.substr(key.size());
    }
  }
  return kUnknown;
}

/// A line of the table. The source is as its mounter says, with every white space in it but blank,
/// tab and line feed.
struct Line {
  std::vector<std::string> place;  ///< the mount's number, parent, device, root, directory, options
  std::string type;
  std::string source;
  std::string options;
};

Line lineFrom(std::string_view text) {
  static constexpr std::string_view kSeparator = " - ";  // blanks within names are written out
  const std::size_t separator = text.find(kSeparator);
  if (separator == std::string_view::npos) {
    return {};
  }
  std::vector<std::string> system = partsOf(text.substr(separator + kSeparator.size()), ' ');
  system.resize(3);
  return {partsOf(text.substr(0, separator), ' '), system[0], system[1], system[2]};
}

}  // namespace

std::string serverIn(std::string_view line) {
  const Line mount = lineFrom(line);
  const bool isServed = mount.type == "fuse" || mount.type == "fuseblk" ||
                        mount.type.starts_with("fuse.") || mount.type.starts_with("fuseblk.");
  return isServed ? optionIn(mount.options, "user_id=") : "";
}

std::string deviceWithoutSetUidIn(std::string_view line) {
  constexpr std::size_t device = 2;
  constexpr std::size_t options = 5;
  const Line mount = lineFrom(line);
  if (mount.place.size() <= options) {
    return "";
  }
  const std::vector<std::string> set = partsOf(mount.place[options], ',');
  if (std::find(set.begin(), set.end(), "nosuid") == set.end()) {
    return "";
  }
  const bool isAnonymous = mount.place[device].starts_with("0:");
  return isAnonymous ? (mount.source.starts_with("/dev/") ? mount.source : "")
                     : mount.place[device];
}

MountTable::MountTable() {
  read();
}

void MountTable::read() {
  std::ifstream table("/proc/self/mountinfo");
  for (std::string line; std::getline(table, line);) {
    m_mounts[std::strtoull(line.c_str(), nullptr, 10)] = {serverIn(line),
                                                          deviceWithoutSetUidIn(line)};
  }
}

const MountTable::Mount* MountTable::mountOf(const OpenedFile& file) {
  const std::uint64_t number = mountNumberOf(file);
  if (!m_mounts.contains(number)) {
    read();  // it came since
  }
  const auto found = m_mounts.find(number);
  return found == m_mounts.end() ? nullptr : &found->second;
}

std::optional<std::string> MountTable::strangerServing(const OpenedFile& file) {
  const Mount* const mount = mountOf(file);
  if (mount == nullptr) {
    return mayBeServedByProgram(file) ? std::optional<std::string>(kUnknown) : std::nullopt;
  }
  const bool isStranger = !mount->server.empty() && mount->server != kRoot;
  return isStranger ? std::optional(mount->server) : std::nullopt;
}

bool MountTable::isOnMediumOfOthers(const OpenedFile& file) {
  const Mount* const mount = mountOf(file);
  return mount != nullptr && !mount->device.empty() && isWrittenElsewhere(mount->device);
}

}  // namespace TarvexDiags::FrontEnd
