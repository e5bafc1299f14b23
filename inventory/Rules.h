#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "inventory/FactPath.h"
#include "inventory/Facts.h"

namespace TarvexDiags::Inventory {

/// @brief How a fact is held against the one that is expected.
enum class Compare {
  Equal,      ///< the same, a tree as a whole
  AtLeast,    ///< a number that is not less
  Present,    ///< there, whatever it is; of a tree, its facts are compared by their own rules
  Set,        ///< the same members, in any order
  Count,      ///< as many members
  Tolerance,  ///< a number that differs by so many percent at most
  Ignore,     ///< not looked at, nor what is within it
};

/// @brief What it means when a fact is not as expected, the worst last.
enum class Gravity { Information, Warning, Failure };

struct Rule {
  FactPath pattern;
  Compare compare = Compare::Equal;
  Gravity severity = Gravity::Warning;
  double percent = 0;  ///< of Tolerance
  FactPath follows;    ///< a place whose findings tell this one already; empty for none
  std::string note;    ///< why; for people
};

/// @brief The rules by which a machine is held against what it should be: the first whose path
/// means a fact is the one for it.
class Rules {
 public:
  /// @brief Those that come along: data/rules.json.
  static const Rules& shipped();

  /// @brief Reads a list of rules. @param file its name, and @param place where the list stands in
  /// it, for people.
  /// @throws DocumentFault naming file, rule and reason.
  static Rules parse(const Json& list, const std::string& file, const FactPath& place = {});

  Rules() = default;
  explicit Rules(std::vector<Rule> rules);

  /// @brief Others that hold where none of these does.
  void append(const Rules& others);

  /// @brief The rule for a fact; null for none. Valid as long as the rules stay.
  /// Rules without a wildcard are found at once: what many machines are has one for each fact on
  /// which they do not agree.
  const Rule* find(const FactPath& path) const;

  /// @brief As a list that parse reads.
  Json asJson() const;

  std::size_t size() const { return m_rules.size(); }

 private:
  void add(Rule rule);

  std::vector<Rule> m_rules;
  std::map<FactPath, std::size_t> m_exact;  ///< the first rule of each path without a wildcard
  std::vector<std::size_t> m_others;        ///< rules, rising
};

}  // namespace TarvexDiags::Inventory
