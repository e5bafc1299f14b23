#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "packagekit/contract/SettingRule.h"

namespace TarvexDiags::PackageKit {

/// @brief A key that must stand in the configuration file, which alone knows its default. Declared
/// once, as a constant, and named by the tests that read it:
///
///   constexpr auto kReads = quickable<std::uint64_t>("Reads");
///   ...
///   package.test(5, randomRead).reads({kReads});
///   ...
///   const std::uint64_t reads = context.value(kReads);
///
/// @tparam Value std::string, bool, long, std::uint64_t (not below 0), double, or Seconds (not
/// below 0)
template <class Value>
class Setting {
 public:
  constexpr Setting(const char* key, bool isQuickable) : m_key(key), m_isQuickable(isQuickable) {}

  std::string key() const { return m_key; }
  bool isQuickable() const { return m_isQuickable; }

  operator SettingRule() const {  // NOLINT(google-explicit-constructor): what a list is made of
    return {m_key, kindOf<Value>(), true, m_isQuickable};
  }

 private:
  const char* m_key;
  bool m_isQuickable;
};

/// @brief A key that may be absent, or have an empty value: there is nothing then that a
/// configuration file could state, such as the processors of the machine.
template <class Value>
class OptionalSetting {
 public:
  constexpr explicit OptionalSetting(const char* key) : m_key(key) {}

  std::string key() const { return m_key; }

  operator SettingRule() const {  // NOLINT(google-explicit-constructor): what a list is made of
    return {m_key, kindOf<Value>(), false, false};
  }

 private:
  const char* m_key;
};

/// @brief A setting that is the same for all requests.
template <class Value>
constexpr Setting<Value> required(const char* key) {
  return Setting<Value>(key, false);
}

/// @brief A setting that a quick request takes from the key with "Quick" before its name, in the
/// section of the test or else in section `Package`; and where neither has that key, from the
/// setting's own, as all other requests do.
template <class Value>
constexpr Setting<Value> quickable(const char* key) {
  return Setting<Value>(key, true);
}

/// @brief A setting that may be absent.
template <class Value>
constexpr OptionalSetting<Value> optionalSetting(const char* key) {
  return OptionalSetting<Value>(key);
}

/// @brief The keys that a test or a package reads.
using SettingList = std::vector<SettingRule>;

/// @brief A key is missing that must be there, or has a value that is none of its kind. A test that
/// lets it through has no verdict, and the text names the key.
class UnusableSetting : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace TarvexDiags::PackageKit
