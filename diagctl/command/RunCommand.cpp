#include "diagctl/command/RunCommand.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <optional>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "diagctl/command/Listing.h"
#include "diagctl/report/Output.h"
#include "diagctl/report/Progress.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/run/Machine.h"
#include "diagctl/run/Runner.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/session/Safety.h"
#include "diagctl/session/Session.h"
#include "diagctl/terminal/Keyboard.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

namespace {

bool isColoured(int descriptor) {
  const char* noColour = std::getenv("NO_COLOR");
  return isatty(descriptor) != 0 && (noColour == nullptr || *noColour == '\0');
}

/// The line of progress, which the run and the keyboard's thread share.
class SharedProgress {
 public:
  explicit SharedProgress(std::size_t requests)
      : m_progress(standardError(), isatty(STDERR_FILENO) != 0, requests) {}

  unsigned long firstRunning() const {
    const System::LockHold hold(m_lock);
    return m_progress.firstRunning();
  }

  /// Tells an event to the outputs, with the line out of their way.
  void tell(const RunEvent& event, bool isQuiet, Outputs& outputs) {
    const System::LockHold hold(m_lock);
    if (!isQuiet) {
      m_progress.erase();
    }
    outputs.handle(event);
    if (!isQuiet) {
      m_progress.handle(event);
    }
  }

  void finish() {
    const System::LockHold hold(m_lock);
    m_progress.finish();
  }

 private:
  mutable System::Mutex m_lock;
  Progress m_progress TARVEXDIAGS_GUARDED_BY(m_lock);
};

std::function<void(char)> keysFor(const SharedProgress& progress) {
  return [&](char key) {
    RunRequests& requests = Interruption::requests();
    switch (key) {
      case 's':
        requests.suspendAll = true;
        break;
      case 'r':
        requests.resumeAll = true;
        break;
      case 'a':
        requests.abortStep = progress.firstRunning();
        break;
      case 'q':
        requests.abortAll = true;
        break;
      default:
        break;
    }
  };
}

void requireSecure(const RunCommandOptions& options, const std::string& controlFile) {
  if (!options.allowsInsecure && mustBeSecure()) {
    requireSecureFiles(controlFile);
  }
}

SessionSettings settingsOf(const RunCommandOptions& options) {
  SessionSettings settings;
  if (options.serial) {
    settings.runMode = DiagCtrl::GlobalSettings::SERIAL;
  }
  if (options.parallel) {
    settings.runMode = DiagCtrl::GlobalSettings::PARALLEL;
  }
  settings.diagMode = options.mode;
  return settings;
}

RunStarted openingOf(const RunCommandOptions& options, const Catalogue& catalogue) {
  RunStarted start = describeMachine();
  start.name = "diagctl";
  start.version = TARVEX_VERSION;
  start.commandLine = options.commandLine;
  start.parameters = describe(options.run);
  start.software.push_back({"controller", "TarvexDiags", TARVEX_VERSION});
  for (const PackageItem& package : catalogue.packages) {
    start.software.push_back({package.baseName, package.name, package.version});
    for (const DeviceItem& device : package.devices) {
      start.hardware.push_back(
          {fmt::format("{}-{}", package.index, device.id), device.name, device.tag});
    }
  }
  return start;
}

RunRecord runPlan(const RunCommandOptions& options, Session& session, const RunPlan& plan,
                  Outputs& outputs) {
  SharedProgress progress(plan.requests.size());
  std::optional<Keyboard> keyboard;
  if (!options.isQuiet) {
    keyboard.emplace(keysFor(progress));
  }
  Runner runner(
      session, plan, [&](const RunEvent& event) { progress.tell(event, options.isQuiet, outputs); },
      Interruption::requests());
  const RunRecord record = runner.run(openingOf(options, session.catalogue()));
  if (!options.isQuiet) {
    progress.finish();
  }
  return record;
}

// Only tells what would run, with the code that a run of it could still come to.
int tellPlan(const std::vector<SelectedPair>& pairs, bool isWhole) {
  listPlan(standardOutput(), pairs);
  const bool isAny = std::any_of(pairs.begin(), pairs.end(), [](const SelectedPair& pair) {
    return pair.state == PairState::Enabled;
  });
  if (!isAny) {
    return ExitCode::kNothingRan;
  }
  return isWhole ? ExitCode::kPassed : ExitCode::kNoVerdict;
}

int runSelected(const RunCommandOptions& options, RunSummary& summary) {
  const Configuration configuration = Configuration::find(options.config);
  requireSecure(options, configuration.path());
  Session session(configuration.path(), options.language, settingsOf(options));
  const Catalogue& catalogue = session.catalogue();
  const bool isMatched = tellUnmatched(standardError(), catalogue, options.patterns);
  const std::vector<SelectedPair> pairs = select(catalogue, options.patterns);
  if (options.isDryRun) {
    tellWarnings(standardError(), session.warnings());
    return tellPlan(pairs, isMatched && session.failedPackages() == 0);
  }
  RunPlan plan = makePlan(pairs, options.run);
  plan.expectedDevices = options.expectedDevices.value_or(0);
  plan.missingDevices =
      plan.expectedDevices - std::min(plan.expectedDevices, catalogue.numberOfDevices());
  const ReportingOptions& reporting = options.reporting;
  Outputs outputs(reporting.outputs, formatOf(reporting), isColoured(STDOUT_FILENO));
  const RunRecord record = runPlan(options, session, plan, outputs);
  summary = summaryOf(record);
  const int code = finish(outputs, exitCodeOf(record, {.hasUnmatchedPattern = !isMatched,
                                                       .isStrict = reporting.isStrict}));
  return Interruption::signal() == 0 ? code : ExitCode::kSignalBase + Interruption::signal();
}

}  // namespace

int carryOutRun(const RunCommandOptions& options) {
  Interruption::begin();
  return carryOutInStyle(options.reporting,
                         [&](RunSummary& summary) { return runSelected(options, summary); });
}

}  // namespace TarvexDiags::FrontEnd
