#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/support/ConfigText.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::TestSupport {

/// Builds the configuration file of a package. It starts complete, with all keys and a number of
/// enabled tests; a test changes what it is about.
///
///   PackageConfig(3).withdrawTest(2).disableDevices(3, {"slot1"}).systemLock()
class PackageConfig {
 public:
  explicit PackageConfig(int tests = 1) {
    with("DeviceType", "7");
    with("PackageName", "Scripted package");
    with("Mnemonic", "SCRIPTED");
    with("PackageVersion", "1.2.3");
    with("PackageDescription", "Does what a script says");
    with("SystemLock", "FALSE");
    with("ResourceLockProperty", "");
    with("NumberOfTests", std::to_string(tests));
    for (int id = 1; id <= tests; ++id) {
      const std::string number = std::to_string(id);
      withTest(id, "TestName", "Test " + number);
      withTest(id, "TestDescription", "What test " + number + " does");
      withTest(id, "TestCapabilities", "none");
      withTest(id, "TestOpenMode", "READ_WRITE");
      withTest(id, "TestDisable", "FALSE");
      withTest(id, "TestEstimatedTime", std::to_string(10 * id));
    }
  }

  /// A key of the section Package.
  PackageConfig& with(const std::string& key, const std::string& value) {
    return withKey("Package", key, value);
  }
  PackageConfig& without(const std::string& key) { return withoutKey("Package", key); }

  /// A key of a test's section.
  PackageConfig& withTest(int id, const std::string& key, const std::string& value) {
    return withKey("TestID" + std::to_string(id), key, value);
  }
  PackageConfig& withoutTest(int id, const std::string& key) {
    return withoutKey("TestID" + std::to_string(id), key);
  }

  PackageConfig& named(const std::string& name) { return with("PackageName", name); }
  PackageConfig& mnemonic(const std::string& name) { return with("Mnemonic", name); }
  PackageConfig& systemLock() { return with("SystemLock", "TRUE"); }
  PackageConfig& openMode(int id, const std::string& mode) {
    return withTest(id, "TestOpenMode", mode);
  }
  PackageConfig& estimatedTime(int id, int time) {
    return withTest(id, "TestEstimatedTime", std::to_string(time));
  }
  /// The test stays in the file and is not offered.
  PackageConfig& withdrawTest(int id) { return withTest(id, "TestDisable", "TRUE"); }

  /// One more entry that leaves a test out; an empty text leaves its key out.
  PackageConfig& disableTest(int id, const std::string& os = "",
                             const std::string& machineId = "") {
    return entry("Disable Test", "DisableTestID", m_disabledTests, id, os, machineId);
  }

  /// One more entry that leaves devices out for a test, by their disable names.
  PackageConfig& disableDevices(int id, const std::vector<std::string>& names,
                                const std::string& os = "", const std::string& machineId = "") {
    entry("Disable Device", "DisableDeviceTestID", m_disabledDevices, id, os, machineId);
    const std::string section = "DisableDeviceTestID" + std::to_string(m_disabledDevices);
    withKey(section, "NumberOfDevice", std::to_string(names.size()));
    for (std::size_t index = 0; index < names.size(); ++index) {
      withKey(section, "DeviceName" + std::to_string(index + 1), names[index]);
    }
    return *this;
  }

  /// A token of one of the sections Information, Warning, Error and DeviceStatus.
  PackageConfig& token(const std::string& section, unsigned int code, const std::string& text) {
    return withKey(section, std::to_string(code), text);
  }

  /// Anything else.
  PackageConfig& withKey(const std::string& section, const std::string& key,
                         const std::string& value) {
    m_text.set(section, key, value);
    return *this;
  }
  PackageConfig& withoutKey(const std::string& section, const std::string& key) {
    m_text.remove(section, key);
    return *this;
  }
  PackageConfig& withoutSection(const std::string& section) {
    m_text.removeSection(section);
    return *this;
  }

  std::string text() const { return m_text.text(); }

  /// @return the path of the file.
  std::string writeTo(const TemporaryDirectory& directory,
                      const std::string& name = "package.cfg") const {
    return m_text.writeTo(directory, name);
  }

 private:
  PackageConfig& entry(const std::string& list, const std::string& prefix, int& count, int id,
                       const std::string& os, const std::string& machineId) {
    ++count;
    const std::string section = prefix + std::to_string(count);
    withKey(list, "NumberOfTests", std::to_string(count));
    withKey(section, "TestID", std::to_string(id));
    if (!os.empty()) {
      withKey(section, "Os", os);
    }
    if (!machineId.empty()) {
      withKey(section, "MachineId", machineId);
    }
    return *this;
  }

  ConfigText m_text;
  int m_disabledTests = 0;
  int m_disabledDevices = 0;
};

}  // namespace TarvexDiags::TestSupport
