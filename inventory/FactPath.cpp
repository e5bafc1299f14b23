#include "inventory/FactPath.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace TarvexDiags::Inventory {

namespace {

constexpr std::string_view kAnySteps = "**";

std::string unescaped(std::string_view step) {
  std::string text;
  for (std::size_t place = 0; place < step.size(); ++place) {
    if (step[place] != '~') {
      text += step[place];
      continue;
    }
    const char next = ++place < step.size() ? step[place] : '\0';
    if (next != '0' && next != '1') {
      throw std::invalid_argument("behind \"~\" stands 0 or 1: \"~1\" is a slash");
    }
    text += next == '0' ? '~' : '/';
  }
  return text;
}

/// With "*" for any characters: goes back to the last one alone, which is enough.
bool matchesStep(std::string_view pattern, std::string_view step) {
  std::size_t at = 0;
  std::size_t behindStar = std::string_view::npos;
  std::size_t retry = 0;
  for (std::size_t place = 0; place < step.size();) {
    if (at < pattern.size() && pattern[at] == '*') {
      behindStar = ++at;
      retry = place;
    } else if (at < pattern.size() && pattern[at] == step[place]) {
      ++at;
      ++place;
    } else if (behindStar != std::string_view::npos) {
      at = behindStar;
      place = ++retry;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

bool matchesSteps(FactPath::const_iterator pattern, FactPath::const_iterator path,
                  std::ptrdiff_t steps) {
  return std::equal(pattern, pattern + steps, path, matchesStep);
}

}  // namespace

std::string toText(const FactPath& path) {
  std::string text;
  for (const std::string& step : path) {
    text += '/';
    for (const char sign : step) {
      if (sign == '~' || sign == '/') {
        text += sign == '~' ? "~0" : "~1";
      } else {
        text += sign;
      }
    }
  }
  return text;
}

FactPath patternOf(std::string_view text) {
  constexpr std::size_t kMostSteps = 32;
  if (!text.starts_with('/')) {
    throw std::invalid_argument("a path begins with a slash");
  }
  FactPath pattern;
  while (!text.empty()) {
    text.remove_prefix(1);
    const std::size_t end = std::min(text.find('/'), text.size());
    pattern.push_back(unescaped(text.substr(0, end)));
    text.remove_prefix(end);
  }
  if (pattern.size() > kMostSteps) {
    throw std::invalid_argument("a path has at most 32 steps");
  }
  if (std::count(pattern.begin(), pattern.end(), kAnySteps) > 1) {
    throw std::invalid_argument("a path has the step \"**\" at most once");
  }
  return pattern;
}

bool hasWildcard(const FactPath& pattern) {
  return std::any_of(pattern.begin(), pattern.end(),
                     [](const std::string& step) { return step.find('*') != std::string::npos; });
}

bool matches(const FactPath& pattern, const FactPath& path) {
  const auto any = std::find(pattern.begin(), pattern.end(), kAnySteps);
  const auto length = static_cast<std::ptrdiff_t>(path.size());
  if (any == pattern.end()) {
    return pattern.size() == path.size() && matchesSteps(pattern.begin(), path.begin(), length);
  }
  const std::ptrdiff_t before = any - pattern.begin();
  const std::ptrdiff_t behind = pattern.end() - any - 1;
  return before + behind <= length && matchesSteps(pattern.begin(), path.begin(), before) &&
         matchesSteps(any + 1, path.end() - behind, behind);
}

bool isWithin(const FactPath& path, const FactPath& whole) {
  return path.size() >= whole.size() && std::equal(whole.begin(), whole.end(), path.begin());
}

std::size_t stepsToPart(const FactPath& path) {
  constexpr std::string_view kSectionsOfParts[] = {"pci",        "disks", "interfaces",
                                                   "infiniband", "gpus",  "tpm"};
  if (path.empty()) {
    return 1;
  }
  if (std::find(std::begin(kSectionsOfParts), std::end(kSectionsOfParts), path.front()) !=
      std::end(kSectionsOfParts)) {
    return 2;
  }
  const bool isOfMemory =
      path.size() > 1 && path[0] == "memory" && (path[1] == "modules" || path[1] == "nodes");
  return isOfMemory ? 3 : 1;
}

FactPath partOf(const FactPath& path) {
  const std::size_t steps = std::min(stepsToPart(path), path.size());
  return {path.begin(), path.begin() + static_cast<std::ptrdiff_t>(steps)};
}

}  // namespace TarvexDiags::Inventory
