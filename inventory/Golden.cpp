#include "inventory/Golden.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "inventory/Alignment.h"
#include "inventory/Document.h"
#include "inventory/Facts.h"

namespace TarvexDiags::Inventory {

namespace {

constexpr const char* kGoldenDocument = "diagctl.golden";
constexpr int kGoldenVersion = 1;

const Json kAbstention = kUnknown;

bool abstains(const Json* fact) {
  return fact != nullptr && *fact == kAbstention;
}

/// Asks all machines for each fact. One that does not know a tree, as an inventory taken without
/// the right to it, does not know what is in it, and the others tell.
class Vote {
 public:
  Vote(std::size_t machines, const Rules& rules) : m_machines(machines), m_rules(rules) {}

  /// What most have at the place at which the vote stands; nothing when most have nothing there,
  /// when it is ignored, or when they do not agree.
  std::optional<Json> take(const std::vector<const Json*>& facts) {
    const Rule* const rule = m_path.empty() ? nullptr : m_rules.find(m_path);
    if (rule != nullptr && rule->compare == Compare::Ignore) {
      return std::nullopt;
    }
    const bool leadsOn =
        (rule == nullptr || rule->compare == Compare::Present) &&
        std::all_of(facts.begin(), facts.end(),
                    [](const Json* fact) {
                      return fact == nullptr || fact->is_object() || abstains(fact);
                    }) &&
        !std::all_of(facts.begin(), facts.end(), abstains);
    if (!leadsOn) {
      return mostFrequent(facts, rule);
    }
    if (m_path.size() >= stepsToPart(m_path) && !isThere(facts)) {
      return std::nullopt;
    }
    return takeWithin(facts);
  }

  std::vector<Rule> ignored;

 private:
  bool isMajority(std::size_t count) const { return count * 4 >= m_machines * 3; }

  void ignore(const std::string& note) {
    ignored.push_back({.pattern = m_path, .compare = Compare::Ignore, .follows = {}, .note = note});
  }

  std::string ofMachines(std::size_t count) const {
    return std::to_string(count) + " of " + std::to_string(m_machines) + " machines";
  }

  bool isThere(const std::vector<const Json*>& facts) {
    const auto absent = static_cast<std::size_t>(std::count(facts.begin(), facts.end(), nullptr));
    if (isMajority(absent)) {
      return false;
    }
    if (!isMajority(m_machines - absent)) {
      ignore(ofMachines(m_machines - absent) + " have it");
      return false;
    }
    return true;
  }

  Json takeWithin(const std::vector<const Json*>& trees) {
    std::set<std::string> keys;
    for (const Json* const tree : trees) {
      if (tree != nullptr && !abstains(tree)) {
        for (const auto& [key, value] : tree->items()) {
          keys.insert(key);
        }
      }
    }
    Json most = Json::object();
    for (const std::string& key : keys) {
      std::vector<const Json*> facts;
      for (const Json* const tree : trees) {
        const bool has = tree != nullptr && tree->is_object() && tree->contains(key);
        facts.push_back(has ? &*tree->find(key) : abstains(tree) ? tree : nullptr);
      }
      m_path.push_back(key);
      if (auto fact = take(facts)) {
        most[key] = std::move(*fact);
      }
      m_path.pop_back();
    }
    return most;
  }

  static bool isAlike(const Json& one, const Json& other, const Rule* rule) {
    constexpr double kWhole = 100;
    if (rule == nullptr || rule->compare != Compare::Tolerance || !one.is_number() ||
        !other.is_number()) {
      return one == other;
    }
    const auto value = one.get<double>();
    return std::abs(other.get<double>() - value) <= std::abs(value) * rule->percent / kWhole;
  }

  std::optional<Json> mostFrequent(const std::vector<const Json*>& facts, const Rule* rule) {
    std::map<std::string, const Json*> values;  // sorted, so that the order of the files is none
    for (const Json* const fact : facts) {
      values.emplace(fact == nullptr ? "" : fact->dump(), fact);
    }
    const Json* best = nullptr;
    std::size_t most = 0;
    for (const auto& [text, value] : values) {
      const auto count = static_cast<std::size_t>(
          std::count_if(facts.begin(), facts.end(), [&, candidate = value](const Json* fact) {
            return candidate == nullptr || fact == nullptr ? candidate == fact
                                                           : isAlike(*candidate, *fact, rule);
          }));
      if (count > most) {
        best = value;
        most = count;
      }
    }
    if (!isMajority(most)) {
      ignore(std::to_string(values.size()) + " values; the most frequent one has " +
             ofMachines(most));
      return std::nullopt;
    }
    return best == nullptr ? std::nullopt : std::optional<Json>(*best);
  }

  const std::size_t m_machines;
  const Rules& m_rules;
  FactPath m_path;
};

}  // namespace

Golden goldenOf(const std::vector<NamedInventory>& machines, const Rules& rules) {
  std::vector<Json> documents;
  for (const NamedInventory& machine : machines) {
    Json document = simplified(alignedWith(machines.front().inventory, machine.inventory));
    document.erase("document");
    document.erase("version");
    documents.push_back(std::move(document));
  }
  std::vector<const Json*> trees;
  for (const Json& document : documents) {
    trees.push_back(&document);
  }
  Vote vote(machines.size(), rules);
  Golden golden;
  golden.inventory = vote.take(trees).value_or(Json::object());
  for (const auto& [section, facts] : documents.front().items()) {
    golden.inventory.emplace(section, Json::object());  // also where all of it is ignored
  }
  golden.inventory["document"] = "diagctl.inventory";
  golden.inventory["version"] = 1;
  golden.rules = Rules(std::move(vote.ignored));
  return golden;
}

std::vector<OddMachine> oddMachines(const std::vector<NamedInventory>& machines,
                                    const Golden& golden, const Rules& rules) {
  Rules all = golden.rules;
  all.append(rules);
  std::vector<OddMachine> odd;
  for (const NamedInventory& machine : machines) {
    if (auto findings = compare(golden.inventory, machine.inventory, all).findings;
        !findings.empty()) {
      odd.push_back({machine.name, std::move(findings)});
    }
  }
  return odd;
}

Json toJson(const Golden& golden, std::size_t count) {
  return {{"document", kGoldenDocument},
          {"version", kGoldenVersion},
          {"machines", count},
          {"inventory", golden.inventory},
          {"rules", golden.rules.asJson()}};
}

Golden readGolden(const std::string& file) {
  return parseGolden(readDocument(file), file);
}

Golden parseGolden(const Json& document, const std::string& file) {
  if (!document.is_object() || document.value("document", Json()) != kGoldenDocument) {
    requireInventory(document, file);
    return {document, {}};
  }
  if (document.value("version", Json()) != kGoldenVersion) {
    throw DocumentFault(file, "/version", "it is of another version; derive it again");
  }
  Golden golden;
  golden.inventory = document.value("inventory", Json());
  requireInventory(golden.inventory, file);
  golden.rules = Rules::parse(document.value("rules", Json()), file, {"rules"});
  return golden;
}

}  // namespace TarvexDiags::Inventory
