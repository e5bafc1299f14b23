// Selects tests on devices by any patterns, and compares what is selected with a plain look at
// every pair.
//
// Input: lines, each of one letter and what it brings: "P" a package, whose devices and tests
// follow, with its name, mnemonic and base name between tabs; "D" a device with its name and tag;
// "T" a test; "p", "d", "t" patterns of what is wanted, "x", "y", "z" of what is left out; "w"
// words of any kind.

#include <fnmatch.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "diagctl/session/NameResolution.h"
#include "diagctl/session/Selection.h"
#include "tests/fuzz/Input.h"

namespace {

using namespace TarvexDiags::Fuzz;
using namespace TarvexDiags::FrontEnd;
using Patterns = std::vector<std::string>;

struct Scene {
  Catalogue catalogue;
  SelectionPatterns patterns;
};

// Many stars in a pattern against a long name take long, and show nothing.
constexpr std::size_t kLongest = 64;
constexpr std::size_t kMost = 8;  ///< packages, and devices, tests and patterns of a kind

void addPackage(Catalogue& catalogue, std::string rest) {
  if (catalogue.packages.size() < kMost) {
    PackageItem package;
    package.index = static_cast<int>(catalogue.packages.size());
    package.name = takeUntil(rest, '\t');
    package.mnemonic = takeUntil(rest, '\t');
    package.baseName = rest;
    catalogue.packages.push_back(package);
  }
}

void addItem(PackageItem& package, char letter, std::string rest) {
  if (letter == 'D' && package.devices.size() < kMost) {
    DeviceItem device;
    device.id = static_cast<unsigned int>(package.devices.size() + 10U * package.tests.size());
    device.name = takeUntil(rest, '\t');
    device.tag = rest;
    package.devices.push_back(device);
  } else if (letter == 'T' && package.tests.size() < kMost) {
    package.tests.push_back({.id = static_cast<int>(package.tests.size()) + 1, .name = rest});
  }
}

void addPattern(SelectionPatterns& patterns, char letter, const std::string& pattern) {
  const std::string letters = "pdtxyzw";
  const std::vector<Patterns*> lists = {&patterns.packages,
                                        &patterns.devices,
                                        &patterns.tests,
                                        &patterns.excludedPackages,
                                        &patterns.excludedDevices,
                                        &patterns.excludedTests,
                                        &patterns.words};
  const std::size_t place = letters.find(letter);
  if (place != std::string::npos && lists[place]->size() < kMost) {
    lists[place]->push_back(pattern);
  }
}

Scene sceneFrom(std::string rest) {
  Scene scene;
  while (!rest.empty()) {
    std::string line = takeLine(rest).substr(0, kLongest);
    const char letter = static_cast<char>(takeByte(line));
    if (letter == 'P') {
      addPackage(scene.catalogue, line);
    } else if (!scene.catalogue.packages.empty()) {
      addItem(scene.catalogue.packages.back(), letter, line);
    }
    addPattern(scene.patterns, letter, line);
  }
  return scene;
}

/// What an item is called: its number, which no wildcard stands for, and its names.
struct Called {
  std::string number;
  std::set<std::string> names;

  bool isMeant(const std::string& pattern) const {
    return pattern == number || std::any_of(names.begin(), names.end(), [&](const auto& name) {
             return fnmatch(pattern.c_str(), name.c_str(), FNM_CASEFOLD) == 0;
           });
  }
  bool isMeantByAny(const Patterns& patterns) const {
    return std::any_of(patterns.begin(), patterns.end(),
                       [this](const std::string& pattern) { return isMeant(pattern); });
  }
  bool isSelected(const Patterns& wanted, const Patterns& unwanted) const {
    return (wanted.empty() || isMeantByAny(wanted)) && !isMeantByAny(unwanted);
  }
};

Called called(const PackageItem& package) {
  return {std::to_string(package.index), {package.name, package.mnemonic, package.baseName}};
}

Called called(const DeviceItem& device) {
  const std::size_t last = device.tag.rfind('/');
  return {std::to_string(device.id),
          {device.name, device.tag,
           last == std::string::npos ? device.tag : device.tag.substr(last + 1)}};
}

Called called(const TestItem& test) {
  return {std::to_string(test.id), {test.name}};
}

using Pair = std::tuple<const PackageItem*, const DeviceItem*, const TestItem*>;

std::vector<Pair> expectedPairs(const Scene& scene) {
  const SelectionPatterns& by = scene.patterns;
  std::vector<Pair> pairs;
  if (!by.words.empty()) {
    return pairs;
  }
  for (const PackageItem& package : scene.catalogue.packages) {
    for (const DeviceItem& device : package.devices) {
      for (const TestItem& test : package.tests) {
        if (called(package).isSelected(by.packages, by.excludedPackages) &&
            called(device).isSelected(by.devices, by.excludedDevices) &&
            called(test).isSelected(by.tests, by.excludedTests)) {
          pairs.emplace_back(&package, &device, &test);
        }
      }
    }
  }
  return pairs;
}

std::size_t expectedUnmatched(const Scene& scene) {
  std::vector<Called> packages;
  std::vector<Called> devices;
  std::vector<Called> tests;
  for (const PackageItem& package : scene.catalogue.packages) {
    packages.push_back(called(package));
    for (const DeviceItem& device : package.devices) {
      devices.push_back(called(device));
    }
    for (const TestItem& test : package.tests) {
      tests.push_back(called(test));
    }
  }
  const auto lost = [](const Patterns& patterns, const std::vector<Called>& items) {
    return static_cast<std::size_t>(
        std::count_if(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
          return std::none_of(items.begin(), items.end(),
                              [&](const Called& item) { return item.isMeant(pattern); });
        }));
  };
  const SelectionPatterns& by = scene.patterns;
  return lost(by.packages, packages) + lost(by.excludedPackages, packages) +
         lost(by.devices, devices) + lost(by.excludedDevices, devices) + lost(by.tests, tests) +
         lost(by.excludedTests, tests) + by.words.size();
}

Patterns allOf(const SelectionPatterns& patterns) {
  Patterns all;
  for (const Patterns* const each :
       {&patterns.packages, &patterns.devices, &patterns.tests, &patterns.excludedPackages,
        &patterns.excludedDevices, &patterns.excludedTests, &patterns.words}) {
    all.insert(all.end(), each->begin(), each->end());
    all.emplace_back("\n");  // no pattern of an input has it
  }
  return all;
}

// What was typed is understood once, and what matches nothing is told.
void expectResolved(const Scene& scene) {
  const SelectionPatterns once = resolve(scene.catalogue, scene.patterns);
  expect(allOf(resolve(scene.catalogue, once)) == allOf(once));
  const std::size_t unmatched = findUnmatched(scene.catalogue, once).size();
  expect(describeUnmatched(scene.catalogue, once).size() == unmatched);
  if (!once.words.empty()) {
    expect(select(scene.catalogue, once).empty());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Scene scene = sceneFrom(textOf(data, size));
  std::vector<Pair> selected;
  for (const SelectedPair& pair : select(scene.catalogue, scene.patterns)) {
    selected.emplace_back(pair.package, pair.device, pair.test);
  }
  expect(selected == expectedPairs(scene));
  expect(findUnmatched(scene.catalogue, scene.patterns).size() == expectedUnmatched(scene));
  expectResolved(scene);
  return 0;
}
