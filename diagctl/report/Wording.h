#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "diagctl/report/RunEvents.h"
#include "diagctl/report/StepRecord.h"

namespace TarvexDiags::FrontEnd {

/// What several reports say in the same words.

/// "1 test", "7 tests".
std::string testsText(std::size_t count);
std::string machinesText(std::size_t count);
std::string runsText(std::size_t count);

/// A verdict at the head of a line, in a column that is as wide as the widest of them.
std::string headOf(StepRecord::Outcome outcome);
/// The columns that such a head takes.
std::size_t widthOfHeads();

/// How a test of a package stands among the names of a run: "Memory: Walking ones".
std::string keyOfTest(const std::string& package, const std::string& test);
/// What a package or a test is called in the language that is spoken; empty where the run does not
/// tell it.
/// @param key the package's name, or what `keyOfTest` says.
std::string localNameOf(const RunStarted& start, const std::string& key);

/// What ran, and on what. The log has the program's own steps in English, as it has the packages'.
std::string packageOf(const StepStarted& start);
std::string testOf(const StepStarted& start);
std::string deviceOf(const StepStarted& start);
/// "Memory: Walking ones on node 0".
std::string nameOf(const StepStarted& start);

/// What a package says of its device behind the device's name: the rest, where the name stands
/// beside it; else the text as it is.
std::string withoutDevice(const std::string& text, const StepStarted& start);

/// The finding behind the outcome, for those who read one line: "block 3 is lost (and 4 more)".
std::string headOf(const StepRecord& step);

/// A parameter of a run; empty where it has none of that name.
std::string parameterOf(const RunStarted& start, const char* key);

/// A moment as people read it, by the clock of where they are: "2026-11-21T04:04:05+01:00".
std::string timeText(std::chrono::system_clock::time_point time);
/// The hour of a moment near by: "04:04".
std::string clockText(std::chrono::system_clock::time_point time);

/// As a person says it: "90 s", "12 min", "3.5 h".
std::string durationText(double seconds);

}  // namespace TarvexDiags::FrontEnd
