#include "diagctl/session/NameResolution.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <functional>
#include <utility>

#include "diagctl/terminal/Suggestion.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kMostCandidates = 6;
constexpr std::size_t kMostNear = 3;

/// Something that can be selected, with all that it answers to.
struct Named {
  std::string name;  ///< for people
  std::vector<std::string> names;
  std::function<bool(const std::string&)> matches;
};

using Names = std::vector<Named>;

Names namesOf(const Catalogue& catalogue, PatternKind kind) {
  Names names;
  for (const PackageItem& package : catalogue.packages) {
    if (kind == PatternKind::Package) {
      names.push_back(
          {package.name,
           {package.name, package.mnemonic, package.baseName},
           [&](const std::string& pattern) { return matchesPackage(pattern, package); }});
    }
    for (const DeviceItem& device : package.devices) {
      if (kind == PatternKind::Device) {
        const std::string component = device.tag.substr(device.tag.rfind('/') + 1);
        std::vector<std::string> called = {device.name, device.tag};
        if (strcasecmp(component.c_str(), device.name.c_str()) != 0) {
          called.push_back(component);
        }
        names.push_back({device.name, std::move(called), [&](const std::string& pattern) {
                           return matchesDevice(pattern, device);
                         }});
      }
    }
    for (const TestItem& test : package.tests) {
      if (kind == PatternKind::Test) {
        names.push_back({test.name, {test.name}, [&](const std::string& pattern) {
                           return matchesTest(pattern, test);
                         }});
      }
    }
  }
  for (const LostPackage& package : catalogue.lostPackages) {
    if (kind == PatternKind::Package) {
      names.push_back({package.baseName, {package.baseName}, [&](const std::string& pattern) {
                         return matchesLostPackage(pattern, package);
                       }});
    }
  }
  return names;
}

bool matchesAny(const Names& names, const std::string& pattern) {
  return std::any_of(names.begin(), names.end(),
                     [&](const Named& named) { return named.matches(pattern); });
}

bool hasWildcard(const std::string& pattern) {
  return pattern.find_first_of("*?[\\") != std::string::npos;
}

/// The name as a pattern that means nothing but it.
std::string asPattern(const std::string& name) {
  std::string pattern;
  for (const char character : name) {
    pattern += hasWildcard(std::string(1, character)) ? "\\" : "";
    pattern += character;
  }
  return pattern;
}

bool isWordCharacter(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0;
}

bool beginsWith(const Named& named, const std::string& word, bool wantsWholeWord) {
  return std::any_of(named.names.begin(), named.names.end(), [&](const std::string& name) {
    return strncasecmp(name.c_str(), word.c_str(), word.size()) == 0 &&
           (!wantsWholeWord || name.size() == word.size() || !isWordCharacter(name[word.size()]));
  });
}

void addOnce(std::vector<std::string>& names, const std::string& name) {
  if (std::find(names.begin(), names.end(), name) == names.end()) {
    names.push_back(name);
  }
}

// "Core 1" means "Core 1 (Xeon)" and not "Core 10 (Xeon)".
std::vector<std::string> beginningWith(const Names& names, const std::string& word) {
  std::vector<std::string> found;
  for (const bool wantsWholeWord : {true, false}) {
    for (const Named& named : names) {
      if (found.size() < kMostCandidates && beginsWith(named, word, wantsWholeWord)) {
        addOnce(found, named.name);
      }
    }
    if (!found.empty()) {
      break;
    }
  }
  return found;
}

std::vector<std::string> candidatesFor(const Names& names, const std::string& word) {
  return word.empty() || hasWildcard(word) ? std::vector<std::string>()
                                           : beginningWith(names, word);
}

std::vector<std::string> partsOf(const std::string& list) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0; begin <= list.size();) {
    const std::size_t end = std::min(list.find(',', begin), list.size());
    const std::size_t first = std::min(list.find_first_not_of(' ', begin), end);
    const std::size_t last = list.find_last_not_of(' ', end - (end > 0 ? 1 : 0));
    if (first < end && last != std::string::npos && last >= first) {
      parts.push_back(list.substr(first, std::min(last + 1, end) - first));
    }
    begin = end + 1;
  }
  return parts;
}

std::vector<std::string> splitUnlessNamed(const std::vector<std::string>& typed,
                                          const std::function<bool(const std::string&)>& isNamed) {
  std::vector<std::string> patterns;
  for (const std::string& each : typed) {
    const std::vector<std::string> parts = isNamed(each) ? std::vector{each} : partsOf(each);
    patterns.insert(patterns.end(), parts.begin(), parts.end());
    if (parts.empty()) {
      patterns.push_back(each);
    }
  }
  return patterns;
}

std::vector<std::string> resolveKind(const Names& names, const std::vector<std::string>& typed) {
  const auto isNamed = [&](const std::string& pattern) { return matchesAny(names, pattern); };
  std::vector<std::string> patterns = splitUnlessNamed(typed, isNamed);
  for (std::string& pattern : patterns) {
    const std::vector<std::string> candidates =
        isNamed(pattern) ? std::vector<std::string>() : candidatesFor(names, pattern);
    if (candidates.size() == 1) {
      pattern = asPattern(candidates.front());
    }
  }
  return patterns;
}

/// The kinds of things, with their names.
class AllNames {
 public:
  explicit AllNames(const Catalogue& catalogue) {
    for (const PatternKind kind : {PatternKind::Package, PatternKind::Device, PatternKind::Test}) {
      m_names.emplace_back(kind, namesOf(catalogue, kind));
    }
  }

  const Names& of(PatternKind kind) const {
    return std::find_if(m_names.begin(), m_names.end(),
                        [&](const auto& entry) { return entry.first == kind; })
        ->second;
  }

