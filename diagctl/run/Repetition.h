#pragma once

#include <optional>
#include <string>

#include "diagctl/report/RunEvents.h"
#include "diagctl/run/StepJudge.h"
#include "packagekit/contract/Crash.h"

namespace TarvexDiags::FrontEnd {

/// What the repetition of a test tells within the step of the test that crashed: what it measures
/// and says, and a fault of the hardware that it finds. Its own verdict is for the trial of the
/// crash.
/// @param isSameDevice whether it is repeated on the device on which it crashed.
std::optional<RunEventBody> toldWithin(const RunEventBody& body, bool isSameDevice);

/// What became of a repetition that has ended.
PackageKit::Contract::Repetition outcomeOf(const StepJudge& repetition);

/// The same for people.
StepMessage messageOf(const std::string& stepId, PackageKit::Contract::Repetition outcome,
                      const std::string& device);

}  // namespace TarvexDiags::FrontEnd
