#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "diagctl/session/SettingOverrides.h"

namespace TarvexDiags::FrontEnd {

/// A directory of packages that is put together below another: links to all that several
/// directories hold, and descriptions of its own where settings differ. Of two packages of one name
/// that of the first directory counts.
class ComposedPackages {
 public:
  /// @param place is made. @param overlays directories with `<package>.cfg`, the weakest first.
  /// @param isSecure refuse what others than root could change, before it is read.
  /// @throws std::runtime_error, InsecureFiles.
  ComposedPackages(std::filesystem::path place, const std::vector<std::string>& overlays,
                   bool isSecure)
      : m_place(std::move(place)), m_overlays(overlays), m_isSecure(isSecure) {}

  void add(const std::filesystem::path& directory, const std::vector<SettingOverride>& overrides);

  /// The files of settings that were taken in.
  const std::vector<std::string>& overlayFiles() const { return m_overlayFiles; }
  /// The overrides whose package was found, by their place in the list.
  bool isTaken(std::size_t override) const;
  /// Base names of packages, for the messages of whoever asks for another.
  const std::vector<std::string>& packages() const { return m_packages; }
  /// The base name of the package that an override means; empty if there is none.
  std::string packageOf(std::size_t override) const;

 private:
  void addDescription(const std::filesystem::path& file,
                      const std::vector<SettingOverride>& overrides);
  void addTexts(const std::filesystem::path& directory);
  void link(const std::filesystem::path& target, const std::filesystem::path& name) const;
  void inspect(const std::string& path) const;

  const std::filesystem::path m_place;
  const std::vector<std::string> m_overlays;
  const bool m_isSecure;
  std::vector<std::string> m_overlayFiles;
  std::vector<std::string> m_packages;
  std::vector<std::pair<std::size_t, std::string>> m_taken;  ///< override and package
};

/// Overlays for packages: those of the machine and of the user, the weakest first.
std::vector<std::string> overlayDirectories();

/// Whether any overlay is there.
bool hasOverlays();

}  // namespace TarvexDiags::FrontEnd
