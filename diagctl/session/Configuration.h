#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "diagctl/session/RunFolder.h"

namespace TarvexDiags::FrontEnd {

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

  const std::string& path() const { return m_path; }
  bool isEmbedded() const { return m_folder.has_value(); }
  /// Where the file comes from, for people.
  std::string origin() const;

 private:
  explicit Configuration(std::string path) : m_path(std::move(path)) {}

  std::string m_path;
  std::optional<RunFolder> m_folder;
};

/// The directory of packages that a control file names; empty if it names none.
std::string packageDirectoryOf(const std::string& controlFile);

/// The directory of the packages that come with the program, found from where the program lies:
/// beside it in a build tree, under lib in an installed one. Empty if there is none.
std::filesystem::path bundledPackages();

/// The directory of the package for the self-test, beside that of the bundled packages.
std::filesystem::path selfTestPackages();

/// The text of the control file that is made when there is none.
std::string embeddedControlFile(const std::filesystem::path& packages,
                                const std::filesystem::path& logs);

}  // namespace TarvexDiags::FrontEnd
