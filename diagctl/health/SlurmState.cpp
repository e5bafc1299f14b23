#include "diagctl/health/SlurmState.h"

#include <sstream>
#include <string_view>

#include "System/SysUtil.h"

namespace TarvexDiags::FrontEnd {

namespace {

// In Slurm's own words.
constexpr std::string_view kStates = "State=";
constexpr std::string_view kReason = "Reason=";
constexpr const char* kUnreachable = "Not responding";

bool hasState(const std::string& states, const std::string& wanted) {
  std::istringstream stream(states);
  for (std::string state; std::getline(stream, state, '+');) {
    if (state.starts_with(wanted)) {  // DRAIN is DRAINED elsewhere, and marks may follow
      return true;
    }
  }
  return false;
}

}  // namespace

bool SlurmState::isFree() const {
  return !isDrained && (!isDown || reason.empty() || reason.starts_with(kUnreachable) || isOwn());
}

// Each key that counts begins a line; a comment of somebody's could hold it, too.
std::optional<SlurmState> slurmStateFrom(const std::string& answer) {
  SlurmState state;
  bool isKnown = false;
  std::istringstream lines(answer);
  for (std::string line; std::getline(lines, line);) {
    line = System::SysUtil::stripSpaces(line);
    if (line.starts_with(kStates)) {
      const std::string states = line.substr(kStates.size(), line.find(' ') - kStates.size());
      isKnown = true;
      state.isDrained = hasState(states, "DRAIN");
      state.isDown = hasState(states, "DOWN") || hasState(states, "FAIL");
    } else if (line.starts_with(kReason)) {
      state.reason = line.substr(kReason.size());
    }
  }
  return isKnown ? std::optional(state) : std::nullopt;
}

}  // namespace TarvexDiags::FrontEnd