  std::vector<std::pair<PatternKind, std::string>> meaningsOf(const std::string& word) const {
    std::vector<std::pair<PatternKind, std::string>> meanings;
    for (const auto& [kind, names] : m_names) {
      if (matchesAny(names, word)) {
        meanings.emplace_back(kind, word);
      }
    }
    if (!meanings.empty()) {
      return meanings;
    }
    for (const auto& [kind, names] : m_names) {
      for (const std::string& name : candidatesFor(names, word)) {
        meanings.emplace_back(kind, asPattern(name));
      }
      if (!meanings.empty()) {
        break;  // "mem" is the package before it is a device with a long name
      }
    }
    return meanings;
  }

 private:
  std::vector<std::pair<PatternKind, Names>> m_names;
};

std::string nameOfKind(PatternKind kind) {
  switch (kind) {
    case PatternKind::Package:
      return tr("package");
    case PatternKind::Device:
      return tr("device");
    case PatternKind::Test:
      return tr("test");
    case PatternKind::Word:
      break;
  }
  return {};
}

// What stands before a wildcard is held against as much of each name.
std::string nearTo(const std::string& pattern, const std::vector<std::string>& names) {
  constexpr const char* behindWords = " :/-";
  if (!hasWildcard(pattern)) {
    return didYouMean(pattern, names);
  }
  std::string word = pattern.substr(0, pattern.find_first_of("*?[\\"));
  word.erase(word.find_last_not_of(behindWords) + 1);
  std::vector<std::string> beginnings;
  for (const std::string& name : names) {
    beginnings.push_back(name.substr(0, word.size()));
  }
  const std::vector<std::string> nearest = nearestTo(word, beginnings);
  std::vector<std::string> near;
  for (const std::string& name : names) {
    const std::string beginning = name.substr(0, word.size());
    if (near.size() < kMostNear &&
        std::find(nearest.begin(), nearest.end(), beginning) != nearest.end()) {
      addOnce(near, name);
    }
  }
  return near.empty() ? "" : tr("; did you mean {}?", asAlternatives(near));
}

std::string hintForWord(const Catalogue& catalogue, const std::string& word) {
  const AllNames all(catalogue);
  std::vector<std::string> meanings;
  for (const auto& [kind, pattern] : all.meaningsOf(word)) {
    meanings.push_back(fmt::format("{} '{}'", nameOfKind(kind), pattern));
  }
  if (!meanings.empty()) {
    return tr(" alone; it may be {}", fmt::join(meanings, ", "));
  }
  std::vector<std::string> names;
  for (const PatternKind kind : {PatternKind::Package, PatternKind::Device, PatternKind::Test}) {
    for (const Named& named : all.of(kind)) {
      names.insert(names.end(), named.names.begin(), named.names.end());
    }
  }
  return nearTo(word, names);
}

}  // namespace

SelectionPatterns resolve(const Catalogue& catalogue, const SelectionPatterns& typed) {
  const AllNames all(catalogue);
  SelectionPatterns patterns;
  patterns.packages = resolveKind(all.of(PatternKind::Package), typed.packages);
  patterns.devices = resolveKind(all.of(PatternKind::Device), typed.devices);
  patterns.tests = resolveKind(all.of(PatternKind::Test), typed.tests);
  patterns.excludedPackages = resolveKind(all.of(PatternKind::Package), typed.excludedPackages);
  patterns.excludedDevices = resolveKind(all.of(PatternKind::Device), typed.excludedDevices);
  patterns.excludedTests = resolveKind(all.of(PatternKind::Test), typed.excludedTests);
  const auto isNamed = [&](const std::string& word) { return !all.meaningsOf(word).empty(); };
  for (const std::string& word : splitUnlessNamed(typed.words, isNamed)) {
    const auto meanings = all.meaningsOf(word);
    if (meanings.size() != 1) {
      patterns.words.push_back(word);
    } else if (meanings.front().first == PatternKind::Package) {
      patterns.packages.push_back(meanings.front().second);
    } else if (meanings.front().first == PatternKind::Device) {
      patterns.devices.push_back(meanings.front().second);
    } else {
      patterns.tests.push_back(meanings.front().second);
    }
  }
  return patterns;
}

std::vector<std::string> patternsOfWord(const Catalogue& catalogue, const std::string& word) {
  const AllNames all(catalogue);
  const auto isNamed = [&](const std::string& part) { return !all.meaningsOf(part).empty(); };
  std::vector<std::string> patterns = splitUnlessNamed({word}, isNamed);
  for (std::string& pattern : patterns) {
    const auto meanings = all.meaningsOf(pattern);
    if (meanings.size() == 1) {
      pattern = meanings.front().second;
    }
  }
  return patterns;
}

std::string hintFor(const Catalogue& catalogue, PatternKind kind, const std::string& pattern) {
  if (kind == PatternKind::Word) {
    return hintForWord(catalogue, pattern);
  }
  const Names names = namesOf(catalogue, kind);
  const std::vector<std::string> candidates = candidatesFor(names, pattern);
  if (candidates.size() > 1) {
    return tr(" alone; it may be {}", asAlternatives(candidates));
  }
  std::vector<std::string> near;
  for (const Named& named : names) {
    for (const std::string& name : named.names) {
      near.push_back(name);
    }
  }
  return nearTo(pattern, near);
}

std::vector<std::string> describeUnmatched(const Catalogue& catalogue,
                                           const SelectionPatterns& patterns) {
  std::vector<std::string> texts;
  for (const UnmatchedPattern& each : findUnmatched(catalogue, patterns)) {
    texts.push_back(toText(each) + hintFor(catalogue, each.kind, each.pattern));
  }
  return texts;
}

}  // namespace TarvexDiags::FrontEnd
