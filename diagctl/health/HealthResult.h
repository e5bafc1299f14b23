#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "diagctl/report/DeviceLocations.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/report/Vanished.h"

namespace TarvexDiags::FrontEnd {

/// One thing that a check found, as whoever repairs the machine needs it. Texts may hold any bytes.
struct HealthFinding {
  enum class Kind { Failure, NoVerdict, Warning };

  Kind kind = Kind::NoVerdict;
  std::string package = {};   ///< empty for what belongs to no test
  std::string test = {};      ///< the same
  std::string device = {};    ///< the same
  std::string location = {};  ///< of the device; empty where it says no more than its name
  std::string text = {};
  std::string action = {};  ///< what to do about it; may be empty
};

/// What a check came to.
struct HealthAccount {
  static constexpr std::size_t kMostFindings = 20;

  int code = ExitCode::kNoVerdict;  ///< of a run in plain style
  RunSummary summary;
  std::vector<HealthFinding> findings;  ///< the weightiest first, kMostFindings of them
  std::size_t further = 0;              ///< how many more there were
};

/// @param record of a run that has ended, or was cut off.
HealthAccount accountOf(const RunRecord& record, const DeviceLocations& locations);

/// A check that is over, as it is kept for whoever asks later. Who asks says what a vanished device
/// is to him, so both answers are kept.
struct HealthResult {
  std::string machineId;
  std::string scope;  ///< what was asked for; results of other scopes say nothing of it
  std::chrono::system_clock::time_point ended;
  double seconds = 0;
  HealthAccount whereVanishedIsTrouble;
  HealthAccount whereVanishedFails;

  const HealthAccount& account(VanishedAs vanished) const {
    return vanished == VanishedAs::Failure ? whereVanishedFails : whereVanishedIsTrouble;
  }
};

/// As text for a file; what is no UTF-8 is replaced.
std::string toText(const HealthResult& result);

/// The result of such a text.
/// @throws std::runtime_error for people: naming what is wrong with it.
HealthResult healthResultFrom(const std::string& text);

}  // namespace TarvexDiags::FrontEnd
