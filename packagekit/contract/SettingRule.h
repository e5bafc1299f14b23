#pragma once

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <type_traits>
#include <vector>

namespace TarvexDiags::PackageKit {

/// @brief A time of the configuration file: "2" or "0.25".
using Seconds = std::chrono::duration<double>;

/// @brief What a value of the configuration file must be.
enum class SettingKind : unsigned char {
  Text,
  Flag,      ///< TRUE or FALSE, in any case
  Integer,   ///< whole and decimal
  Count,     ///< the same, not below 0
  Number,    ///< decimal, with or without a fraction
  Duration,  ///< in seconds: the same, not below 0 and at most kLongestTime
};

/// @brief A year: more than anybody waits, and little enough to be counted in nanoseconds.
inline constexpr Seconds kLongestTime{31'536'000};

/// @brief The kind of each type that a test can ask for.
template <class Value>
constexpr SettingKind kindOf() {
  if constexpr (std::is_same_v<Value, std::string>) {
    return SettingKind::Text;
  } else if constexpr (std::is_same_v<Value, bool>) {
    return SettingKind::Flag;
  } else if constexpr (std::is_same_v<Value, long>) {
    return SettingKind::Integer;
  } else if constexpr (std::is_same_v<Value, std::uint64_t>) {
    return SettingKind::Count;
  } else if constexpr (std::is_same_v<Value, double>) {
    return SettingKind::Number;
  } else {
    static_assert(std::is_same_v<Value, Seconds>, "no value of a configuration file has this type");
    return SettingKind::Duration;
  }
}

/// @brief The whole text as a decimal number, or nothing. Never depends on the locale.
template <class Number>
std::optional<Number> numberFrom(const std::string& text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end) {
    return std::nullopt;
  }
  return number;
}

/// @brief The text as a value of the type, or nothing when it is none.
template <class Value>
std::optional<Value> valueFrom(const std::string& text) {
  if constexpr (std::is_same_v<Value, std::string>) {
    return text;
  } else if constexpr (std::is_same_v<Value, bool>) {
    const bool isTrue = strcasecmp(text.c_str(), "TRUE") == 0;
    return isTrue || strcasecmp(text.c_str(), "FALSE") == 0 ? std::optional(isTrue) : std::nullopt;
  } else if constexpr (std::is_same_v<Value, double>) {
    const auto number = numberFrom<double>(text);
    return number && std::isfinite(*number) ? number : std::nullopt;
  } else if constexpr (std::is_same_v<Value, Seconds>) {
    const auto number = numberFrom<double>(text);
    return number && *number >= 0 && *number <= kLongestTime.count()
               ? std::optional(Seconds(*number))
               : std::nullopt;
  } else {
    return numberFrom<Value>(text);
  }
}

/// @brief Whether the text is a value of the kind.
inline bool isValueOf(SettingKind kind, const std::string& text) {
  switch (kind) {
    case SettingKind::Text:
      return true;
    case SettingKind::Flag:
      return valueFrom<bool>(text).has_value();
    case SettingKind::Integer:
      return valueFrom<long>(text).has_value();
    case SettingKind::Count:
      return valueFrom<std::uint64_t>(text).has_value();
    case SettingKind::Number:
      return valueFrom<double>(text).has_value();
    case SettingKind::Duration:
      return valueFrom<Seconds>(text).has_value();
  }
  return false;
}

/// @brief Before the key of a setting: its value in quick mode.
inline constexpr const char* kQuickPrefix = "Quick";

/// @brief In place of a key: the package may read any other one as well, as it declares none.
inline constexpr const char* kAnyKey = "*";

/// @brief One key that a package reads. Thread-safety: a plain value.
struct SettingRule {
  std::string key;  ///< a "#" at its end stands for a number from 1 on
  SettingKind kind = SettingKind::Text;
  bool isRequired = false;   ///< it must stand in the section of the test or in section `Package`
  bool isQuickable = false;  ///< the key with kQuickPrefix before it is read as well
  /// The test that reads it, there or in section `Package`; 0: it stands in section `Package`
  /// alone.
  int testId = 0;
};

/// @brief The export by which a package's shared object tells the rules of its keys:
/// `const char* describePackageSettings()`, one line for each. The text is the package's and lasts
/// until it is unloaded. Empty, or no such export: nobody can tell which keys the package reads.
inline constexpr const char* kDescribeSettings = "describePackageSettings";

/// @brief Whether keys that have no rule may be read all the same.
inline bool leavesKeysOpen(const std::vector<SettingRule>& rules) {
  return std::any_of(rules.begin(), rules.end(),
                     [](const SettingRule& rule) { return rule.key == kAnyKey; });
}

/// @brief The rule as a line of the export's text, without its end.
inline std::string toLine(const SettingRule& rule) {
  return std::to_string(rule.testId) + ' ' + rule.key + ' ' +
         std::to_string(static_cast<int>(rule.kind)) + ' ' + (rule.isRequired ? '1' : '0') + ' ' +
         (rule.isQuickable ? '1' : '0');
}

/// @brief The rules of the export's text. A line that is none is left out, as one of a kind that
/// only a later kit knows.
inline std::vector<SettingRule> settingRulesFrom(const std::string& text) {
  std::vector<SettingRule> rules;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    SettingRule rule;
    int kind = -1;
    if (fields >> rule.testId >> rule.key >> kind >> rule.isRequired >> rule.isQuickable &&
        kind >= 0 && kind <= static_cast<int>(SettingKind::Duration)) {
      rule.kind = static_cast<SettingKind>(kind);
      rules.push_back(rule);
    }
  }
  return rules;
}

}  // namespace TarvexDiags::PackageKit
