#include "packagekit/Settings.h"

#include <strings.h>

#include <charconv>

#include "System/SysUtil.h"

namespace TarvexDiags::PackageKit {

namespace {

template <class Number>
std::optional<Number> parse(const std::string& text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end) {
    return std::nullopt;
  }
  return number;
}

bool flagOf(const std::optional<std::string>& value, bool fallback) {
  if (!value) {
    return fallback;
  }
  if (strcasecmp(value->c_str(), "TRUE") == 0) {
    return true;
  }
  return strcasecmp(value->c_str(), "FALSE") == 0 ? false : fallback;
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

std::optional<long> Settings::toInteger(const std::string& text) {
  return parse<long>(text);
}

std::optional<double> Settings::toNumber(const std::string& text) {
  return parse<double>(text);
}

}  // namespace TarvexDiags::PackageKit
