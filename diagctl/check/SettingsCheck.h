#pragma once

#include <string>
#include <vector>

#include "diagctl/check/CheckRules.h"
#include "packagekit/contract/SettingRule.h"

namespace TarvexDiags::FrontEnd {

/// Keys of a package's description that are judged elsewhere.
struct JudgedKeys {
  const std::vector<KeyRule>& ofPackage;
  const std::vector<KeyRule>& ofTest;
};

/// Holds the keys in sections Package and TestID1 to TestID<tests> against what the package says
/// that it reads: tells those that are missing, have a value of another kind, or are read by
/// nobody.
void checkSettings(const ConfigurationText& text, const std::string& file, int tests,
                   const JudgedKeys& judged, const std::vector<PackageKit::SettingRule>& rules,
                   std::vector<Problem>& problems);

}  // namespace TarvexDiags::FrontEnd
