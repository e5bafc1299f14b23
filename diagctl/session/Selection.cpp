#include "diagctl/session/Selection.h"

#include <fnmatch.h>

#include <algorithm>

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

bool matchesText(const std::string& pattern, const std::string& text) {
  return fnmatch(pattern.c_str(), text.c_str(), FNM_CASEFOLD) == 0;
}

bool matchesId(const std::string& pattern, unsigned long id) {
  return pattern == std::to_string(id);
}

bool matchesTag(const std::string& pattern, const std::string& tag) {
  if (matchesText(pattern, tag)) {
    return true;
  }
  const std::size_t separator = tag.rfind('/');
  return separator != std::string::npos && matchesText(pattern, tag.substr(separator + 1));
}

template <class Item, class Matches>
bool isSelected(const Item& item, const std::vector<std::string>& included,
                const std::vector<std::string>& excluded, Matches matches) {
  const auto hits = [&](const std::string& pattern) { return matches(pattern, item); };
  return (included.empty() || std::any_of(included.begin(), included.end(), hits)) &&
         std::none_of(excluded.begin(), excluded.end(), hits);
}

template <class MatchesAny>
void collectUnmatched(const std::vector<std::string>& included,
                      const std::vector<std::string>& excluded, PatternKind kind,
                      MatchesAny matchesAny, std::vector<UnmatchedPattern>& unmatched) {
  for (const std::vector<std::string>* patterns : {&included, &excluded}) {
    for (const std::string& pattern : *patterns) {
      if (!matchesAny(pattern)) {
        unmatched.push_back({kind, pattern});
      }
    }
  }
}

}  // namespace

bool matchesPackage(const std::string& pattern, const PackageItem& package) {
  return matchesId(pattern, static_cast<unsigned long>(package.index)) ||
         matchesText(pattern, package.name) || matchesText(pattern, package.mnemonic) ||
         matchesText(pattern, package.baseName);
}

bool matchesLostPackage(const std::string& pattern, const LostPackage& package) {
  return matchesText(pattern, package.baseName);
}

bool matchesDevice(const std::string& pattern, const DeviceItem& device) {
  return matchesId(pattern, device.id) || matchesText(pattern, device.name) ||
         matchesTag(pattern, device.tag);
}

bool matchesTest(const std::string& pattern, const TestItem& test) {
  return matchesId(pattern, static_cast<unsigned long>(test.id)) || matchesText(pattern, test.name);
}

bool matchesSomething(const Catalogue& catalogue, const std::string& pattern) {
  return std::any_of(
      catalogue.packages.begin(), catalogue.packages.end(), [&](const PackageItem& package) {
        const auto& devices = package.devices;
        const auto& tests = package.tests;
        return matchesPackage(pattern, package) ||
               std::any_of(devices.begin(), devices.end(),
                           [&](const auto& item) { return matchesDevice(pattern, item); }) ||
               std::any_of(tests.begin(), tests.end(),
                           [&](const auto& item) { return matchesTest(pattern, item); });
      });
}

std::vector<SelectedPair> select(const Catalogue& catalogue, const SelectionPatterns& patterns) {
  std::vector<SelectedPair> pairs;
  if (!patterns.words.empty()) {
    return pairs;
  }
  for (const PackageItem& package : catalogue.packages) {
    if (!isSelected(package, patterns.packages, patterns.excludedPackages, matchesPackage)) {
      continue;
    }
    for (const DeviceItem& device : package.devices) {
      if (!isSelected(device, patterns.devices, patterns.excludedDevices, matchesDevice)) {
        continue;
      }
      for (const TestItem& test : package.tests) {
        const PairState state = package.stateOf(device, test);
        if (state != PairState::Impossible &&
            isSelected(test, patterns.tests, patterns.excludedTests, matchesTest)) {
          pairs.push_back({&package, &device, &test, state});
        }
      }
    }
  }
  return pairs;
}

std::vector<UnmatchedPattern> findUnmatched(const Catalogue& catalogue,
                                            const SelectionPatterns& patterns) {
  const auto& packages = catalogue.packages;
  std::vector<UnmatchedPattern> unmatched;
  collectUnmatched(
      patterns.packages, patterns.excludedPackages, PatternKind::Package,
      [&](const std::string& pattern) {
        const auto& lost = catalogue.lostPackages;
        return std::any_of(packages.begin(), packages.end(),
                           [&](const auto& item) { return matchesPackage(pattern, item); }) ||
               std::any_of(lost.begin(), lost.end(),
                           [&](const auto& item) { return matchesLostPackage(pattern, item); });
      },
      unmatched);
  collectUnmatched(
      patterns.devices, patterns.excludedDevices, PatternKind::Device,
      [&](const std::string& pattern) {
        return std::any_of(packages.begin(), packages.end(), [&](const auto& package) {
          return std::any_of(package.devices.begin(), package.devices.end(),
                             [&](const auto& item) { return matchesDevice(pattern, item); });
        });
      },
      unmatched);
  collectUnmatched(
      patterns.tests, patterns.excludedTests, PatternKind::Test,
      [&](const std::string& pattern) {
        return std::any_of(packages.begin(), packages.end(), [&](const auto& package) {
          return std::any_of(package.tests.begin(), package.tests.end(),
                             [&](const auto& item) { return matchesTest(pattern, item); });
        });
      },
      unmatched);
  for (const std::string& word : patterns.words) {
    unmatched.push_back({PatternKind::Word, word});
  }
  return unmatched;
}

std::string toText(const UnmatchedPattern& unmatched) {
  switch (unmatched.kind) {
    case PatternKind::Package:
      return tr("package '{}'", unmatched.pattern);
    case PatternKind::Device:
      return tr("device '{}'", unmatched.pattern);
    case PatternKind::Test:
      return tr("test '{}'", unmatched.pattern);
    case PatternKind::Word:
      break;
  }
  return "'" + unmatched.pattern + "'";
}

}  // namespace TarvexDiags::FrontEnd
