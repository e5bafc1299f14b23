#pragma once

#include <optional>
#include <string>
#include <vector>

#include "diagctl/command/Arguments.h"
#include "diagctl/session/NamedPlans.h"

namespace TarvexDiags::FrontEnd {

/// Puts the options of the plan that --profile names into the arguments of its verb: each that does
/// not stand on the command line, which counts. A plan is for every verb with that option; what
/// the verb at hand has not is left out. The words of a built-in profile stay as they are.
/// @param profiles that are built in. @param isSecure as root: trust no plan of others.
/// @return the plan, for its settings; nothing for a built-in profile, or none.
/// @throws UsageFault for a name that is none; std::runtime_error for what a plan has and no verb.
std::optional<NamedPlan> takePlan(Arguments& arguments, const std::deque<Verb>& verbs,
                                  const std::vector<std::string>& profiles, bool isSecure);

}  // namespace TarvexDiags::FrontEnd
