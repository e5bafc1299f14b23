#include "tests/packages/TestsPage.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>

#include "packagekit/Settings.h"
#include "packagekit/contract/Capabilities.h"
#include "packagekit/contract/Privileges.h"
#include "packagekit/contract/ReaderKeys.h"
#include "packagekit/internal/KitSettings.h"

namespace TarvexDiags::TestSupport {

namespace {

namespace Contract = PackageKit::Contract;
namespace fs = std::filesystem;
using PackageKit::SettingKind;
using PackageKit::SettingRule;
using PackageKit::Settings;

constexpr const char* kHead =
    "# The tests that come with the project\n"
    "\n"
    "What each of them does, needs and writes, how long it takes, and what can be set. This page "
    "is made\n"
    "from the packages by `tests_page` (CONTRIBUTING.md tells how), so change the packages and not "
    "the page.\n"
    "\n"
    "`diagctl list` names the tests that this machine offers, and `diagctl show` tells more of "
    "one. A test\n"
    "takes the time of its settings: on a large disk or a busy machine it takes longer than told "
    "here. \"Ended\n"
    "after\" is the time at which a test is told to stop, without a verdict. What a test does not "
    "keep of root's\n"
    "rights, its process gives up before it begins; started by anybody else it has none.\n"
    "\n"
    "A setting is looked for in the section of the test and then in `[Package]` of the package's "
    "file,\n"
    "`<package>.cfg`. In quick mode the same key goes first with `Quick` before its name; \"as "
    "full\" says that\n"
    "there is none. `-` means that the file has no value. Times are in seconds. What the kit reads "
    "for every\n"
    "package, such as `TestTimeout`, is told in the [package "
    "guide](package-guide.md#configuration).\n";

struct Package {
  std::string name;
  Settings settings;
  std::vector<SettingRule> rules;

