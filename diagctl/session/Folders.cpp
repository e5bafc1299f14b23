#include "diagctl/session/Folders.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

namespace TarvexDiags::FrontEnd {

namespace fs = std::filesystem;

bool isThere(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

std::vector<fs::path> entriesOf(const fs::path& folder, std::error_code& failure) {
  std::vector<fs::path> entries;
  for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    entries.push_back(entry->path());
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

void makeOwnFolders(const fs::path& path) {
  constexpr mode_t kOthersRead = 0755;
  fs::path folder;
  for (const fs::path& name : path) {
    folder /= name;
    if (name.empty() || fs::is_directory(folder)) {
      continue;
    }
    const bool isMade = mkdir(folder.c_str(), kOthersRead) == 0;
    const int error = isMade ? 0 : errno;
    if (!isMade && !(error == EEXIST && fs::is_directory(folder))) {
      throw fs::filesystem_error("", path, std::error_code(error, std::generic_category()));
    }
  }
}

}  // namespace TarvexDiags::FrontEnd
