#include "diagctl/session/PackageFiles.h"

#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace TarvexDiags::FrontEnd {

namespace fs = std::filesystem;

std::string descriptionOf(const std::string& directory, const std::string& package) {
  return directory + "/" + package + ".cfg";
}

std::string libraryOf(const std::string& directory, const std::string& package) {
  return directory + "/lib" + package + ".so";
}

std::set<std::string> packagesIn(const std::string& directory) {
  std::set<std::string> names;
  std::error_code failure;
  for (fs::directory_iterator entry(directory, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    const std::string name = entry->path().stem();
    if (entry->path().extension() == ".cfg" &&
        access(libraryOf(directory, name).c_str(), R_OK) == 0) {
      names.insert(name);
    }
  }
  return names;
}

}  // namespace TarvexDiags::FrontEnd
