#include "diagctl/run/RunPlan.h"

#include <string>

#include "packagekit/contract/DebugWish.h"
#include "packagekit/contract/LogWish.h"
#include "packagekit/contract/Seed.h"
#include "packagekit/contract/ThroughputWish.h"
#include "packagekit/contract/TimeWish.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace Contract = PackageKit::Contract;

constexpr unsigned long kSecondsOfDay = 24UL * 60 * 60;
constexpr unsigned long kUnlimitedSeconds = 10 * 365 * kSecondsOfDay;

const char* toText(Profile profile) {
  switch (profile) {
    case Profile::Quick:
      return "quick";
    case Profile::Standard:
      return "standard";
    case Profile::Extended:
      break;
  }
  return "extended";
}

}  // namespace

int passesOf(const RunOptions& options) {
  if (options.passes) {
    return *options.passes;
  }
  return options.profile == Profile::Extended ? 3 : 1;
}

bool isQuick(const RunOptions& options) {
  return options.quick || options.profile == Profile::Quick;
}

RunPlan makePlan(const std::vector<SelectedPair>& pairs, const RunOptions& options) {
  RunPlan plan;
  plan.options = options;
  plan.offered = pairs;
  for (const SelectedPair& pair : pairs) {
    if (pair.state == PairState::Enabled) {
      plan.requests.push_back({pair, passesOf(options)});
    } else {
      plan.skipped.push_back(pair);
    }
  }
  return plan;
}

Diag::DiagnosticSettings settingsOf(const PlannedRequest& request, const RunOptions& options,
                                    const std::string& parameters) {
  Diag::DiagnosticSettings settings;
  settings.setQuickTestMode(isQuick(options));
  settings.setStressMode(options.stress);
  settings.setHaltOnError(options.haltOnError);
  settings.setRequestedPassCount(request.passes);
  settings.setPassCount(1);
  settings.setRunTime(options.secondsPerTest.value_or(kUnlimitedSeconds));
  if (!parameters.empty()) {
    settings.setParameterPointer(const_cast<char*>(parameters.c_str()));
  }
  return settings;
}

std::string parametersOf(const RunOptions& options) {
  std::string lines = options.seed ? Contract::toSeedLine(*options.seed) : std::string();
  lines += options.debugsWorkers ? Contract::toDebugLine() : std::string();
  lines += options.tellsLog ? Contract::toLogWishLine() : std::string();
  lines += Contract::toTimeWishLine();
  lines += options.tellsThroughput ? Contract::toThroughputWishLine() : std::string();
  return lines;
}

std::map<std::string, std::string> describe(const RunOptions& options) {
  std::map<std::string, std::string> texts{{"profile", toText(options.profile)},
                                           {"passes", std::to_string(passesOf(options))}};
  if (options.secondsPerTest) {
    texts["timePerTestSeconds"] = std::to_string(*options.secondsPerTest);
  }
  if (options.totalSeconds) {
    texts["totalTimeSeconds"] = std::to_string(*options.totalSeconds);
  }
  if (options.seed) {
    texts["seed"] = std::to_string(*options.seed);
  }
  if (options.debugsWorkers) {
    texts["debugWorker"] = "true";
  }
  texts["stress"] = options.stress ? "true" : "false";
  texts["quick"] = isQuick(options) ? "true" : "false";
  texts["haltOnError"] = options.haltOnError ? "true" : "false";
  texts["failFast"] = options.failFast ? "true" : "false";
  return texts;
}

}  // namespace TarvexDiags::FrontEnd
