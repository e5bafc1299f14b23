#include "diagctl/RunCommand.h"

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

#include "diagctl/Configuration.h"
#include "diagctl/Interruption.h"
#include "diagctl/Keyboard.h"
#include "diagctl/Listing.h"
#include "diagctl/Machine.h"
#include "diagctl/Output.h"
#include "diagctl/Progress.h"
#include "diagctl/Runner.h"
#include "diagctl/Safety.h"
#include "diagctl/Session.h"

namespace TarvexDiags::DiagCtl {

namespace {

bool isColoured(int descriptor) {
  const char* noColour = std::getenv("NO_COLOR");
  return isatty(descriptor) != 0 && (noColour == nullptr || *noColour == '\0');
}

std::string formatOf(const RunCommandOptions& options) {
  if (!options.format.empty()) {
    return options.format;
  }
  return options.exitStyle == ExitStyle::plain ? "text" : summaryFormat;
}

/// All that follows the stream of a run. An output that can no longer be written is dropped, and
/// told at the end; the others go on.
class Outputs {
 public:
  explicit Outputs(const RunCommandOptions& options)
      : m_outputs(openOutputs(options.outputs, formatOf(options), isColoured(STDOUT_FILENO))) {}

  void handle(const RunEvent& event) {
    forEach([&](Output& output) { output.handle(event); });
  }
  void finish() {
    forEach([](Output& output) { output.finish(); });
  }
  const std::vector<std::string>& failures() const { return m_failures; }

 private:
  template <class Act>
  void forEach(Act act) {
    for (std::unique_ptr<Output>& output : m_outputs) {
      try {
        if (output != nullptr) {
          act(*output);
        }
      } catch (const std::system_error& failure) {
        m_failures.emplace_back(failure.what());
        output.reset();
      }
    }
  }

  std::vector<std::unique_ptr<Output>> m_outputs;
  std::vector<std::string> m_failures;
};

std::function<void(char)> keysFor(Progress& progress, std::mutex& mutex) {
  return [&](char key) {
    RunRequests& requests = Interruption::requests();
    switch (key) {
      case 's':
        requests.suspendAll = true;
        break;
      case 'r':
        requests.resumeAll = true;
        break;
      case 'a': {
        const std::lock_guard<std::mutex> lock(mutex);
        requests.abortStep = progress.firstRunning();
        break;
      }
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

RunSummary runPlan(const RunCommandOptions& options, Session& session, const RunPlan& plan,
                   Outputs& outputs) {
  std::mutex mutex;  // between the keyboard's thread and the stream
  Progress progress(std::cerr, isatty(STDERR_FILENO) != 0,
                    plan.requests.size() + (plan.missingDevices > 0 ? 1 : 0));
  std::optional<Keyboard> keyboard;
  if (!options.isQuiet) {
    keyboard.emplace(keysFor(progress, mutex));
  }
  Runner runner(
      session, plan,
      [&](const RunEvent& event) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!options.isQuiet) {
          progress.erase();
        }
        outputs.handle(event);
        if (!options.isQuiet) {
          progress.handle(event);
        }
      },
      Interruption::requests());
  const RunSummary summary = runner.run(openingOf(options, session.catalogue()));
  if (!options.isQuiet) {
    progress.finish();
  }
  outputs.finish();
  return summary;
}

}  // namespace

int carryOutRun(const RunCommandOptions& options) {
  Interruption::begin();
  const Configuration configuration = Configuration::find(options.config);
  requireSecure(options, configuration.path());
  Session session(configuration.path(), options.language, settingsOf(options));
  const Catalogue& catalogue = session.catalogue();
  const std::vector<std::string> unmatched = unmatchedPatterns(catalogue, options.patterns);
  for (const std::string& pattern : unmatched) {
    fmt::print(std::cerr, "diagctl: nothing matches {}\n", pattern);
  }
  const std::vector<SelectedPair> pairs = select(catalogue, options.patterns);
  if (options.isDryRun) {
    listPlan(std::cout, pairs);
    return pairs.empty() ? ExitCode::nothingRan : ExitCode::passed;
  }
  RunPlan plan = makePlan(pairs, options.run);
  plan.expectedDevices = options.expectedDevices.value_or(0);
  plan.missingDevices =
      plan.expectedDevices - std::min(plan.expectedDevices, catalogue.numberOfDevices());
  Outputs outputs(options);
  const RunSummary summary = runPlan(options, session, plan, outputs);
  for (const std::string& failure : outputs.failures()) {
    fmt::print(std::cerr, "diagctl: {}\n", failure);
  }
  if (Interruption::signal() != 0) {
    return ExitCode::signalBase + Interruption::signal();
  }
  const int code = exitCodeOf(summary, {.failedPackages = session.failedPackages(),
                                        .hasUnmatchedPattern = !unmatched.empty(),
                                        .isStrict = options.isStrict});
  const bool isTold = outputs.failures().empty();
  return translate(isTold || code != ExitCode::passed ? code : ExitCode::noVerdict, summary,
                   options.exitStyle);
}

}  // namespace TarvexDiags::DiagCtl
