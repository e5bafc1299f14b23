#include "diagctl/session/Configuration.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "System/SysUtil.h"
#include "diagctl/report/OpenedFile.h"
#include "diagctl/session/ComposedPackages.h"
#include "diagctl/session/ConfigurationText.h"
#include "diagctl/session/Folders.h"
#include "diagctl/session/PackageSettings.h"
#include "diagctl/session/Safety.h"
#include "diagctl/session/SettingOverrides.h"
#include "diagctl/terminal/Suggestion.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;

constexpr const char* kSettings = "Settings";
constexpr const char* kWatch = "Watch";
constexpr std::string_view kWatchPrefix = "watch.";

fs::path fromEnvironment(const char* variable, const char* belowHome) {
  const char* value = std::getenv(variable);
  if (value != nullptr && *value == '/') {
    return value;
  }
  const char* home = std::getenv("HOME");
  return home != nullptr && *home == '/' ? fs::path(home) / belowHome : fs::path();
}

// Whatever the umask allows others: root refuses a control file that they may write to.
void writeForOneself(const std::string& path, const std::string& text) {
  const OpenedFile file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  errno = file ? 0 : errno;
  if (!file || write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    const int error = errno == 0 ? ENOSPC : errno;
    throw std::runtime_error(
        tr("{}: cannot be written: {}", path, std::generic_category().message(error)));
  }
}

std::string contentOfControlFile(const std::string& path) {
  std::ifstream stream(path);
  std::ostringstream content;
  content << stream.rdbuf();
  if (!stream) {
    throw std::system_error(errno, std::generic_category(), path);
  }
  return content.str();
}

}  // namespace

namespace {

// With the line, as far as the key stands in one.
std::string placeOf(const std::string& file, const std::string& section, const std::string& key) {
  const auto text = ConfigurationText::read(file);
  for (const std::string& written : {key, std::string(kWatchPrefix) + key}) {
    if (const int line = text ? text->lineOf(section, written) : 0; line > 0) {
      return fmt::format("{}:{}", file, line);
    }
  }
  return file;
}

}  // namespace

ConfigurationFault::ConfigurationFault(const std::string& file, const std::string& section,
                                       const std::string& key, const std::string& reason)
    : std::runtime_error(
          fmt::format("{} [{}] {}: {}", placeOf(file, section, key), section, key, reason)),
      m_file(file),
      m_section(section),
      m_key(key),
      m_reason(reason) {}

fs::path userConfigurationDirectory() {
  return fromEnvironment("XDG_CONFIG_HOME", ".config");
}

Configuration Configuration::find(const std::optional<std::string>& named,
                                  const fs::path& systemDirectory) {
  RunFolder::removeAbandoned();
  if (named) {
    return Configuration(*named);
  }
  const fs::path user = userConfigurationDirectory();
  for (const fs::path& directory : {user, systemDirectory}) {
    const fs::path candidate = directory / "tarvexdiags" / "control.cfg";
    if (!directory.empty() && isThere(candidate)) {
      return Configuration(candidate.string());
    }
  }
  const fs::path packages = bundledPackages();
  if (packages.empty()) {
    throw std::runtime_error(tr(
        "no control file and no bundled packages were found; name a control file with --config"));
  }
  return make(packages);
}

Configuration Configuration::make(const fs::path& packages) {
  RunFolder::removeAbandoned();
  RunFolder folder;
  Configuration made((folder.path() / "control.cfg").string());
  const std::string text = embeddedControlFile(packages, folder.path());
  made.m_folder.emplace(std::move(folder));
  made.m_isEmbedded = true;
  writeForOneself(made.m_path, text);
  return made;
}

