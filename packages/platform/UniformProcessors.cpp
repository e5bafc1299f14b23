#include "packages/platform/UniformProcessors.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <vector>

#include "inventory/Inventory.h"
#include "watch/CpuFiles.h"

namespace TarvexDiags::Platform {

namespace {

using Numbers = std::vector<int>;
using ByProcessor = std::map<int, std::string>;

/// What the inventory tells by value, {"0x2b": "0-31"}, by processor.
ByProcessor byProcessor(const Json& processors, const char* key) {
  ByProcessor values;
  const auto shares = processors.find(key);
  if (shares != processors.end() && shares->is_object()) {
    for (const auto& [value, list] : shares->items()) {
      for (const int number : Watching::parseCpuList(list.get<std::string>())) {
        values[number] = value;
      }
    }
  }
  return values;
}

std::map<std::string, Numbers> byValue(const ByProcessor& values, const Numbers& numbers) {
  std::map<std::string, Numbers> groups;
  for (const int number : numbers) {
    if (const auto found = values.find(number); found != values.end()) {
      groups[found->second].push_back(number);
    }
  }
  return groups;
}

std::string described(const std::map<std::string, Numbers>& groups, const char* unit = "") {
  std::vector<std::string> texts;
  for (const auto& [value, numbers] : groups) {
    texts.push_back(value + unit + ": " + Inventory::listOf(numbers));
  }
  return joined(texts, "; ");
}

Numbers without(const Numbers& all, const Numbers& some) {
  Numbers rest;
  std::set_difference(all.begin(), all.end(), some.begin(), some.end(), std::back_inserter(rest));
  return rest;
}

Numbers inBoth(const Numbers& one, const Numbers& other) {
  Numbers both;
  std::set_intersection(one.begin(), one.end(), other.begin(), other.end(),
                        std::back_inserter(both));
  return both;
}

class ProcessorJudge {
 public:
  ProcessorJudge(std::string device, const SystemFiles& files, RunJournal& journal)
      : m_device(std::move(device)),
        m_files(files),
        m_journal(journal),
        m_facts(Inventory::processorFacts(files)) {}

  void judge() {
    findKinds();
    tellKinds();
    for (const auto& [kind, numbers] : m_kinds) {
      judgeMicrocode(numbers);
      judgeFlags(numbers);
      judgeLimits(numbers);
    }
    if (!m_hasFindings) {
      const std::string microcode = described(byValue(byProcessor(m_facts, "microcode"), m_all));
      tell(PlatformEvent::ProcessorsAlike,
           {std::to_string(m_all.size()), microcode.empty() ? "NOT_TOLD" : microcode});
    }
  }

 private:
  void tell(PlatformEvent event, std::vector<std::string> parameters) {
    m_hasFindings = m_hasFindings || event == PlatformEvent::MixedProcessors ||
                    event == PlatformEvent::MicrocodeDiffers ||
                    event == PlatformEvent::FlagsMissing ||
                    event == PlatformEvent::FrequencyHeldBack;
    parameters.insert(parameters.begin(), m_device);
    report(m_journal, event, std::move(parameters));
  }

  /// Those that say what a processor is; none of them is told everywhere.
  void findKinds() {
    ByProcessor names;
    for (const char* const key : {"model", "stepping", "implementer", "part", "revision"}) {
      for (const auto& [number, value] : byProcessor(m_facts, key)) {
        std::string& name = names[number];
        name += (name.empty() ? "" : " ") + value;
      }
    }
    for (const auto& [number, name] : names) {
      m_all.push_back(number);
    }
    if (m_all.empty()) {
      throw NotSupported(Reasons::kProcessorsNotTold);
    }
    if (m_all.size() == 1) {
      throw NotSupported(Reasons::kOneProcessor);
    }
    m_models = byValue(names, m_all);
    for (const char* const type : {"cpu_core", "cpu_atom"}) {
      const std::string list =
          m_files.text(std::filesystem::path("sys/devices") / type / "cpus").value_or("");
      for (const int number : Watching::parseCpuList(list)) {
        if (names.contains(number)) {
          names[number] += std::string(" ") + type;
          m_isHybrid = true;
        }
      }
    }
    m_kinds = byValue(names, m_all);
  }

