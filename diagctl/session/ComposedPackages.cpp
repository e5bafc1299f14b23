#include "diagctl/session/ComposedPackages.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "diagctl/session/Configuration.h"
#include "diagctl/session/ConfigurationText.h"
#include "diagctl/session/Folders.h"
#include "diagctl/session/Safety.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Capabilities.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;
namespace Contract = PackageKit::Contract;

constexpr const char* kOverlays = "tarvexdiags/packages.d";
constexpr const char* kCapabilities = "TestCapabilities";

std::string contentOf(const fs::path& file) {
  std::string reason;
  if (!ConfigurationText::read(file.string(), reason)) {  // a pipe would keep the next line waiting
    throw std::runtime_error(fmt::format("{}: {}", file.string(), reason));
  }
  std::ifstream stream(file);
  std::ostringstream content;
  content << stream.rdbuf();
  return content.str();
}

std::vector<fs::path> readableEntriesOf(const fs::path& directory) {
  std::error_code failure;
  std::vector<fs::path> entries = entriesOf(directory, failure);
  if (failure) {
    throw std::system_error(failure, directory.string());
  }
  return entries;
}

bool isSameWord(const std::string& one, const std::string& other) {
  return strcasecmp(one.c_str(), other.c_str()) == 0;
}

bool isDestructive(const ConfigurationText& description, const std::string& section) {
  return Contract::hasCapability(description.value(section, kCapabilities).value_or(""),
                                 Contract::kDestructive);
}

/// The section of a test that took its device out of service and no longer says so; empty for none:
/// nobody would be asked any more before it runs.
std::string unmarkedIn(const std::string& before, const std::string& after) {
  const ConfigurationText old = ConfigurationText::parse(before);
  const ConfigurationText present = ConfigurationText::parse(after);
  const std::vector<std::string> sections = old.sections();
  const auto found =
      std::find_if(sections.begin(), sections.end(), [&](const std::string& section) {
        return isDestructive(old, section) && !isDestructive(present, section);
      });
  return found == sections.end() ? std::string() : *found;
}

std::string reasonFor(const std::string& section) {
  return tr("[{}] of the package has the word '{}' there, which no setting takes away", section,
            std::string(Contract::kDestructive));
}

std::string overlaid(const std::string& description, const std::string& overlay) {
  std::string changed = withOverlay(description, overlay);
  if (const std::string section = unmarkedIn(description, changed); !section.empty()) {
    throw ConfigurationFault(overlay, section, kCapabilities, reasonFor(section));
  }
  return changed;
}

std::string overridden(const std::string& description, const SettingOverride& override) {
  std::string changed = withOverride(description, override);
  const std::string section = unmarkedIn(description, changed);
  if (section.empty()) {
    return changed;
  }
  if (override.file.empty()) {
    throw std::invalid_argument(
        fmt::format("{}.{}: {}", override.package, override.key, reasonFor(section)));
  }
  throw ConfigurationFault(override.file, "Settings", override.written, reasonFor(section));
}

bool isMeant(const SettingOverride& override, const std::string& baseName, const fs::path& file) {
  const auto text = ConfigurationText::read(file.string());
  return isSameWord(override.package, baseName) ||
         (text &&
          (isSameWord(override.package, text->value("Package", "Mnemonic").value_or("")) ||
           isSameWord(override.package, text->value("Package", "PackageName").value_or(""))));
}

}  // namespace

std::vector<std::string> overlayDirectories() {
  std::vector<std::string> directories{fmt::format("/etc/{}", kOverlays)};
  if (const fs::path user = userConfigurationDirectory(); !user.empty()) {
    directories.push_back((user / kOverlays).string());
  }
  return directories;
}

// The packages themselves are not looked at: nobody has told yet whom they belong to.
bool hasOverlays() {
  for (const std::string& directory : overlayDirectories()) {
    std::error_code failure;
    for (fs::directory_iterator entry(directory, failure), end; !failure && entry != end;
         entry.increment(failure)) {
      if (entry->path().extension() == ".cfg") {
        return true;
      }
    }
  }
  return false;
}

void ComposedPackages::add(const fs::path& directory,
                           const std::vector<SettingOverride>& overrides) {
  inspect(directory.string());
  makeOwnFolders(m_place);
  for (const fs::path& entry : readableEntriesOf(directory)) {
    std::error_code ignored;
    if (entry.extension() == ".cfg") {
      addDescription(entry, overrides);
    } else if (fs::is_directory(entry, ignored)) {
      addTexts(entry);
    } else {
      link(entry, entry.filename());
    }
  }
}

void ComposedPackages::addDescription(const fs::path& file,
                                      const std::vector<SettingOverride>& overrides) {
  const fs::path target = m_place / file.filename();
  if (isThere(target)) {
    return;
  }
  inspect(file.string());
  const std::string original = contentOf(file);
  std::string description = original;
  for (const std::string& overlays : m_overlays) {
    const std::string overlay = (fs::path(overlays) / file.filename()).string();
    if (isThere(overlay)) {
      inspect(overlay);
      description = overlaid(description, overlay);
      m_overlayFiles.push_back(overlay);
    }
  }
  const std::string baseName = file.stem().string();
  m_packages.push_back(baseName);
  for (std::size_t index = 0; index < overrides.size(); ++index) {
    if (isMeant(overrides[index], baseName, file)) {
      description = overridden(description, overrides[index]);
      m_taken.emplace_back(index, baseName);
    }
  }
  if (description == original) {
    link(file, file.filename());
    return;
  }
  std::ofstream stream(target);
  stream << description;
  stream.close();
  if (!stream) {
    throw std::runtime_error(tr("{}: cannot be written", target.string()));
  }
  fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
}

// Those of a language, from each directory of packages.
void ComposedPackages::addTexts(const fs::path& directory) {
  makeOwnFolders(m_place / directory.filename());
  for (const fs::path& entry : readableEntriesOf(directory)) {
    link(entry, directory.filename() / entry.filename());
  }
}

void ComposedPackages::link(const fs::path& target, const fs::path& name) const {
  if (!isThere(m_place / name)) {
    fs::create_symlink(fs::absolute(target), m_place / name);
  }
}

void ComposedPackages::inspect(const std::string& path) const {
  if (m_isSecure) {
    requireSecurePath(path);
  }
}

std::string ComposedPackages::packageOf(std::size_t override) const {
  const auto found = std::find_if(m_taken.begin(), m_taken.end(),
                                  [&](const auto& taken) { return taken.first == override; });
  return found != m_taken.end() ? found->second : std::string();
}

bool ComposedPackages::isTaken(std::size_t override) const {
  return !packageOf(override).empty();
}

}  // namespace TarvexDiags::FrontEnd
