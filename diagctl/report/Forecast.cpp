#include "diagctl/report/Forecast.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

namespace TarvexDiags::FrontEnd {

namespace {

std::vector<std::string> componentsOf(const std::string& tag) {
  std::vector<std::string> components;
  std::istringstream parts(tag);
  for (std::string part; std::getline(parts, part, '/');) {
    components.push_back(part);
  }
  if (components.empty() || tag.ends_with('/')) {
    components.emplace_back();
  }
  return components;
}

}  // namespace

// The controller knows a resource by the last component of its tag alone.
TimeNeeded timeNeeded(const std::vector<Load>& loads) {
  TimeNeeded sum;
  double alone = 0;
  std::map<std::string, double> byResource;
  std::set<std::string> tags;
  for (const Load& load : loads) {
    const double seconds = std::max(load.seconds, 0.0);
    sum.isComplete = sum.isComplete && load.seconds >= 0;
    sum.oneAfterTheOther += seconds;
    if (load.takesMachine) {
      alone += seconds;
    } else if (seconds > 0) {
      byResource[componentsOf(load.tag).back()] += seconds;
      tags.insert(load.tag);
    }
  }
  for (const std::string& tag : tags) {
    double onTheWay = 0;
    for (const std::string& component : componentsOf(tag)) {
      const auto resource = byResource.find(component);
      onTheWay += resource != byResource.end() ? resource->second : 0;
    }
    sum.sideBySide = std::max(sum.sideBySide, onTheWay);
  }
  sum.sideBySide += alone;
  return sum;
}

}  // namespace TarvexDiags::FrontEnd