  /// Strong and frugal cores are one model; other makers build several models into one processor.
  void tellKinds() {
    if (m_kinds.size() < 2) {
      return;
    }
    const bool isMixed =
        m_isHybrid ? m_models.size() > 1 : !m_facts.contains("part") && socketsOf(m_all).size() > 1;
    tell(isMixed ? PlatformEvent::MixedProcessors : PlatformEvent::KindsOfProcessors,
         {described(m_kinds)});
  }

  void judgeMicrocode(const Numbers& numbers) {
    const auto groups = byValue(byProcessor(m_facts, "microcode"), numbers);
    // Of two as large the one with the higher number is taken for right: it is the newer.
    auto right = groups.begin();
    for (auto group = groups.begin(); group != groups.end(); ++group) {
      right = group->second.size() >= right->second.size() ? group : right;
    }
    for (auto group = groups.begin(); group != groups.end(); ++group) {
      if (group != right) {
        tell(PlatformEvent::MicrocodeDiffers,
             {Inventory::listOf(group->second), socketText(group->second), group->first,
              right->first});
      }
    }
  }

  void judgeFlags(const Numbers& numbers) {
    const auto some = m_facts.find("flagsOfSome");
    if (some == m_facts.end()) {
      return;
    }
    std::map<Numbers, std::vector<std::string>> lacking;
    for (const auto& [flag, list] : some->items()) {
      const Numbers owners = inBoth(numbers, Watching::parseCpuList(list.get<std::string>()));
      if (!owners.empty() && owners.size() < numbers.size()) {
        lacking[without(numbers, owners)].push_back(flag);
      }
    }
    for (const auto& [who, flags] : lacking) {
      tell(PlatformEvent::FlagsMissing,
           {Inventory::listOf(who), socketText(who), joined(flags, " ")});
    }
  }

  /// Makers give single cores higher limits; what somebody set lower for some cores is no such.
  void judgeLimits(const Numbers& numbers) {
    const ByProcessor most = byProcessor(m_facts, "mostKilohertz");
    if (const auto groups = byValue(most, numbers); groups.size() > 1) {
      tell(PlatformEvent::FrequenciesDiffer, {described(groups, " kHz")});
    }
    const ByProcessor allowed = byProcessor(m_facts, "mostKilohertzSet");
    Numbers heldBack;
    for (const int number : numbers) {
      if (most.contains(number) && allowed.contains(number) &&
          kilohertz(allowed.at(number)) < kilohertz(most.at(number))) {
        heldBack.push_back(number);
      }
    }
    if (heldBack.empty() || heldBack.size() == numbers.size()) {
      return;
    }
    for (const auto& [limit, who] : byValue(allowed, heldBack)) {
      tell(PlatformEvent::FrequencyHeldBack,
           {Inventory::listOf(who), socketText(who), limit, most.at(who.front())});
    }
  }

  static long kilohertz(const std::string& text) { return std::atol(text.c_str()); }

  std::set<std::string> socketsOf(const Numbers& numbers) const {
    std::set<std::string> sockets;
    for (const int number : numbers) {
      if (const auto place = Watching::placeOfCpu(m_files, number)) {
        sockets.insert(std::to_string(place->socket));
      }
    }
    return sockets;
  }

  std::string socketText(const Numbers& numbers) const {
    const std::set<std::string> sockets = socketsOf(numbers);
    return sockets.empty() ? "NOT_TOLD" : joined({sockets.begin(), sockets.end()});
  }

  std::string m_device;
  const SystemFiles& m_files;
  RunJournal& m_journal;
  Json m_facts;
  Numbers m_all;
  std::map<std::string, Numbers> m_models;
  std::map<std::string, Numbers> m_kinds;
  bool m_isHybrid = false;
  bool m_hasFindings = false;
};

}  // namespace

void judgeProcessors(const std::string& device, const SystemFiles& files, RunJournal& journal) {
  ProcessorJudge(device, files, journal).judge();
}

}  // namespace TarvexDiags::Platform
