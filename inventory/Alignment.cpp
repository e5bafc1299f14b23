#include "inventory/Alignment.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace TarvexDiags::Inventory {

namespace {

constexpr const char* kPci = "pci";
constexpr const char* kSectionsByPlace[] = {kPci, "disks", "interfaces", "infiniband", "gpus"};

/// What hangs below a root: the way to each device, and its ids.
using Branch = std::set<std::string>;

std::string rootOf(const std::string& place) {
  return place.substr(0, place.find('/'));
}

std::string idOf(const Json& device, const char* key) {
  const auto found = device.is_object() ? device.find(key) : device.end();
  return device.is_object() && found != device.end() ? found->dump() : "";
}

std::map<std::string, Branch> branchesOf(const Json& inventory) {
  std::map<std::string, Branch> branches;
  const auto devices = inventory.find(kPci);
  if (devices == inventory.end() || !devices->is_object()) {
    return branches;
  }
  for (const auto& [place, device] : devices->items()) {
    const std::string root = rootOf(place);
    branches[root].insert(place.substr(root.size()) + " " + idOf(device, "vendor") +
                          idOf(device, "device"));
  }
  return branches;
}

std::size_t countCommon(const Branch& one, const Branch& other) {
  return static_cast<std::size_t>(std::count_if(
      one.begin(), one.end(), [&](const std::string& device) { return other.contains(device); }));
}

/// The names that roots get, of those that have something in common: the most alike are matched
/// first.
std::map<std::string, std::string> namesFor(const Json& other, const Json& inventory) {
  using Match = std::tuple<std::size_t, bool, std::string, std::string>;
  const std::map<std::string, Branch> wanted = branchesOf(other);
  std::vector<Match> matches;
  for (const auto& [root, branch] : branchesOf(inventory)) {
    for (const auto& [name, wantedBranch] : wanted) {
      const std::size_t common = countCommon(branch, wantedBranch);
      if (common > 0) {
        matches.emplace_back(common, root == name, root, name);
      }
    }
  }
  std::sort(matches.begin(), matches.end(), [](const Match& left, const Match& right) {
    const auto weight = [](const Match& match) {
      return std::pair(std::get<0>(match), std::get<1>(match));
    };
    return weight(left) != weight(right) ? weight(left) > weight(right)
                                         : std::tie(std::get<3>(left), std::get<2>(left)) <
                                               std::tie(std::get<3>(right), std::get<2>(right));
  });
  std::map<std::string, std::string> names;
  std::set<std::string> taken;
  for (const auto& [common, isSame, root, name] : matches) {
    if (!names.contains(root) && !taken.contains(name)) {
      names.emplace(root, name);
      taken.insert(name);
    }
  }
  return names;
}

/// A root that has no like keeps its name, marked where another one has it now.
std::string nameOf(const std::map<std::string, std::string>& names, const std::string& root) {
  if (const auto found = names.find(root); found != names.end()) {
    return found->second;
  }
  const bool isTaken = std::any_of(names.begin(), names.end(),
                                   [&](const auto& pair) { return pair.second == root; });
  return isTaken ? root + " (another)" : root;
}

Json renamed(const Json& section, const std::map<std::string, std::string>& names,
             const std::set<std::string>& roots) {
  Json copy = Json::object();
  for (const auto& [place, part] : section.items()) {
    const std::string root = rootOf(place);
    copy[roots.contains(root) ? nameOf(names, root) + place.substr(root.size()) : place] = part;
  }
  return copy;
}

void dropUpperEnds(Json& devices) {
  for (auto& [place, device] : devices.items()) {
    const std::size_t step = place.rfind('/');
    if (device.is_object() && device.contains("link") && device["link"].is_object() &&
        step != std::string::npos && devices.contains(place.substr(0, step))) {
      device["link"].erase("port");
    }
  }
}

void dropEmptyPlaces(Json& modules) {
  Json full = Json::object();
  for (const auto& [place, module] : modules.items()) {
    const Json populated = module.is_object() ? module.value("populated", Json()) : Json();
    if (populated == kUnknown) {
      full[place] = kUnknown;
    } else if (populated != false) {
      full[place] = module;
    }
  }
  modules = std::move(full);
}

}  // namespace

Json alignedWith(const Json& other, const Json& inventory) {
  const std::map<std::string, std::string> names = namesFor(other, inventory);
  std::set<std::string> roots;
  for (const auto& [root, branch] : branchesOf(inventory)) {
    roots.insert(root);
  }
  Json copy = inventory;
  for (const char* const section : kSectionsByPlace) {
    if (copy.contains(section) && copy[section].is_object()) {
      copy[section] = renamed(copy[section], names, roots);
    }
  }
  return copy;
}

Json simplified(const Json& inventory) {
  Json copy = inventory;
  if (copy.contains(kPci) && copy[kPci].is_object()) {
    dropUpperEnds(copy[kPci]);
  }
  if (copy.contains("memory") && copy["memory"].is_object() && copy["memory"].contains("modules") &&
      copy["memory"]["modules"].is_object()) {
    dropEmptyPlaces(copy["memory"]["modules"]);
  }
  return copy;
}

}  // namespace TarvexDiags::Inventory
