#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Diag/DiagnosticSettings.h"
#include "diagctl/report/Vanished.h"
#include "diagctl/run/WatchWishes.h"
#include "diagctl/session/Selection.h"

namespace TarvexDiags::FrontEnd {

enum class Profile { Quick, Standard, Extended };

/// How the selected tests are run.
struct RunOptions {
  Profile profile = Profile::Standard;
  std::optional<int> passes;                    ///< overrides the profile's
  std::optional<unsigned long> secondsPerTest;  ///< limit on the passes of one test
  std::optional<unsigned long> totalSeconds;    ///< limit on the whole run
  bool stress = false;
  bool quick = false;
  bool haltOnError = false;      ///< a bad result ends the passes of its test
  bool failFast = false;         ///< a failure ends the run
  bool debugsWorkers = false;    ///< a debugger may read the workers
  bool tellsLog = false;         ///< what tests write into the package's log is told, too
  bool tellsThroughput = false;  ///< how fast tests are is told while they run
  std::optional<std::uint64_t> seed;
  VanishedAs vanished = VanishedAs::Trouble;  ///< what a vanished device is told as
  WatchWishes watch;
};

/// One request: a test on a device.
struct PlannedRequest {
  SelectedPair pair;
  int passes = 1;
  std::set<std::string> provoked = {};  ///< kinds of findings that the test brings about itself
};

struct RunPlan {
  std::vector<PlannedRequest> requests;
  std::vector<SelectedPair> skipped;  ///< disabled or not supported
  /// Where a test that crashed may be repeated to compare: the selected pairs, and any beside them.
  std::vector<SelectedPair> offered;
  RunOptions options;
  /// Devices that were expected and not found: each run that misses some has failed.
  std::size_t missingDevices = 0;
  std::size_t expectedDevices = 0;
};

RunPlan makePlan(const std::vector<SelectedPair>& pairs, const RunOptions& options);

/// The settings that a request is queued with: a first pass count of 1, so that N are N runs.
/// @param parameters kept alive by the caller for as long as requests run: "key=value" lines.
Diag::DiagnosticSettings settingsOf(const PlannedRequest& request, const RunOptions& options,
                                    const std::string& parameters);

/// "key=value" lines that packages may read through the settings' parameter pointer.
std::string parametersOf(const RunOptions& options);

/// The options for people and reports.
std::map<std::string, std::string> describe(const RunOptions& options);

/// Whether each test is asked for its short form.
bool isQuick(const RunOptions& options);

/// Passes of each test: as asked for, or as the profile has them.
int passesOf(const RunOptions& options);

}  // namespace TarvexDiags::FrontEnd
