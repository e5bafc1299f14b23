#include "diagctl/check/SettingsCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using PackageKit::kQuickPrefix;
using PackageKit::SettingKind;
using PackageKit::SettingRule;

constexpr const char* kPackageSection = "Package";

std::string sectionOf(int test) {
  return test == 0 ? kPackageSection : fmt::format("TestID{}", test);
}

/// Whether the key is the rule's: a "#" at the end of the rule's stands for a number.
bool isNamed(const std::string& key, const std::string& ruleKey) {
  if (!ruleKey.ends_with('#')) {
    return key == ruleKey;
  }
  const std::string stem = ruleKey.substr(0, ruleKey.size() - 1);
  return key.starts_with(stem) && key.size() > stem.size() &&
         std::all_of(key.begin() + static_cast<long>(stem.size()), key.end(),
                     [](unsigned char character) { return std::isdigit(character) != 0; });
}

bool isReadBy(const SettingRule& rule, const std::string& key) {
  return isNamed(key, rule.key) || (rule.isQuickable && isNamed(key, kQuickPrefix + rule.key));
}

std::string faultOf(SettingKind kind, const std::string& value) {
  if (isValueOf(kind, value)) {
    return {};
  }
  switch (kind) {
    case SettingKind::Flag:
      return tr("'{}' is none of TRUE, FALSE", value);
    case SettingKind::Integer:
      return tr("'{}' is no whole number", value);
    case SettingKind::Count:
      return tr("'{}' is no whole number of 0 or above", value);
    case SettingKind::Number:
      return tr("'{}' is no number", value);
    case SettingKind::Duration:
      return tr("'{}' is no time in seconds from 0 to {}", value,
                static_cast<long>(PackageKit::kLongestTime.count()));
    case SettingKind::Text:
      break;
  }
  return {};
}

bool holds(const std::vector<KeyRule>& rules, const std::string& key) {
  return std::any_of(rules.begin(), rules.end(),
                     [&](const KeyRule& rule) { return rule.key == key; });
}

class SettingsChecker {
 public:
  SettingsChecker(const ConfigurationText& text, std::string file, int tests,
                  const std::vector<SettingRule>& rules, std::vector<Problem>& problems)
      : m_text(text),
        m_file(std::move(file)),
        m_tests(tests),
        m_rules(rules),
        m_problems(problems) {}

  void check(const JudgedKeys& judged) {
    for (int test = 0; test <= m_tests; ++test) {
      checkSection(test, test == 0 ? judged.ofPackage : judged.ofTest);
    }
    checkMissing();
  }

 private:
  void tell(const std::string& section, const std::string& key, const std::string& reason) {
    m_problems.push_back({m_file, section, key, reason});
  }

  void checkSection(int test, const std::vector<KeyRule>& judged) {
    const std::string section = sectionOf(test);
    for (const auto& [key, written] : m_text.keys(section)) {
      if (holds(judged, key)) {
        continue;
      }
      // Section Package holds what every test may read.
      const auto rule = std::find_if(
          m_rules.begin(), m_rules.end(), [&, &name = key](const SettingRule& candidate) {
            return (test == 0 || candidate.testId == test) && isReadBy(candidate, name);
          });
      if (rule == m_rules.end()) {
        if (!PackageKit::leavesKeysOpen(m_rules)) {
          tell(section, key, tr("no such key is read"));
        }
      } else if (const auto value = m_text.value(section, key)) {
        if (const std::string fault = faultOf(rule->kind, *value); !fault.empty()) {
          tell(section, key, fault);
        }
      }
    }
  }

  bool isThere(const std::string& key, int test) const {
    return m_text.value(sectionOf(test), key) || m_text.value(kPackageSection, key);
  }

  void checkMissing() {
    std::map<std::string, std::set<int>> readers;
    for (const SettingRule& rule : m_rules) {
      if (rule.isRequired && rule.testId <= m_tests) {
        readers[rule.key].insert(rule.testId);
      }
    }
    for (const auto& [key, tests] : readers) {
      std::set<int> lacking;
      std::copy_if(tests.begin(), tests.end(), std::inserter(lacking, lacking.end()),
                   [&, &name = key](int test) { return !isThere(name, test); });
      // What several tests read and none has, once stood for all of them.
      if (lacking.size() > 1 && lacking.size() == tests.size()) {
        lacking = {0};
      }
      for (const int test : lacking) {
        const bool isWritten = m_text.keys(sectionOf(test)).contains(key);
        tell(sectionOf(test), key,
             isWritten ? tr("the value is empty or too long") : tr("the key is missing"));
      }
    }
  }

  const ConfigurationText& m_text;
  const std::string m_file;
  const int m_tests;
  const std::vector<SettingRule>& m_rules;
  std::vector<Problem>& m_problems;
};

}  // namespace

void checkSettings(const ConfigurationText& text, const std::string& file, int tests,
                   const JudgedKeys& judged, const std::vector<SettingRule>& rules,
                   std::vector<Problem>& problems) {
  SettingsChecker(text, file, tests, rules, problems).check(judged);
}

}  // namespace TarvexDiags::FrontEnd
