#include "packagekit/Settings.h"

#include "System/SysUtil.h"

namespace TarvexDiags::PackageKit {

namespace {

bool flagOf(const std::optional<std::string>& value, bool fallback) {
  return value ? valueFrom<bool>(*value).value_or(fallback) : fallback;
}

}  // namespace

std::optional<std::string> Settings::read(const std::string& section,
                                          const std::string& key) const {
  std::string value;
  if (System::SysUtil::ReadCfgFile(section, key, value, m_file) != System::SysUtil::CFG_READ ||
      value.empty()) {
    return std::nullopt;
  }
  return value;
}

std::optional<std::string> Settings::package(const std::string& key) const {
  return read("Package", key);
}

std::optional<std::string> Settings::test(int testId, const std::string& key) const {
  auto value = read("TestID" + std::to_string(testId), key);
  return value ? value : package(key);
}

long Settings::testInteger(int testId, const std::string& key, long fallback) const {
  const auto value = test(testId, key);
  return value ? toInteger(*value).value_or(fallback) : fallback;
}

double Settings::testNumber(int testId, const std::string& key, double fallback) const {
  const auto value = test(testId, key);
  return value ? toNumber(*value).value_or(fallback) : fallback;
}

bool Settings::packageFlag(const std::string& key, bool fallback) const {
  return flagOf(package(key), fallback);
}

bool Settings::testFlag(int testId, const std::string& key, bool fallback) const {
  return flagOf(test(testId, key), fallback);
}

void Settings::throwMissing(const std::string& key, int testId) const {
  throw UnusableSetting(m_file + ": the key " + key + " is missing" +
                        (testId == 0 ? "" : " for test " + std::to_string(testId)));
}

void Settings::throwUnreadable(const std::string& key, const std::string& text) const {
  throw UnusableSetting(m_file + ": the key " + key + " cannot have the value '" + text + "'");
}

std::optional<long> Settings::toInteger(const std::string& text) {
  return numberFrom<long>(text);
}

std::optional<double> Settings::toNumber(const std::string& text) {
  return numberFrom<double>(text);
}

}  // namespace TarvexDiags::PackageKit
