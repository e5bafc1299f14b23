#pragma once

#include <string>
#include <vector>

#include "diagctl/session/Catalogue.h"

namespace TarvexDiags::FrontEnd {

/// What a person selects: patterns for packages, devices and tests. A pattern is a number (the id),
/// a name, or a name with the wildcards of the shell (*, ?, [...]); names match without regard to
/// case. A package also matches by mnemonic and base name, a device also by its tag or a component
/// of it. No include pattern means all.
struct SelectionPatterns {
  std::vector<std::string> packages;
  std::vector<std::string> devices;
  std::vector<std::string> tests;
  std::vector<std::string> excludedPackages;
  std::vector<std::string> excludedDevices;
  std::vector<std::string> excludedTests;
  /// Of packages, devices or tests: see `resolve`. As long as there are any, nothing is selected.
  std::vector<std::string> words = {};
};

/// What a pattern is one of.
enum class PatternKind { Package, Device, Test, Word };

struct UnmatchedPattern {
  PatternKind kind;
  std::string pattern;
};

/// One pair of device and test that was selected.
struct SelectedPair {
  const PackageItem* package = nullptr;
  const DeviceItem* device = nullptr;
  const TestItem* test = nullptr;
  PairState state = PairState::Unsupported;
};

/// The pairs that match, in the order of the catalogue. The items stay the catalogue's.
std::vector<SelectedPair> select(const Catalogue& catalogue, const SelectionPatterns& patterns);

/// The patterns that match nothing at all in the catalogue, those of what is to be left out too: a
/// misspelt one would have run what was meant to be spared. A package that was left out is there,
/// so its name matches.
std::vector<UnmatchedPattern> findUnmatched(const Catalogue& catalogue,
                                            const SelectionPatterns& patterns);

/// The same for people: "package 'memory'".
std::string toText(const UnmatchedPattern& unmatched);

bool matchesPackage(const std::string& pattern, const PackageItem& package);
bool matchesLostPackage(const std::string& pattern, const LostPackage& package);
bool matchesDevice(const std::string& pattern, const DeviceItem& device);
bool matchesTest(const std::string& pattern, const TestItem& test);
/// Whether a package that was loaded, a device or a test matches.
bool matchesSomething(const Catalogue& catalogue, const std::string& pattern);

}  // namespace TarvexDiags::FrontEnd
