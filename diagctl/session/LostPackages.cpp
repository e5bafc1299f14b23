#include "diagctl/session/LostPackages.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "diagctl/session/PackageFiles.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

// What the loader has against a library; empty for nothing.
std::string findLoadFault(const std::string& library) {
  void* const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    return dlerror();
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
      lost.push_back({name, failures.at(name)});
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
