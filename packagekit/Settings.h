#pragma once

#include <optional>
#include <string>
#include <utility>

#include "packagekit/Setting.h"

namespace TarvexDiags::PackageKit {

/// @brief The package's configuration file, as its author's code reads it. A small value.
///
/// Every call reads the file anew, so read a key once and not in a loop. All calls are thread-safe.
/// An empty value counts as absent. Where the call has a fallback, a number that is none, or out of
/// the range of its type, counts as absent too, so a spoilt file gives the default and never a wild
/// value; a declared setting has no default but that of the file, and throws.
class Settings {
 public:
  explicit Settings(std::string file) : m_file(std::move(file)) {}

  /// @brief The path of the file.
  const std::string& file() const { return m_file; }

  /// @brief The value of a key in any section.
  std::optional<std::string> read(const std::string& section, const std::string& key) const;

  /// @brief The value of a key in section `Package`.
  std::optional<std::string> package(const std::string& key) const;

  /// @brief The value of a key in the section of a test, or else in section `Package`: what stands
  /// in `Package` is the default of all tests.
  std::optional<std::string> test(int testId, const std::string& key) const;

  /// @brief The value of a setting for a test; with test 0 that of section `Package`.
  /// @param isQuick whether the request is a quick one
  /// Throws UnusableSetting when the key is missing or its value is none of its kind.
  template <class Value>
  Value value(const Setting<Value>& setting, int testId = 0, bool isQuick = false) const {
    const bool hasQuickValue =
        isQuick && setting.isQuickable() && find(kQuickPrefix + setting.key(), testId).has_value();
    const std::string key = (hasQuickValue ? kQuickPrefix : "") + setting.key();
    const auto text = find(key, testId);
    if (!text) {
      throwMissing(key, testId);
    }
    return parsed<Value>(key, *text);
  }

  /// @brief The same for a setting that may be absent.
  template <class Value>
  std::optional<Value> value(const OptionalSetting<Value>& setting, int testId = 0) const {
    const auto text = find(setting.key(), testId);
    return text ? std::optional(parsed<Value>(setting.key(), *text)) : std::nullopt;
  }

  /// @brief As `test`, for a whole decimal number.
  long testInteger(int testId, const std::string& key, long fallback) const;

  /// @brief As `test`, for a decimal number with or without fraction ("2", "0.25").
  double testNumber(int testId, const std::string& key, double fallback) const;

  /// @brief TRUE or FALSE, in any case, in section `Package`.
  bool packageFlag(const std::string& key, bool fallback) const;

  /// @brief As `test`, for TRUE or FALSE in any case.
  bool testFlag(int testId, const std::string& key, bool fallback) const;

  /// @brief The whole text as a decimal number, or nothing. Never depends on the locale.
  static std::optional<long> toInteger(const std::string& text);
  static std::optional<double> toNumber(const std::string& text);

 private:
  std::optional<std::string> find(const std::string& key, int testId) const {
    return testId == 0 ? package(key) : test(testId, key);
  }

  template <class Value>
  Value parsed(const std::string& key, const std::string& text) const {
    auto value = valueFrom<Value>(text);
    if (!value) {
      throwUnreadable(key, text);
    }
    return *std::move(value);
  }

  [[noreturn]] void throwMissing(const std::string& key, int testId) const;
  [[noreturn]] void throwUnreadable(const std::string& key, const std::string& text) const;

  std::string m_file;
};

}  // namespace TarvexDiags::PackageKit
