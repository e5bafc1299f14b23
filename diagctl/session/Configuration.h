#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "diagctl/session/RunFolder.h"
#include "diagctl/session/SettingOverrides.h"

namespace TarvexDiags::FrontEnd {

/// Something that a control file or a plan says and nobody can do.
class ConfigurationFault : public std::runtime_error {
 public:
  ConfigurationFault(const std::string& file, const std::string& section, const std::string& key,
                     const std::string& reason);

  const std::string& file() const { return m_file; }
  const std::string& section() const { return m_section; }
  const std::string& key() const { return m_key; }
  const std::string& reason() const { return m_reason; }

 private:
  std::string m_file;
  std::string m_section;
  std::string m_key;
  std::string m_reason;
};

/// The control file that a session works with: the one that was named, else the first that exists
/// of $XDG_CONFIG_HOME/tarvexdiags/control.cfg (~/.config without the variable) and
/// /etc/tarvexdiags/control.cfg, else one made for the packages that come with the program.
class Configuration {
 public:
  /// @param named the file of --config. @param systemDirectory of the whole machine.
  /// @throws std::runtime_error if no packages are found for a file that is made, or it cannot be
  ///   written.
  static Configuration find(const std::optional<std::string>& named,
                            const std::filesystem::path& systemDirectory = "/etc");

  /// Makes one for a directory of packages; file and logs go with the object.
  static Configuration make(const std::filesystem::path& packages);

  /// What is asked for beside the control file.
  struct Wishes {
    std::vector<std::string> packageDirectories = {};  ///< instead of its own; empty: those
    /// "PACKAGE.KEY=VALUE"; those of "watch" are of the watch over the machine.
    std::vector<std::string> settings = {};
    std::string planFile = {};                   ///< of a named plan
    std::vector<std::string> planSettings = {};  ///< in its section Settings, as above
    bool mustBeSecure = false;  ///< refuse what others than root could change, before it is read
  };

  /// The same with other packages and settings, as far as any are asked for, the control file has a
  /// list of directories between colons, or overlays stand in /etc/tarvexdiags/packages.d or
  /// $XDG_CONFIG_HOME/tarvexdiags/packages.d. What holds is, the strongest first: the settings,
  /// those of the plan, section Settings of the control file, overlays, descriptions. The packages
  /// are put together in a directory that goes with the object.
  /// @throws std::invalid_argument for settings that are asked for and no package has;
  ///   ConfigurationFault for those of the control file and the plan; std::runtime_error.
  static Configuration compose(Configuration base, const Wishes& asked);

  const std::string& path() const { return m_path; }
  /// The directories of packages, and the files of settings over their descriptions.
  std::vector<std::string> packageDirectories() const;
  const std::vector<std::string>& overlays() const { return m_overlays; }
  /// A setting of the watch over the machine.
  struct WatchSetting {
    std::string file;     ///< the control file or a plan; empty: asked for beside them
    std::string section;  ///< of the file
    std::string key;
    std::string value;
  };
  /// Those of the control file, its section Watch first, then of the plan, then those that were
  /// asked for.
  std::vector<WatchSetting> watchSettings() const;

  bool isEmbedded() const { return m_isEmbedded; }
  /// The control file before it was composed.
  const std::string& source() const { return m_origin.empty() ? m_path : m_origin; }
  /// Where the file comes from, for people.
  std::string origin() const;
  /// What somebody wrote of a file that was put together, and is gone with the object: the overlay
  /// with the key, else the description, or the control file. Any other file is itself.
  /// @param place a file, perhaps with a line behind a colon.
  std::string sourceOf(const std::string& place, const std::string& section,
                       const std::string& key) const;
  /// A text for people with such files instead of those that were put together.
  std::string withSourcesIn(std::string text) const;

 private:
  static Configuration putTogether(Configuration base, const std::vector<std::string>& directories,
                                   const std::vector<SettingOverride>& overrides, bool isSecure);

  void takeWatchSettings(const std::string& file, std::vector<std::string>& settings);

  explicit Configuration(std::string path) : m_path(std::move(path)) {}

  std::string m_path;
  bool m_isEmbedded = false;
  std::string m_origin;  ///< the control file that was composed
  std::vector<std::string> m_directories;
  std::vector<std::string> m_overlays;
  std::vector<WatchSetting> m_watchSettings;  ///< of the plan, and those that were asked for
  std::optional<RunFolder> m_folder;
};

/// Where the user's own configuration lies; empty if that cannot be told.
std::filesystem::path userConfigurationDirectory();

/// The directory of packages that a control file names; empty if it names none.
std::string packageDirectoryOf(const std::string& controlFile);

/// The directory for logs that it names; the same.
std::string logDirectoryOf(const std::string& controlFile);

/// The directory of the packages that come with the program, found from where the program lies:
/// beside it in a build tree, under lib in an installed one. Empty if there is none.
std::filesystem::path bundledPackages();

/// The directory of the package for the self-test, beside that of the bundled packages.
std::filesystem::path selfTestPackages();

/// The text of the control file that is made when there is none.
std::string embeddedControlFile(const std::filesystem::path& packages,
                                const std::filesystem::path& logs);

}  // namespace TarvexDiags::FrontEnd
