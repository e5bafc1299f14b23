#pragma once

#include <string>
#include <vector>

#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::DiagctlTest {

/// A test of a configured package: see ConfiguredPackage.cpp.
struct ConfiguredTest {
  std::string name;
  std::string behaviour = "pass";
  int milliseconds = 0;
  std::string more = {};  ///< further lines of its section
};

struct ConfiguredDevice {
  std::string name;
  std::string tag;
};

/// A control file and a directory of configured packages, as the tests want them.
class Workplace {
 public:
  Workplace();

  /// Adds a package; its events 7 and 9000 (errors) and 8 (warning) have tokens and texts in
  /// en and de.
  Workplace& addPackage(const std::string& name, const std::vector<ConfiguredTest>& tests,
                        const std::vector<ConfiguredDevice>& devices);

  /// Makes the control file name another directory of packages.
  Workplace& usePackages(const std::string& directory);
  /// The package whose tests crash, hang and flood, on its four devices.
  Workplace& useMisbehavingPackage();
  static std::string misbehavingPackages();
  /// The same beside the others, under a name, with more keys in its configuration.
  Workplace& addMisbehavingPackage(const std::string& name, const std::string& keys);

  const std::string& controlFile() const { return m_controlFile; }
  std::string packageFile(const std::string& name) const;
  /// Is there once a test of a package has begun on a device and knows all that it does there.
  std::string markOf(const std::string& package, int test, const std::string& device) const;
  /// Two levels below what everybody may write to: a package looks for the libraries there, too.
  std::string path(const std::string& name) const { return m_directory.file("home/" + name); }

  /// Replaces text in a file, which must hold it.
  void replaceIn(const std::string& file, const std::string& from, const std::string& to) const;
  void write(const std::string& file, const std::string& text) const;

 private:
  TestSupport::TemporaryDirectory m_directory;
  std::string m_controlFile;
};

std::string contentsOf(const std::string& file);

}  // namespace TarvexDiags::DiagctlTest