namespace {

std::vector<std::string> directoriesIn(const std::string& list) {
  if (list.find(':') == std::string::npos || isThere(list)) {
    return {list};
  }
  std::vector<std::string> directories;
  std::istringstream parts(list);
  for (std::string part; std::getline(parts, part, ':');) {
    if (!part.empty()) {
      directories.push_back(part);
    }
  }
  return directories;
}

std::string keyIn(const std::string& setting) {
  return setting.substr(0, setting.find('='));
}

// Of section Settings of a file.
SettingOverride overrideIn(const std::string& file, const std::string& setting) {
  const std::string key = keyIn(setting);
  try {
    SettingOverride override = parseOverride(setting);
    override.file = file;
    override.written = key;
    return override;
  } catch (const std::invalid_argument& fault) {
    throw ConfigurationFault(file, kSettings, key, fault.what());
  }
}

// The weakest first, as a later one replaces an earlier.
std::vector<SettingOverride> overridesOf(const std::string& controlFile,
                                         const Configuration::Wishes& wishes) {
  std::vector<SettingOverride> overrides;
  if (const auto text = ConfigurationText::read(controlFile)) {
    for (const auto& [key, value] : text->keys(kSettings)) {
      if (!key.starts_with(kWatchPrefix)) {
        overrides.push_back(overrideIn(controlFile, fmt::format("{}={}", key, value)));
      }
    }
  }
  for (const std::string& setting : wishes.planSettings) {
    overrides.push_back(overrideIn(wishes.planFile, setting));
  }
  for (const std::string& setting : wishes.settings) {
    overrides.push_back(parseOverride(setting));
  }
  return overrides;
}

/// The keys that a rule stands for.
std::vector<std::string> keysOf(const PackageKit::SettingRule& rule) {
  return rule.isQuickable ? std::vector<std::string>{rule.key, PackageKit::kQuickPrefix + rule.key}
                          : std::vector<std::string>{rule.key};
}

/// A "#" at the end of a rule's key stands for a number.
bool isKey(const std::string& word, const std::string& key) {
  return key.ends_with('#')
             ? word.size() >= key.size() && word.starts_with(key.substr(0, key.size() - 1))
             : word == key;
}

void requireTaken(const SettingOverride& override, const ComposedPackages& packages,
                  std::size_t index) {
  if (!packages.isTaken(index)) {
    throw std::invalid_argument(tr("there is no package '{}' to set '{}' of{}", override.package,
                                   override.key,
                                   didYouMean(override.package, packages.packages())));
  }
}

void requireKnown(const SettingOverride& override, const std::string& directory,
                  const std::string& package) {
  const std::vector<PackageKit::SettingRule> rules = settingRulesOf(directory, package);
  std::vector<std::string> known;
  for (const PackageKit::SettingRule& rule : rules) {
    if (override.test != 0 && rule.testId != 0 && rule.testId != override.test) {
      continue;
    }
    const std::vector<std::string> keys = keysOf(rule);
    const bool isMeant = std::any_of(
        keys.begin(), keys.end(), [&](const std::string& key) { return isKey(override.key, key); });
    if (isMeant && PackageKit::isValueOf(rule.kind, override.value)) {
      return;
    }
    if (isMeant) {
      throw std::invalid_argument(
          tr("{}.{}: '{}' is no value of it", override.package, override.key, override.value));
    }
    known.insert(known.end(), keys.begin(), keys.end());
  }
  if (!rules.empty() && !PackageKit::leavesKeysOpen(rules)) {
    throw std::invalid_argument(
        tr("{} reads no setting '{}'{}", package, override.key, didYouMean(override.key, known)));
  }
}

}  // namespace

std::vector<std::string> Configuration::packageDirectories() const {
  return m_directories.empty() ? directoriesIn(packageDirectoryOf(m_path)) : m_directories;
}

// Takes those of the watch out of the settings.
void Configuration::takeWatchSettings(const std::string& file, std::vector<std::string>& settings) {
  std::erase_if(settings, [&](const std::string& setting) {
    if (!setting.starts_with(kWatchPrefix)) {
      return false;
    }
    const std::size_t equals = setting.find('=');
    if (equals == std::string::npos) {
      throw std::invalid_argument(tr("'{}' is not watch.KEY=VALUE", setting));
    }
    m_watchSettings.push_back({file, file.empty() ? "" : kSettings,
                               keyIn(setting.substr(kWatchPrefix.size())),
                               setting.substr(equals + 1)});
    return true;
  });
}

Configuration Configuration::compose(Configuration base, const Wishes& asked) {
  Wishes wishes = asked;
  base.takeWatchSettings(wishes.planFile, wishes.planSettings);
  base.takeWatchSettings("", wishes.settings);
  const std::vector<std::string> directories = wishes.packageDirectories.empty()
                                                   ? directoriesIn(packageDirectoryOf(base.m_path))
                                                   : wishes.packageDirectories;
  const bool isPlain = wishes.packageDirectories.empty() && directories.size() < 2 &&
                       overridesOf(base.m_path, wishes).empty() && !hasOverlays();
  if (isPlain) {
    return base;
  }
  if (wishes.mustBeSecure) {
    requireSecurePath(base.m_path);  // before what it says is taken for true
  }
  const std::vector<SettingOverride> overrides = overridesOf(base.m_path, wishes);
  return putTogether(std::move(base), directories, overrides, wishes.mustBeSecure);
}

Configuration Configuration::putTogether(Configuration base,
                                         const std::vector<std::string>& directories,
                                         const std::vector<SettingOverride>& overrides,
                                         bool isSecure) {
  RunFolder::removeAbandoned();
  if (!base.m_folder) {
    base.m_folder.emplace();
  }
  const fs::path folder = base.m_folder->path();
  // As deep as run paths of packages lead upwards: they shall end in this folder, and not in the
  // one of everybody's temporary files.
  const fs::path place = folder / "composed" / "packages";
  ComposedPackages packages(place, overlayDirectories(), isSecure);
  for (const std::string& directory : directories) {
    packages.add(directory, overrides);
  }
  const std::string text =
      withValue(contentOfControlFile(base.m_path), "GlobalSettings", "PackDirPath", place.string());
  base.m_origin = base.m_path;
  base.m_path = (folder / "composed.cfg").string();
  base.m_directories = directories;
  base.m_overlays = packages.overlayFiles();
  writeForOneself(base.m_path, text);
  if (isSecure) {
    requireSecureFiles(base.m_path);  // before any code of a package is loaded to be asked
  }
  for (std::size_t index = 0; index < overrides.size(); ++index) {
    const SettingOverride& override = overrides[index];
    try {
      requireTaken(override, packages, index);
      requireKnown(override, place.string(), packages.packageOf(index));
    } catch (const std::invalid_argument& fault) {
      if (override.file.empty()) {
        throw;
      }
      throw ConfigurationFault(override.file, kSettings, override.written, fault.what());
    }
  }
  return base;
}

