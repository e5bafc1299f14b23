#pragma once

#include <string>
#include <utility>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// What a run is to be, by a name: a file PLAN.cfg below $XDG_CONFIG_HOME/tarvexdiags/plans or
/// /etc/tarvexdiags/plans, of which the first counts. Its section Plan has long options of the
/// command line as keys, with TRUE or FALSE for those without a value; its section Settings has
/// settings of packages.
struct NamedPlan {
  std::string file;
  std::vector<std::pair<std::string, std::string>> options;  ///< "passes", "3"
  std::vector<std::string> settings;                         ///< "PACKAGE.KEY=VALUE"
};

/// The names of all plans that are there.
std::vector<std::string> namesOfPlans();

/// @param isSecure refuse what others than root could change, before it is read.
/// @throws InsecureFiles; std::runtime_error for a file that cannot be read or has what is not.
NamedPlan planNamed(const std::string& name, bool isSecure);

}  // namespace TarvexDiags::FrontEnd
