#include "diagctl/session/LostPackages.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

#include "diagctl/session/PackageFiles.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

// Where packages of several directories were put together, a library is a link to the one that
// somebody knows.
std::string named(std::string text, const std::string& library) {
  std::error_code failure;
  const std::string target = std::filesystem::read_symlink(library, failure).string();
  for (std::size_t at = failure ? std::string::npos : text.find(library); at != std::string::npos;
       at = text.find(library, at + target.size())) {
    text.replace(at, library.size(), target);
  }
  return text;
}

// What the loader has against a library; empty for nothing.
std::string findLoadFault(const std::string& library) {
  void* const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    return named(dlerror(), library);
  }
  dlclose(handle);
  return {};
}

std::string reasonOf(const std::string& told, const std::string& library) {
  const std::string fault = findLoadFault(library);
  const std::string reason =
      told.empty() ? tr("it could not tell its devices and tests; look into its log") : told;
  return fault.empty() ? reason : fmt::format("{} ({})", reason, fault);
}

}  // namespace

std::vector<LostPackage> findLostPackages(const std::string& directory, const Catalogue& catalogue,
                                          const std::vector<std::string>& told,
                                          const std::map<std::string, std::string>& failures) {
  std::set<std::string> names = packagesIn(directory);
  for (const PackageItem& package : catalogue.packages) {
    names.erase(package.baseName);
  }
  for (const std::string& name : catalogue.disabledPackages) {
    names.erase(name);
  }
  const auto hasOwn = [&failures](const std::string& name) { return failures.contains(name); };
  const auto others =
      names.size() - static_cast<std::size_t>(std::count_if(names.begin(), names.end(), hasOwn));
  auto next = told.begin();
  std::vector<LostPackage> lost;
  for (const std::string& name : names) {
    if (hasOwn(name)) {
      lost.push_back({name, named(failures.at(name), libraryOf(directory, name))});
    } else {
      const std::string which = told.size() == others ? *next++ : "";
      lost.push_back({name, reasonOf(which, libraryOf(directory, name))});
    }
  }
  return lost;
}

std::string describe(const LostPackage& package) {
  return tr("package {} was left out: {}", package.baseName, package.reason);
}

}  // namespace TarvexDiags::FrontEnd
