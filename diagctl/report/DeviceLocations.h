#pragma once

#include <map>
#include <optional>
#include <string>

#include "diagctl/report/RunEvents.h"

namespace TarvexDiags::FrontEnd {

/// Where the devices of a run sit, for its steps. A log names the device of a step, and its
/// hardware only with what was found on it.
class DeviceLocations {
 public:
  void learn(const RunStarted& start);
  /// Empty where that is not known, or several devices have the name.
  std::string of(const StepStarted& step) const;

 private:
  std::map<std::string, std::string> m_byId;
  std::map<std::string, std::optional<std::string>> m_byName;  ///< nothing: several have it
};

}  // namespace TarvexDiags::FrontEnd
