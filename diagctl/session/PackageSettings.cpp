#include "diagctl/session/PackageSettings.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <map>
#include <memory>
#include <optional>
#include <sstream>

#include "System/SysUtil.h"
#include "diagctl/session/ConfigurationText.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Privileges.h"
#include "packagekit/contract/ReaderKeys.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace Contract = PackageKit::Contract;

using PackageKit::SettingKind;
using PackageKit::SettingRule;

/// The keys of the kit, which no description explains.
const std::map<std::string, const char*>& meaningsOfKit() {
  static const std::map<std::string, const char*> kTable = {
      {"TestTimeout", marked("a test may take so long; 0: no limit; default 3600")},
      {"AbortGrace", marked("from the request to stop until SIGTERM; default 5")},
      {"TermGrace", marked("from SIGTERM until SIGKILL; default 2")},
      {"KillGrace", marked("from SIGKILL until the worker is given up; default 5")},
      {"StartTimeout", marked("until a worker has loaded the package; default 30")},
      {"ExitTimeout", marked("from the end of a test until its worker is gone; default 30")},
      {"DiscoveryTimeout", marked("looking for devices may take so long; 0: no limit; default 20")},
      {"Nice", marked("nice value of a worker, from 0 to 19; default 10")},
      {"Privileges", marked("what a worker keeps of root's rights; default: none")},
      {"MemoryLimit", marked("address space of a worker; 0: no limit; default 0")},
      {"MaxEvents", marked("events of a pass that are kept; default 10000")},
      {"Seed", marked("the seed of every test; default: another one for each pass")},
      {"CoreDumps", marked("whether a crash leaves a core file; default FALSE")},
      {"WorkerPath", marked("the program in which tests run")},
  };
  return kTable;
}

std::string meaningOf(const ConfigurationText& text, const std::string& key) {
  const auto written = text.value(Contract::kSettingMeaning, key);
  const auto ofKit = meaningsOfKit().find(key);
  return written ? *written : (ofKit != meaningsOfKit().end() ? told(ofKit->second) : "");
}

std::string unitOf(const ConfigurationText& text, const SettingRule& rule) {
  const std::string otherwise = rule.kind == SettingKind::Duration ? "s" : "";
  return text.value(Contract::kSettingUnit, rule.key).value_or(otherwise);
}

std::optional<std::string> valueOfTest(const ConfigurationText& text, int test,
                                       const std::string& key) {
  const auto own = text.value(fmt::format("TestID{}", test), key);
  return own ? own : text.value("Package", key);
}

}  // namespace

std::vector<SettingRule> settingRulesOf(const std::string& directory, const std::string& baseName) {
  const std::string library = directory + "/lib" + baseName + ".so";
  const std::unique_ptr<void, int (*)(void*)> handle(dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL),
                                                     [](void* opened) { return dlclose(opened); });
  void* const symbol = handle ? dlsym(handle.get(), PackageKit::kDescribeSettings) : nullptr;
  if (symbol == nullptr) {
    return {};
  }
  const char* const text = reinterpret_cast<const char* (*)()>(symbol)();
  return PackageKit::settingRulesFrom(text == nullptr ? "" : text);
}

TestRemarks remarksOfTest(const std::string& directory, const std::string& baseName, int test) {
  const auto text = ConfigurationText::read(directory + "/" + baseName + ".cfg");
  if (!text) {
    return {};
  }
  const auto valueOf = [&](const char* key) { return valueOfTest(*text, test, key).value_or(""); };
  return {valueOf(Contract::kTestNeeds), valueOf(Contract::kTestWrites),
          toText(Contract::privilegesFrom(valueOf(Contract::kPrivilegesKey)))};
}

std::set<std::string> kindsIn(const std::string& list) {
  std::set<std::string> kinds;
  std::istringstream parts(list);
  for (std::string part; std::getline(parts, part, ',');) {
    if (const std::string kind = System::SysUtil::stripSpaces(part); !kind.empty()) {
      kinds.insert(kind);
    }
  }
  return kinds;
}

std::set<std::string> provokedBy(const std::string& directory, const std::string& baseName,
                                 int test) {
  const auto text = ConfigurationText::read(directory + "/" + baseName + ".cfg");
  return text ? kindsIn(valueOfTest(*text, test, Contract::kTestProvokes).value_or(""))
              : std::set<std::string>();
}

std::vector<SettingItem> settingsOfTest(const std::string& directory, const std::string& baseName,
                                        int test) {
  const auto text = ConfigurationText::read(directory + "/" + baseName + ".cfg");
  if (!text) {
    return {};
  }
  std::vector<SettingItem> items;
  for (const SettingRule& rule : settingRulesOf(directory, baseName)) {
    if ((rule.testId != test && rule.testId != 0) || rule.key == PackageKit::kAnyKey) {
      continue;
    }
    const std::string unit = unitOf(*text, rule);
    items.push_back({rule.key, valueOfTest(*text, test, rule.key).value_or(""), unit,
                     meaningOf(*text, rule.key), rule.kind});
    const std::string quick = PackageKit::kQuickPrefix + rule.key;
    if (const auto value = valueOfTest(*text, test, quick); rule.isQuickable && value) {
      items.push_back({quick, *value, unit, tr("the same in quick mode"), rule.kind});
    }
  }
  return items;
}

}  // namespace TarvexDiags::FrontEnd
