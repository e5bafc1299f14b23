#pragma once

#include <set>
#include <string>
#include <vector>

#include "packagekit/contract/SettingRule.h"

namespace TarvexDiags::TestSupport {

/// The packages that are built into a directory, by their names, sorted.
std::vector<std::string> packagesIn(const std::string& directory);

/// The keys that a package reads, as its shared object tells them; empty when it cannot be loaded.
std::vector<PackageKit::SettingRule> settingRules(const std::string& directory,
                                                  const std::string& package);

/// The same without those that the kit reads for every package.
std::vector<PackageKit::SettingRule> ownSettingRules(const std::string& directory,
                                                     const std::string& package);

/// The page of all tests of these packages: what each does, needs and writes, how long it takes,
/// and its settings. Everything comes from the packages themselves.
std::string testsPage(const std::string& directory);

}  // namespace TarvexDiags::TestSupport
