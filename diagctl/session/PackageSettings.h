#pragma once

#include <set>
#include <string>
#include <vector>

#include "packagekit/contract/SettingRule.h"

namespace TarvexDiags::FrontEnd {

/// A setting of a test as it stands in the description of its package.
struct SettingItem {
  std::string key;         ///< with the word for quick mode before it where that value is meant
  std::string value = {};  ///< empty: it stands nowhere, and the default is the package's
  std::string unit = {};
  std::string meaning = {};  ///< empty: nobody tells
  PackageKit::SettingKind kind = PackageKit::SettingKind::Text;
};

/// The rules of the keys that a package says it reads. Loads its shared object; empty if the
/// package does not tell.
std::vector<PackageKit::SettingRule> settingRulesOf(const std::string& directory,
                                                    const std::string& baseName);

/// What the description says of a test beside its settings; empty where it says nothing.
struct TestRemarks {
  std::string needs;       ///< of machine, device and user
  std::string writes;      ///< or disturbs
  std::string privileges;  ///< what its worker keeps of root's rights, between commas
};
TestRemarks remarksOfTest(const std::string& directory, const std::string& baseName, int test);

/// What a test of a package reads: what stands for it, beside it for quick mode, and what the
/// description tells of it.
std::vector<SettingItem> settingsOfTest(const std::string& directory, const std::string& baseName,
                                        int test);

/// The kinds of findings that a test says it brings about itself.
std::set<std::string> provokedBy(const std::string& directory, const std::string& baseName,
                                 int test);

/// The kinds in a list with commas.
std::set<std::string> kindsIn(const std::string& list);

}  // namespace TarvexDiags::FrontEnd
