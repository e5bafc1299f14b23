#include "diagctl/session/MountTable.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kRoot = "0";
constexpr const char* kUnknown = "?";

/// The number of the mount that a file lies in; 0 for one that the kernel does not tell.
std::uint64_t mountOf(const OpenedFile& file) {
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

std::string optionIn(const std::string& options, const std::string& key) {
  std::istringstream list(options);
  for (std::string option; std::getline(list, option, ',');) {
    if (option.starts_with(key)) {
      return option.substr(key.size());
    }
  }
  return kUnknown;
}

}  // namespace

std::string serverIn(std::string_view line) {
  static constexpr std::string_view kSeparator = " - ";  // blanks within names are written out
  const std::size_t separator = line.find(kSeparator);
  if (separator == std::string_view::npos) {
    return "";
  }
  std::istringstream fields(std::string(line.substr(separator + kSeparator.size())));
  std::string type;
  std::string
      source;  // as its mounter says, with every white space in it but blank, tab and line feed
  std::string options;
  std::getline(fields, type, ' ');
  std::getline(fields, source, ' ');
  std::getline(fields, options, ' ');
  const bool isServed = type == "fuse" || type == "fuseblk" || type.starts_with("fuse.") ||
                        type.starts_with("fuseblk.");
  return isServed ? optionIn(options, "user_id=") : "";
}

MountTable::MountTable() {
  read();
}

void MountTable::read() {
  std::ifstream table("/proc/self/mountinfo");
  for (std::string line; std::getline(table, line);) {
    m_servers[std::strtoull(line.c_str(), nullptr, 10)] = serverIn(line);
  }
}

std::optional<std::string> MountTable::strangerServing(const OpenedFile& file) {
  const std::uint64_t mount = mountOf(file);
  if (!m_servers.contains(mount)) {
    read();  // it came since
  }
  const auto found = m_servers.find(mount);
  if (found == m_servers.end()) {  // it is above what this process may see
    return mayBeServedByProgram(file) ? std::optional<std::string>(kUnknown) : std::nullopt;
  }
  const bool isStranger = !found->second.empty() && found->second != kRoot;
  return isStranger ? std::optional(found->second) : std::nullopt;
}

}  // namespace TarvexDiags::FrontEnd
