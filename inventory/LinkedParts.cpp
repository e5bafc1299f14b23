#include "inventory/LinkedParts.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace TarvexDiags::Inventory {

namespace {

constexpr const char* kPciSection = "pci";

/// "0000:00/1c.0" above "0000:00/1c.0/00.1"; empty for a device of the root.
std::string bridgeAbove(const std::string& place) {
  const std::size_t step = place.rfind('/');
  const std::string above = step == std::string::npos ? "" : place.substr(0, step);
  return above.find('/') == std::string::npos ? "" : above;
}

/// "0000:00/1c.0/00.0" for "0000:00/1c.0/00.1".
std::string firstFunctionOf(const std::string& place) {
  const std::size_t function = place.rfind('.');
  return function == std::string::npos ? place : place.substr(0, function) + ".0";
}

/// Every second bridge on the way is a port with a link below it: a root port, then behind each
/// switch's upper port its lower ones.
bool hasLinkBelow(const std::string& place) {
  return std::count(place.begin(), place.end(), '/') % 2 == 1;
}

/// "speed" or "width" of a link, at the end of a path such as /pci/PLACE/link/device/width.
bool isOfLinkInUse(const FactPath& path) {
  constexpr std::size_t kSteps = 5;
  return path.size() == kSteps && path[0] == kPciSection && path[2] == "link" &&
         (path[4] == "speed" || path[4] == "width");
}

/// The device on which a part hangs, or that it is, among those of one document; empty for none.
std::string deviceOf(const std::string& place, const Json& devices) {
  for (std::string device = place; !device.empty(); device = bridgeAbove(device)) {
    if (devices.is_object() && devices.contains(device)) {
      return device;
    }
  }
  return "";
}

/// A place, and what tells that place too; empty for nothing.
std::string aboveOf(const FactPath& part, const std::set<std::string>& lone, const Json& devices) {
  const std::string& place = part[1];
  std::vector<std::string> candidates;
  if (part[0] == kPciSection) {
    candidates = {bridgeAbove(place), firstFunctionOf(place)};
  } else {
    candidates = {deviceOf(place, devices)};
  }
  for (const std::string& candidate : candidates) {
    const bool isItself = part[0] == kPciSection && candidate == place;
    if (!candidate.empty() && !isItself && lone.contains(candidate)) {
      return candidate;
    }
  }
  return "";
}

struct Gathered {
  std::vector<FactPath> parts;
  Gravity gravity = Gravity::Information;
};

/// Moves the findings of one kind to those on which they hang.
void gather(std::vector<Finding>& findings, Finding::Kind kind, const Json& devices) {
  std::set<std::string> lone;
  for (const Finding& finding : findings) {
    if (finding.kind == kind && finding.part.size() > 1 && finding.part[0] == kPciSection) {
      lone.insert(finding.part[1]);
    }
  }
  const auto topOf = [&](const FactPath& part) {
    std::string top;
    FactPath at = part;
    for (std::string above = aboveOf(at, lone, devices); !above.empty();
         above = aboveOf(at, lone, devices)) {
      top = above;
      at = {kPciSection, above};
    }
    return top;
  };
  std::map<std::string, Gathered> gathered;
  std::erase_if(findings, [&](const Finding& finding) {
    const std::string top =
        finding.kind == kind && finding.part.size() > 1 ? topOf(finding.part) : "";
    if (!top.empty()) {
      gathered[top].parts.push_back(finding.part);
      gathered[top].gravity = std::max(gathered[top].gravity, finding.gravity);
    }
    return !top.empty();
  });
  for (Finding& finding : findings) {
    if (finding.kind == kind && finding.part.size() > 1 && finding.part[0] == kPciSection) {
      finding.with = gathered[finding.part[1]].parts;
      finding.gravity = std::max(finding.gravity, gathered[finding.part[1]].gravity);
    }
  }
}

}  // namespace

void tellLinksOnce(std::vector<Difference>& differences) {
  using Fact = std::pair<std::string, std::string>;  // a place, and the name of the fact
  std::map<Fact, Gravity> told;
  for (const Difference& difference : differences) {
    if (isOfLinkInUse(difference.path) && !hasLinkBelow(difference.path[1])) {
      const std::string& place = difference.path[1];
      const std::string& fact = difference.path[4];
      for (const Fact& twin : {Fact(place, fact), Fact(bridgeAbove(place), fact)}) {
        Gravity& gravity = told.emplace(twin, difference.gravity).first->second;
        gravity = std::max(gravity, difference.gravity);
      }
    }
  }
  std::erase_if(differences, [&](const Difference& difference) {
    if (!isOfLinkInUse(difference.path)) {
      return false;
    }
    const std::string& place = difference.path[1];
    const std::string twin = hasLinkBelow(place) ? place : firstFunctionOf(place);
    const bool isItself = twin == place && !hasLinkBelow(place);
    const auto found = told.find({twin, difference.path[4]});
    return !isItself && found != told.end() && difference.gravity <= found->second;
  });
}

void gatherWhatHangsOn(std::vector<Finding>& findings, const Json& expected, const Json& actual) {
  gather(findings, Finding::Kind::PartMissing, expected.value(kPciSection, Json::object()));
  gather(findings, Finding::Kind::PartAdded, actual.value(kPciSection, Json::object()));
}

}  // namespace TarvexDiags::Inventory
