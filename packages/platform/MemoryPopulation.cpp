#include "packages/platform/MemoryPopulation.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

#include "inventory/DmiTable.h"
#include "inventory/Inventory.h"

namespace TarvexDiags::Platform {

namespace {

using Inventory::MemoryModule;
using Modules = std::vector<const MemoryModule*>;

std::string nameOf(const MemoryModule& module) {
  return module.bank.empty() ? module.locator : module.locator + " (" + module.bank + ")";
}

std::string namesOf(const Modules& modules) {
  std::vector<std::string> names;
  for (const MemoryModule* const module : modules) {
    names.push_back(module->locator);
  }
  return joined(names);
}

std::string transfersText(std::uint64_t megatransfers) {
  return std::to_string(megatransfers) + " MT/s";
}

std::string descriptionOf(const MemoryModule& module) {
  constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20U;
  std::string text = std::to_string(module.bytes / kMebibyte) + " MiB";
  if (!module.technology.empty()) {
    text += " " + module.technology;
  }
  return module.ratedSpeed == 0 ? text : text + " " + transfersText(module.ratedSpeed);
}

/// Modules that should be alike. Without a number of firmware's, all on one controller are such.
using SetKey = std::tuple<std::uint64_t, std::uint64_t, std::string>;

class PopulationJudge {
 public:
  PopulationJudge(std::string device, std::vector<MemoryModule> modules, RunJournal& journal)
      : m_device(std::move(device)), m_modules(std::move(modules)), m_journal(journal) {}

  void judge() {
    std::map<SetKey, Modules> sets;
    std::size_t populated = 0;
    for (const MemoryModule& module : m_modules) {
      if (module.isPopulated.value_or(false)) {
        ++populated;
        sets[{module.array, module.set, module.technology}].push_back(&module);
      }
    }
    if (populated == 0) {
      throw NotSupported(Reasons::kModulesNotTold);
    }
    for (const auto& [key, modules] : sets) {
      judgeSet(modules, std::get<1>(key) != 0);
    }
    tellSpeeds();
    tell(PlatformEvent::ModulesJudged,
         {std::to_string(populated), std::to_string(m_modules.size())});
  }

 private:
  void tell(PlatformEvent event, std::vector<std::string> parameters) {
    parameters.insert(parameters.begin(), m_device);
    report(m_journal, event, std::move(parameters));
  }

  void judgeSet(const Modules& modules, bool isDeclared) {
    std::map<std::string, Modules> groups;
    for (const MemoryModule* const module : modules) {
      groups[descriptionOf(*module)].push_back(module);
    }
    const auto most = std::max_element(
        groups.begin(), groups.end(),
        [](const auto& one, const auto& other) { return one.second.size() < other.second.size(); });
    const bool isClear = 4 * most->second.size() >= 3 * modules.size();
    if (groups.size() > 1 && !isDeclared && !isClear) {
      tellMixture(groups);
      return;
    }
    for (auto group = groups.begin(); group != groups.end(); ++group) {
      for (const MemoryModule* const module : group->second) {
        if (group != most) {
          tell(PlatformEvent::ModuleDiffers, {nameOf(*module), group->first, most->first});
        }
      }
    }
  }

  void tellMixture(const std::map<std::string, Modules>& groups) {
    std::vector<std::string> texts;
    for (const auto& [description, modules] : groups) {
      texts.push_back(description + ": " + namesOf(modules));
    }
    tell(PlatformEvent::ModulesMixed, {joined(texts, "; ")});
  }

  void tellSpeeds() {
    std::map<std::pair<std::uint64_t, std::uint64_t>, Modules> slow;
    for (const MemoryModule& module : m_modules) {
      if (module.configuredSpeed != 0 && module.configuredSpeed < module.ratedSpeed) {
        slow[{module.configuredSpeed, module.ratedSpeed}].push_back(&module);
      }
    }
    for (const auto& [speeds, modules] : slow) {
      tell(PlatformEvent::ModulesBelowRated,
           {namesOf(modules), transfersText(speeds.first), transfersText(speeds.second)});
    }
  }

  std::string m_device;
  std::vector<MemoryModule> m_modules;
  RunJournal& m_journal;
};

/// @return whether a node was told of
bool judgeNodes(const std::string& device, const SystemFiles& files, RunJournal& journal) {
  bool isAnyEmpty = false;
  const Json memory = Inventory::memoryFacts(files);
  const Json nodes = memory.value("nodes", Json::object());
  for (const auto& [number, node] : nodes.items()) {
    const std::string processors = textOf(node, "processors");
    if (!processors.empty() && node.contains("bytes") && node["bytes"] == 0) {
      report(journal, PlatformEvent::NodeWithoutMemory, {device, number, processors});
      isAnyEmpty = true;
    }
  }
  return isAnyEmpty;
}

}  // namespace

void judgePopulation(const std::string& device, const SystemFiles& files, RunJournal& journal) {
  const bool isNodeEmpty = judgeNodes(device, files, journal);
  const Inventory::ModuleTable table = Inventory::readModules(files);
  try {
    if (table.isWithheld) {
      throw NotSupported(Reasons::kModulesWithheld);
    }
    PopulationJudge(device, table.modules, journal).judge();
  } catch (const NotSupported&) {
    if (!isNodeEmpty) {
      throw;
    }
  }
}

}  // namespace TarvexDiags::Platform
