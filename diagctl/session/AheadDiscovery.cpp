#include "diagctl/session/AheadDiscovery.h"

#include <dlfcn.h>

#include <charconv>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <set>
#include <system_error>

#include "System/SysUtil.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/session/PackageFiles.h"
#include "packagekit/contract/DiscoveryLines.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

// Beyond it, reading a control file takes more time than would be saved.
constexpr int kMostDisabled = 1000;
// Each takes a thread and two processes; the rest comes one after the other.
constexpr std::size_t kMostAhead = 64;

std::string valueOf(const std::string& file, const std::string& section, const std::string& key) {
  std::string value;
  System::SysUtil::ReadCfgFile(section, key, value, file, -1);
  return value;
}

// Nothing when there are too many to look at.
std::optional<std::set<std::string>> disabledPackages(const std::string& controlFile) {
  const std::string text = valueOf(controlFile, "DisablePackage", "NumPackages");
  int count = 0;
  std::from_chars(text.data(), text.data() + text.size(), count);
  if (count > kMostDisabled) {
    return std::nullopt;
  }
  std::set<std::string> names;
  for (int number = 1; number <= count; ++number) {
    names.insert(valueOf(controlFile, "Package" + std::to_string(number), "PackageName"));
  }
  return names;
}

}  // namespace

AheadDiscovery::AheadDiscovery(const std::string& controlFile)
    : m_logDirectory(logDirectoryOf(controlFile)) {
  const auto disabled = disabledPackages(controlFile);
  if (!disabled) {
    return;
  }
  const std::string directory = packageDirectoryOf(controlFile);
  for (const std::string& name : packagesIn(directory)) {
    const std::string library = libraryOf(directory, name);
    std::error_code failure;
    // A pipe of that name would wait for a writer.
    if (!disabled->contains(name) && m_packages.size() < kMostAhead &&
        fs::is_regular_file(library, failure)) {
      if (void* const opened = dlopen(library.c_str(), RTLD_NOW)) {
        m_packages.push_back({descriptionOf(directory, name), opened});
      }
    }
  }
}

AheadDiscovery::~AheadDiscovery() {
  for (const Package& package : m_packages) {
    dlclose(package.library);
  }
}

void AheadDiscovery::begin(DiagCtrl::GlobalSettings::diagMode mode) const {
  using Begin = void (*)(const char*, const char*, DiagCtrl::GlobalSettings::diagMode);
  for (const Package& package : m_packages) {
    if (void* const address = dlsym(package.library, PackageKit::Contract::kBeginDiscovery)) {
      reinterpret_cast<Begin>(address)(package.description.c_str(),
                                       m_logDirectory.empty() ? nullptr : m_logDirectory.c_str(),
                                       mode);
    }
  }
}

}  // namespace TarvexDiags::FrontEnd
