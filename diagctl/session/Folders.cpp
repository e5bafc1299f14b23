#include "diagctl/session/Folders.h"

#include <algorithm>

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

}  // namespace TarvexDiags::FrontEnd