  std::string of(int test, const std::string& key) const {
    return settings.test(test, key).value_or("");
  }
  int numberOfTests() const {
    return static_cast<int>(
        Settings::toInteger(settings.package("NumberOfTests").value_or("")).value_or(0));
  }
};

std::string duration(const std::string& text) {
  const long seconds = Settings::toInteger(text).value_or(0);
  if (seconds >= 7200 && seconds % 3600 == 0) {
    return std::to_string(seconds / 3600) + " hours";
  }
  if (seconds >= 120 && seconds % 60 == 0) {
    return std::to_string(seconds / 60) + " minutes";
  }
  return std::to_string(seconds) + " s";
}

/// Lines of at most 105 characters, those behind the first one indented as a list wants them.
std::string wrapped(const std::string& text) {
  constexpr std::size_t kWidth = 105;
  std::istringstream words(text);
  std::string lines;
  std::size_t column = 0;
  for (std::string word; words >> word;) {
    if (column == 0) {
      lines += word;
      column = word.size();
    } else if (column + 1 + word.size() > kWidth) {
      lines += "\n  " + word;
      column = 2 + word.size();
    } else {
      lines += " " + word;
      column += 1 + word.size();
    }
  }
  return lines + "\n";
}

std::string privilegesOf(const Package& package, int test) {
  const std::string names =
      toText(Contract::privilegesFrom(package.of(test, Contract::kPrivilegesKey)));
  return names.empty() ? "none" : names;
}

void writeTest(std::ostream& page, const Package& package, int test) {
  const std::string capabilities = package.of(test, "TestCapabilities");
  page << "\n### " << test << ". " << package.of(test, "TestName") << "\n\n"
       << wrapped("- Does: " + package.of(test, "TestDescription") + ".")
       << wrapped("- Needs: " + package.of(test, Contract::kTestNeeds) + ".")
       << wrapped("- Writes: " + package.of(test, Contract::kTestWrites) + ".")
       << wrapped("- Takes: about " + duration(package.of(test, "TestEstimatedTime")) +
                  "; ended after " + duration(package.of(test, "TestTimeout")) + ".")
       << wrapped("- Keeps of root's rights: " + privilegesOf(package, test) + ".");
  if (Contract::hasCapability(capabilities, Contract::kDestructive)) {
    page << "- Runs only with `--allow-disruptive`.\n";
  }
}

/// The same value for all tests once, values that differ each with the numbers of its tests.
std::string valuesOf(const Package& package, const std::set<int>& tests, const std::string& key,
                     const std::string& absent) {
  std::map<std::string, std::vector<int>> byValue;
  for (const int test : tests) {
    const std::string value =
        test == 0 ? package.settings.package(key).value_or("") : package.of(test, key);
    byValue[value.empty() ? absent : value].push_back(test);
  }
  if (byValue.size() == 1) {
    return byValue.begin()->first;
  }
  std::vector<std::pair<int, std::string>> parts;
  for (const auto& [value, users] : byValue) {
    std::string numbers;
    for (const int test : users) {
      numbers += (numbers.empty() ? "" : ", ") + std::to_string(test);
    }
    parts.emplace_back(users.front(), value + " (" + numbers + ")");
  }
  std::sort(parts.begin(), parts.end());
  std::string text;
  for (const auto& [first, part] : parts) {
    text += (text.empty() ? "" : ", ") + part;
  }
  return text;
}

std::string numbersOf(const Package& package, const std::set<int>& tests) {
  if (tests == std::set<int>{0}) {
    return "discovery";
  }
  if (static_cast<int>(tests.size()) == package.numberOfTests()) {
    return "all";
  }
  std::string text;
  for (const int test : tests) {
    text += (text.empty() ? "" : ", ") + std::to_string(test);
  }
  return text;
}

void writeSettings(std::ostream& page, const Package& package) {
  std::vector<std::string> keys;  // in the order in which the package tells them
  std::map<std::string, std::set<int>> users;
  std::map<std::string, SettingRule> rules;
  for (const SettingRule& rule : package.rules) {
    if (rules.emplace(rule.key, rule).second) {
      keys.push_back(rule.key);
    }
    users[rule.key].insert(rule.testId);
  }
  page << "\n### Settings of the package `" << package.name << "`\n\n"
       << "| Setting | Tests | Default | In quick mode | Unit | Meaning |\n"
       << "|---|---|---|---|---|---|\n";
  for (const std::string& key : keys) {
    const SettingRule& rule = rules.at(key);
    const std::string quick =
        rule.isQuickable ? valuesOf(package, users[key], PackageKit::kQuickPrefix + key, "as full")
                         : "as full";
    const std::string unit = rule.kind == SettingKind::Duration
                                 ? "s"
                                 : package.settings.read(Contract::kSettingUnit, key).value_or("");
    page << "| `" << key << "` | " << numbersOf(package, users[key]) << " | "
         << valuesOf(package, users[key], key, "-") << " | " << quick << " | " << unit << " | "
         << package.settings.read(Contract::kSettingMeaning, key).value_or("") << " |\n";
  }
}

}  // namespace

std::vector<std::string> packagesIn(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (entry.path().extension() == ".cfg") {
      names.push_back(entry.path().stem());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<SettingRule> settingRules(const std::string& directory, const std::string& package) {
  void* const handle =
      dlopen((directory + "/lib" + package + ".so").c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    return {};
  }
  std::vector<SettingRule> rules;
  if (void* const symbol = dlsym(handle, PackageKit::kDescribeSettings)) {
    rules = PackageKit::settingRulesFrom(reinterpret_cast<const char* (*)()>(symbol)());
  }
  dlclose(handle);
  return rules;
}

std::vector<SettingRule> ownSettingRules(const std::string& directory, const std::string& package) {
  std::vector<SettingRule> rules = settingRules(directory, package);
  for (const auto& list : {PackageKit::kitTestSettings(), PackageKit::kitPackageSettings()}) {
    for (const auto& setting : list) {
      std::erase_if(rules, [&](const SettingRule& rule) { return rule.key == setting.key; });
    }
  }
  return rules;
}

std::string testsPage(const std::string& directory) {
  std::ostringstream page;
  page << kHead;
  for (const std::string& name : packagesIn(directory)) {
    const Package package{name, Settings(directory + "/" + name + ".cfg"),
                          ownSettingRules(directory, name)};
    page << "\n## " << package.settings.package("PackageName").value_or(name) << "\n\n"
         << wrapped(package.settings.package("PackageDescription").value_or("") + ".");
    for (int test = 1; test <= package.numberOfTests(); ++test) {
      writeTest(page, package, test);
    }
    writeSettings(page, package);
  }
  return page.str();
}

}  // namespace TarvexDiags::TestSupport
