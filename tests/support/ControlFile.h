#pragma once

#include <string>

#include "tests/support/ConfigText.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::TestSupport {

/// Builds a control configuration file. It starts with what an initialisation requires, in a
/// directory of packages that need not exist: serial, no halt on error, customer mode, no log
/// directory, no message file.
///
///   const auto path = ControlFile().packDirPath(packages).with("DebugLog",
///   "3").writeTo(directory);
class ControlFile {
 public:
  ControlFile() {
    with("PackDirPath", "/nonexistent/packages");
    with("RunMode", "SERIAL");
    with("HaltOnError", "FALSE");
    with("DiagnosticMode", "CUSTOMER");
  }

  /// A key of the section of run-wide settings.
  ControlFile& with(const std::string& key, const std::string& value) {
    m_text.set("GlobalSettings", key, value);
    return *this;
  }
  ControlFile& without(const std::string& key) {
    m_text.remove("GlobalSettings", key);
    return *this;
  }

  ControlFile& packDirPath(const std::string& path) { return with("PackDirPath", path); }
  ControlFile& logDirPath(const std::string& path) { return with("LogDirPath", path); }
  ControlFile& msgFilePath(const std::string& path) { return with("MsgFilePath", path); }
  ControlFile& parallel() { return with("RunMode", "PARALLEL"); }
  ControlFile& haltOnError() { return with("HaltOnError", "TRUE"); }
  /// The whole trace, in the log directory.
  ControlFile& traced(const std::string& directory) {
    return logDirPath(directory).with("DebugLog", "DIAG_INFORMATION");
  }

  /// One more entry of the packages to leave out; an empty text leaves its key out.
  ControlFile& disablePackage(const std::string& baseName, const std::string& os = "",
                              const std::string& machineId = "") {
    ++m_disabled;
    const std::string section = "Package" + std::to_string(m_disabled);
    m_text.set("DisablePackage", "NumPackages", std::to_string(m_disabled));
    m_text.set(section, "PackageName", baseName);
    if (!os.empty()) {
      m_text.set(section, "Os", os);
    }
    if (!machineId.empty()) {
      m_text.set(section, "MachineId", machineId);
    }
    return *this;
  }

  /// Anything else.
  ControlFile& withKey(const std::string& section, const std::string& key,
                       const std::string& value) {
    m_text.set(section, key, value);
    return *this;
  }

  std::string text() const { return m_text.text(); }

  /// @return the path of the file.
  std::string writeTo(const TemporaryDirectory& directory,
                      const std::string& name = "control.cfg") const {
    return m_text.writeTo(directory, name);
  }

 private:
  ConfigText m_text;
  int m_disabled = 0;
};

}  // namespace TarvexDiags::TestSupport
