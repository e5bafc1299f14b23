#pragma once

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "tests/support/ConfigText.h"
#include "tests/support/PackageConfig.h"
#include "tests/support/Places.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/scripted/Script.h"

namespace TarvexDiags::TestSupport {

/// A directory of packages: for each a configuration file and a shared object, and below it a
/// directory for each language.
///
///   PackageDirectory packages;
///   Script& alpha = packages.add("ALPHA", PackageConfig(3));
///   packages.addLanguage("ALPHA", "en", {{"TOKEN_OK", "All is well"}});
class PackageDirectory {
 public:
  /// A scripted package. Needs the target scripted_package (MODULES of tarvex_add_test).
  Scripted::Script& add(const std::string& name, const PackageConfig& config = PackageConfig()) {
    return add(name, config, modulePath("scripted_package"));
  }

  /// A package with another shared object.
  Scripted::Script& add(const std::string& name, const PackageConfig& config,
                        const std::string& sharedObject) {
    writeConfig(name, config);
    copyLibrary(name, sharedObject);
    return Scripted::Script::of(name);
  }

  /// Writes the configuration file, over what was there.
  void writeConfig(const std::string& name, const PackageConfig& config) const {
    config.writeTo(m_directory, name + ".cfg");
  }

  /// Puts a shared object in place. Each copy is an object of its own to the loader.
  void copyLibrary(const std::string& name, const std::string& sharedObject) const {
    // A new file: a process that has the former one mapped keeps it.
    std::filesystem::remove(libraryPath(name));
    std::filesystem::copy_file(sharedObject, libraryPath(name));
  }

  void removeLibrary(const std::string& name) const { std::filesystem::remove(libraryPath(name)); }

  /// The texts of a package in a language.
  void addLanguage(const std::string& name, const std::string& language,
                   const std::map<std::string, std::string>& texts) const {
    ConfigText text;
    for (const auto& [token, value] : texts) {
      text.set(language, token, value);
    }
    m_directory.makeDirectory(language);
    text.writeTo(m_directory, language + "/" + name + ".cfg");
  }

  const std::string& path() const { return m_directory.path(); }
  const TemporaryDirectory& directory() const { return m_directory; }
  std::string configPath(const std::string& name) const { return m_directory.file(name + ".cfg"); }
  std::string libraryPath(const std::string& name) const {
    return m_directory.file("lib" + name + ".so");
  }

 private:
  TemporaryDirectory m_directory;
};

}  // namespace TarvexDiags::TestSupport
