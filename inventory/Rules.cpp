#include "inventory/Rules.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>
#include <string_view>

#include "inventory/Document.h"

namespace TarvexDiags::Inventory {

namespace {

constexpr std::size_t kMostRules = 10'000;
constexpr const char* kPathKey = "path";
constexpr const char* kCompareKey = "compare";
constexpr const char* kSeverityKey = "severity";
constexpr const char* kPercentKey = "percent";
constexpr const char* kFollowsKey = "follows";
constexpr const char* kNoteKey = "note";
constexpr std::array kKeys = {kPathKey,    kCompareKey, kSeverityKey,
                              kPercentKey, kFollowsKey, kNoteKey};

template <class Value>
struct Word {
  const char* word;
  Value value;
};

constexpr std::array kComparisons = {
    Word<Compare>{"equal", Compare::Equal},     Word<Compare>{"atLeast", Compare::AtLeast},
    Word<Compare>{"present", Compare::Present}, Word<Compare>{"set", Compare::Set},
    Word<Compare>{"count", Compare::Count},     Word<Compare>{"tolerance", Compare::Tolerance},
    Word<Compare>{"ignore", Compare::Ignore},
};
constexpr std::array kSeverities = {
    Word<Gravity>{"failure", Gravity::Failure},
    Word<Gravity>{"warning", Gravity::Warning},
    Word<Gravity>{"information", Gravity::Information},
};

/// One rule of a list that anybody may have written.
class RuleReader {
 public:
  RuleReader(const Json& rule, const std::string& file, FactPath place)
      : m_rule(rule), m_file(file), m_place(std::move(place)) {}

  Rule read() const {
    requireKeys();
    Rule rule;
    rule.pattern = pathOf(kPathKey);
    rule.compare = wordOf(kCompareKey, kComparisons, nullptr);
    const bool isIgnored = rule.compare == Compare::Ignore;
    if (isIgnored && m_rule.contains(kSeverityKey)) {
      refuse(kSeverityKey, "what is ignored has none");
    }
    rule.severity = wordOf(kSeverityKey, kSeverities, "warning");
    rule.percent = percentOf(rule.compare);
    if (m_rule.contains(kFollowsKey)) {
      rule.follows = pathOf(kFollowsKey);
    }
    if (m_rule.contains(kNoteKey)) {
      rule.note = textOf(kNoteKey);
    }
    return rule;
  }

 private:
  [[noreturn]] void refuse(const char* key, const std::string& reason) const {
    FactPath place = m_place;
    if (key != nullptr) {
      place.emplace_back(key);
    }
    throw DocumentFault(m_file, toText(place), reason);
  }

  void requireKeys() const {
    if (!m_rule.is_object()) {
      refuse(nullptr, "a rule is an object");
    }
    for (const auto& [key, value] : m_rule.items()) {
      const bool isKnown = std::any_of(kKeys.begin(), kKeys.end(),
                                       [&key = key](const char* known) { return key == known; });
      if (!isKnown) {
        refuse(key.c_str(), "is no key of a rule: path, compare, severity, percent, follows, note");
      }
    }
  }

  std::string textOf(const char* key) const {
    const auto found = m_rule.find(key);
    if (found == m_rule.end()) {
      refuse(key, "is missing");
    }
    if (!found->is_string()) {
      refuse(key, "is no text");
    }
    return found->get<std::string>();
  }

  FactPath pathOf(const char* key) const {
    try {
      return patternOf(textOf(key));
    } catch (const std::invalid_argument& fault) {
      refuse(key, fault.what());
    }
  }

  template <class Value, std::size_t kSize>
  Value wordOf(const char* key, const std::array<Word<Value>, kSize>& words,
               const char* otherwise) const {
    const std::string word =
        otherwise != nullptr && !m_rule.contains(key) ? otherwise : textOf(key);
    std::string possible;
    for (const auto& known : words) {
      if (word == known.word) {
        return known.value;
      }
      possible += (possible.empty() ? "" : ", ") + std::string(known.word);
    }
    refuse(key, "\"" + word + "\" is none of " + possible);
  }

  double percentOf(Compare compare) const {
    constexpr double kMost = 100;
    const auto found = m_rule.find(kPercentKey);
    if ((found != m_rule.end()) != (compare == Compare::Tolerance)) {
      refuse(kPercentKey, "stands with \"tolerance\", and with it alone");
    }
    if (found == m_rule.end()) {
      return 0;
    }
    const double percent = found->is_number() ? found->get<double>() : -1;
    if (!(percent >= 0 && percent <= kMost)) {
      refuse(kPercentKey, "is no number from 0 to 100");
    }
    return percent;
  }

  const Json& m_rule;
  const std::string& m_file;
  const FactPath m_place;
};

template <class Words, class Value>
const char* nameIn(const Words& words, Value value) {
  return std::find_if(words.begin(), words.end(),
                      [&](const auto& known) { return known.value == value; })
      ->word;
}

}  // namespace

Rules Rules::parse(const Json& list, const std::string& file, const FactPath& place) {
  if (!list.is_array()) {
    throw DocumentFault(file, toText(place), "rules are a list");
  }
  if (list.size() > kMostRules) {
    throw DocumentFault(file, toText(place), "there are more than 10000 rules");
  }
  Rules rules;
  for (std::size_t number = 0; number < list.size(); ++number) {
    FactPath step = place;
    step.push_back(std::to_string(number));
    rules.add(RuleReader(list[number], file, std::move(step)).read());
  }
  return rules;
}

Rules::Rules(std::vector<Rule> rules) {
  for (Rule& rule : rules) {
    add(std::move(rule));
  }
}

void Rules::add(Rule rule) {
  if (hasWildcard(rule.pattern)) {
    m_others.push_back(m_rules.size());
  } else {
    m_exact.emplace(rule.pattern, m_rules.size());
  }
  m_rules.push_back(std::move(rule));
}

void Rules::append(const Rules& others) {
  for (const Rule& rule : others.m_rules) {
    add(rule);
  }
}

const Rule* Rules::find(const FactPath& path) const {
  const auto found = m_exact.find(path);
  const std::size_t exact = found == m_exact.end() ? m_rules.size() : found->second;
  const auto end = std::lower_bound(m_others.begin(), m_others.end(), exact);
  const auto other = std::find_if(m_others.begin(), end, [&](std::size_t number) {
    return matches(m_rules[number].pattern, path);
  });
  const std::size_t first = other == end ? exact : *other;
  return first == m_rules.size() ? nullptr : &m_rules[first];
}

Json Rules::asJson() const {
  Json list = Json::array();
  for (const Rule& rule : m_rules) {
    Json entry = {{kPathKey, toText(rule.pattern)},
                  {kCompareKey, nameIn(kComparisons, rule.compare)}};
    if (rule.compare != Compare::Ignore) {
      entry[kSeverityKey] = nameIn(kSeverities, rule.severity);
    }
    if (rule.compare == Compare::Tolerance) {
      entry[kPercentKey] = rule.percent;
    }
    if (!rule.follows.empty()) {
      entry[kFollowsKey] = toText(rule.follows);
    }
    if (!rule.note.empty()) {
      entry[kNoteKey] = rule.note;
    }
    list.push_back(std::move(entry));
  }
  return list;
}

}  // namespace TarvexDiags::Inventory
