#include "inventory/Comparison.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <utility>

#include "inventory/Alignment.h"
#include "inventory/LinkedParts.h"

namespace TarvexDiags::Inventory {

namespace {

bool isNotKnown(const Json* fact) {
  return fact != nullptr && *fact == kUnknown;
}

std::set<std::string> membersOf(const Json& tree) {
  std::set<std::string> members;
  for (const auto& [key, value] : tree.items()) {
    members.insert(tree.is_object() ? key : value.dump());
  }
  return members;
}

bool isWithinTolerance(double expected, double actual, double percent) {
  constexpr double kWhole = 100;
  return std::abs(actual - expected) <= std::abs(expected) * percent / kWhole;
}

/// How a fact is to be looked at: by its rule, or as one without.
struct Judgement {
  Compare compare = Compare::Equal;
  Gravity severity = Gravity::Warning;
  double percent = 0;
};

/// What a fact means that both sides have; nothing when it is as expected.
std::optional<Gravity> judge(const Judgement& judgement, const Json& expected, const Json& actual) {
  const bool areNumbers = expected.is_number() && actual.is_number();
  const bool areTrees = expected.is_structured() && expected.type() == actual.type();
  bool holds = expected == actual;
  if (judgement.compare == Compare::Present) {
    holds = true;
  } else if (judgement.compare == Compare::AtLeast && areNumbers) {
    if (actual > expected) {
      return Gravity::Information;
    }
  } else if (judgement.compare == Compare::Tolerance && areNumbers) {
    holds = isWithinTolerance(expected.get<double>(), actual.get<double>(), judgement.percent);
  } else if (judgement.compare == Compare::Set && areTrees) {
    holds = membersOf(expected) == membersOf(actual);
  } else if (judgement.compare == Compare::Count && areTrees) {
    holds = expected.size() == actual.size();
  }
  return holds ? std::nullopt : std::optional(judgement.severity);
}

/// What a value means that one side alone has. @param rule null for none.
Gravity gravityOfLone(const FactPath& path, bool isMissing, const Rule* rule) {
  const bool isPart = path.size() <= stepsToPart(path);
  if (isPart && isMissing) {
    return rule != nullptr ? rule->severity : Gravity::Failure;
  }
  if (isMissing && rule != nullptr && rule->compare == Compare::AtLeast) {
    return rule->severity;  // none is less than whatever is expected
  }
  const bool isOpen =
      rule == nullptr || rule->compare == Compare::AtLeast || rule->compare == Compare::Present;
  if (!isPart && !isMissing && isOpen) {
    return Gravity::Information;
  }
  return std::min(rule != nullptr ? rule->severity : Gravity::Warning, Gravity::Warning);
}

/// Goes along both documents.
class Walk {
 public:
  /// @param rules kept alive by the caller.
  explicit Walk(const Rules& rules) : m_rules(rules) {}
  explicit Walk(Rules&& rules) = delete;

  void compare(const Json* expected, const Json* actual) {
    const Rule* const rule = m_path.empty() ? nullptr : m_rules.find(m_path);
    const bool isIgnored = rule != nullptr && rule->compare == Compare::Ignore;
    if (isIgnored || (expected == nullptr && actual == nullptr)) {
      return;
    }
    if (isNotKnown(expected) || isNotKnown(actual)) {
      noteUnknown(expected, actual);
    } else if (leadsOn(expected, actual, rule)) {
      descend(expected, actual);
    } else if (expected == nullptr || actual == nullptr) {
      note(expected, actual, gravityOfLone(m_path, actual == nullptr, rule));
    } else {
      const Judgement judgement =
          rule == nullptr ? Judgement{} : Judgement{rule->compare, rule->severity, rule->percent};
      if (const auto gravity = judge(judgement, *expected, *actual)) {
        note(expected, actual, *gravity);
      }
    }
  }

  std::vector<Difference> differences;
  std::vector<Difference> unknown;
  std::vector<FactPath> unknownOnBothSides;

 private:
  /// Whether the facts within a tree are compared, and not the tree itself.
  bool leadsOn(const Json* expected, const Json* actual, const Rule* rule) const {
    const bool areTrees = (expected == nullptr || expected->is_object()) &&
                          (actual == nullptr || actual->is_object());
    const bool isAbovePart = m_path.size() < stepsToPart(m_path);
    const bool isLone = expected == nullptr || actual == nullptr;
    return areTrees && (isAbovePart || !isLone) &&
           (rule == nullptr || rule->compare == Compare::Present);
  }

  static const Json* within(const Json* tree, const std::string& key) {
    const bool has = tree != nullptr && tree->contains(key);
    return has ? &*tree->find(key) : nullptr;
  }

  void descend(const Json* expected, const Json* actual) {
    std::set<std::string> keys;
    for (const Json* const tree : {expected, actual}) {
      if (tree != nullptr) {
        const std::set<std::string> more = membersOf(*tree);
        keys.insert(more.begin(), more.end());
      }
    }
    for (const std::string& key : keys) {
      m_path.push_back(key);
      compare(within(expected, key), within(actual, key));
      m_path.pop_back();
    }
  }