namespace {

// A key, or for what is told of a section as a whole, that section.
bool brings(const std::string& overlay, const std::string& description, const std::string& section,
            const std::string& key) {
  const auto text = ConfigurationText::read(overlay);
  const auto below = ConfigurationText::read(description);
  const auto has = [&](const std::optional<ConfigurationText>& file) {
    const std::vector<std::string> names = file ? file->sections() : std::vector<std::string>();
    return std::find(names.begin(), names.end(), section) != names.end();
  };
  return key.empty() ? has(text) && !has(below) : text && text->keys(section).contains(key);
}

}  // namespace

std::string Configuration::sourceOf(const std::string& place, const std::string& section,
                                    const std::string& key) const {
  // The line of a file that was put together is nobody's.
  const std::size_t line = place.rfind(".cfg:");
  const std::string file = line == std::string::npos ? place : place.substr(0, line + 4);
  const std::string folder = m_origin.empty() ? "" : packageDirectoryOf(m_path) + "/";
  if ((!m_origin.empty() && file == m_path) || (m_isEmbedded && file == source())) {
    return origin();
  }
  if (folder.empty() || !file.starts_with(folder)) {
    return place;
  }
  const fs::path name = file.substr(folder.size());
  const auto directory =
      std::find_if(m_directories.begin(), m_directories.end(),
                   [&](const std::string& each) { return isThere(fs::path(each) / name); });
  std::string written =
      directory != m_directories.end() ? (fs::path(*directory) / name).string() : file;
  for (auto overlay = m_overlays.rbegin(); overlay != m_overlays.rend(); ++overlay) {
    if (fs::path(*overlay).filename() == name && brings(*overlay, written, section, key)) {
      return *overlay;
    }
  }
  return written;
}

std::string Configuration::withSourcesIn(std::string text) const {
  if (m_origin.empty()) {
    return text;
  }
  const std::string folder = packageDirectoryOf(m_path) + "/";
  for (const std::string& begin : {m_path, folder}) {
    for (std::size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at)) {
      const std::size_t end = std::min(text.find_first_of(" :;,'\"()\n", at), text.size());
      const std::string written = sourceOf(text.substr(at, end - at), "", "");
      text.replace(at, end - at, written);
      at += written.size();
    }
  }
  return text;
}

std::vector<Configuration::WatchSetting> Configuration::watchSettings() const {
  std::vector<WatchSetting> settings;
  if (const auto text = ConfigurationText::read(m_path)) {
    for (const auto& [key, value] : text->keys(kWatch)) {
      settings.push_back({source(), kWatch, key, value});
    }
    for (const auto& [key, value] : text->keys(kSettings)) {
      if (key.starts_with(kWatchPrefix)) {
        settings.push_back({source(), kSettings, key.substr(kWatchPrefix.size()), value});
      }
    }
  }
  settings.insert(settings.end(), m_watchSettings.begin(), m_watchSettings.end());
  return settings;
}

std::string Configuration::origin() const {
  return isEmbedded() ? tr("the built-in configuration for the bundled packages") : source();
}

namespace {

// Beside the program's directory in a build tree, under lib in an installed one.
fs::path besideProgram(const char* group) {
  std::error_code failure;
  const fs::path program = fs::read_symlink("/proc/self/exe", failure);
  if (failure) {
    return {};
  }
  const fs::path above = program.parent_path().parent_path();
  for (const fs::path& candidate : {above / group, above / "lib/tarvexdiags" / group,
                                    above / TARVEX_LIBDIR / "tarvexdiags" / group}) {
    if (isThere(candidate)) {
      return candidate;
    }
  }
  return {};
}

}  // namespace

namespace {

std::string globalSetting(const std::string& controlFile, const char* key) {
  std::string value;
  System::SysUtil::ReadCfgFile("GlobalSettings", key, value, controlFile, -1);
  return value;
}

}  // namespace

std::string packageDirectoryOf(const std::string& controlFile) {
  return globalSetting(controlFile, "PackDirPath");
}

std::string logDirectoryOf(const std::string& controlFile) {
  return globalSetting(controlFile, "LogDirPath");
}

fs::path bundledPackages() {
  return besideProgram("packages");
}

fs::path selfTestPackages() {
  return besideProgram("selftest");
}

std::string embeddedControlFile(const fs::path& packages, const fs::path& logs) {
  return fmt::format(
      "[GlobalSettings]\n"
      "PackDirPath={}\n"
      "LogDirPath={}\n"
      "DebugLog=DIAG_NO\n"
      "RunMode=PARALLEL\n"
      "DiagLog=FALSE\n"
      "HaltOnError=FALSE\n"
      "DiagnosticMode=CUSTOMER\n",
      packages.string(), logs.string());
}

}  // namespace TarvexDiags::FrontEnd