  void noteUnknown(const Json* expected, const Json* actual) {
    if (isNotKnown(expected) && isNotKnown(actual)) {
      unknownOnBothSides.push_back(m_path);
    } else {
      unknown.push_back(differenceOf(expected, actual, Gravity::Warning));
    }
  }

  void note(const Json* expected, const Json* actual, Gravity gravity) {
    differences.push_back(differenceOf(expected, actual, gravity));
  }

  Difference differenceOf(const Json* expected, const Json* actual, Gravity gravity) const {
    const auto copy = [](const Json* fact) {
      return fact == nullptr ? std::nullopt : std::optional<Json>(*fact);
    };
    return {m_path, copy(expected), copy(actual), gravity};
  }

  const Rules& m_rules;
  FactPath m_path;
};

/// Takes out what the rules let follow from something that is told anyway.
void dropWhatFollows(std::vector<Difference>& differences, const Rules& rules) {
  const std::vector<Difference> told = differences;
  std::erase_if(differences, [&](const Difference& difference) {
    const Rule* const rule = rules.find(difference.path);
    return rule != nullptr && !rule->follows.empty() &&
           std::any_of(told.begin(), told.end(), [&](const Difference& other) {
             return other.gravity != Gravity::Information && isWithin(other.path, rule->follows);
           });
  });
}

Json factsAt(const Json& document, const FactPath& path) {
  const Json* tree = &document;
  for (const std::string& step : path) {
    if (!tree->is_object() || !tree->contains(step)) {
      return {};
    }
    tree = &*tree->find(step);
  }
  return *tree;
}

Finding findingOf(const FactPath& part, std::vector<Difference> differences) {
  Finding finding{.part = part, .facts = {}, .differences = {}, .with = {}};
  finding.gravity = Gravity::Information;
  for (const Difference& difference : differences) {
    finding.gravity = std::max(finding.gravity, difference.gravity);
  }
  const Difference& first = differences.front();
  if (first.path == part && !first.actual) {
    finding.kind = Finding::Kind::PartMissing;
  } else if (first.path == part && !first.expected) {
    finding.kind = Finding::Kind::PartAdded;
  } else {
    finding.kind = finding.gravity == Gravity::Failure ? Finding::Kind::PartDegraded
                                                       : Finding::Kind::PartDiffers;
    finding.differences = std::move(differences);
  }
  return finding;
}

std::map<FactPath, std::vector<Difference>> byPart(const std::vector<Difference>& differences) {
  std::map<FactPath, std::vector<Difference>> parts;
  for (const Difference& difference : differences) {
    parts[partOf(difference.path)].push_back(difference);
  }
  return parts;
}

std::vector<Finding> findingsOf(const Walk& walk) {
  std::vector<Finding> findings;
  for (auto& [part, differences] : byPart(walk.differences)) {
    findings.push_back(findingOf(part, differences));
  }
  for (auto& [part, differences] : byPart(walk.unknown)) {
    findings.push_back({.kind = Finding::Kind::NotComparable,
                        .part = part,
                        .facts = {},
                        .differences = differences,
                        .with = {}});
  }
  return findings;
}

}  // namespace

Comparison compare(const Json& expected, const Json& actual, const Rules& rules) {
  const Json wanted = simplified(expected);
  const Json found = simplified(alignedWith(expected, actual));
  Walk walk(rules);
  for (const Json* const document : {&wanted, &found}) {
    if (!document->is_object()) {
      return {};
    }
  }
  const auto withoutHead = [](Json document) {
    document.erase("document");
    document.erase("version");
    return document;
  };
  const Json left = withoutHead(wanted);
  const Json right = withoutHead(found);
  walk.compare(&left, &right);
  dropWhatFollows(walk.differences, rules);
  tellLinksOnce(walk.differences);
  Comparison comparison;
  comparison.findings = findingsOf(walk);
  gatherWhatHangsOn(comparison.findings, wanted, found);
  for (Finding& finding : comparison.findings) {
    finding.facts = factsAt(found, finding.part);
    if (finding.facts.is_null()) {
      finding.facts = factsAt(wanted, finding.part);
    }
  }
  std::stable_sort(comparison.findings.begin(), comparison.findings.end(),
                   [](const Finding& one, const Finding& other) {
                     return std::pair(other.gravity, one.part) < std::pair(one.gravity, other.part);
                   });
  comparison.unknownOnBothSides = std::move(walk.unknownOnBothSides);
  return comparison;
}

std::vector<Difference> differencesOf(const Json& one, const Json& other) {
  const Json aligned = alignedWith(one, other);
  const Rules none;
  Walk walk(none);
  walk.compare(&one, &aligned);
  std::vector<Difference> differences = std::move(walk.differences);
  differences.insert(differences.end(), walk.unknown.begin(), walk.unknown.end());
  std::sort(differences.begin(), differences.end(),
            [](const Difference& left, const Difference& right) { return left.path < right.path; });
  return differences;
}

}  // namespace TarvexDiags::Inventory
