#include "diagctl/RunCommand.h"

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <signal.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

#include "diagctl/Configuration.h"
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

RunRequests requests;
volatile std::sig_atomic_t lastSignal = 0;

// The first signal ends the run with its report, the second leaves at once.
void handleSignal(int signal) {
  if (lastSignal != 0) {
    Keyboard::restoreTerminal();
    _exit(ExitCode::signalBase + signal);
  }
  lastSignal = signal;
  requests.abortAll = true;
}

void catchSignals() {
  struct sigaction action = {};
  action.sa_handler = handleSignal;
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM}) {
    sigaction(signal, &action, nullptr);
  }
  // A closed pipe is told by the write that fails, so that the run still ends in order.
  std::signal(SIGPIPE, SIG_IGN);
}

bool isColoured(int descriptor) {
  const char* noColour = std::getenv("NO_COLOR");
  return isatty(descriptor) != 0 && (noColour == nullptr || *noColour == '\0');
}

/// All that follows the stream of a run. An output that can no longer be written is dropped, and
/// told at the end; the others go on.
class Outputs {
 public:
  explicit Outputs(const RunCommandOptions& options) {
    for (const std::string& specification : options.outputs) {
      m_outputs.push_back(Output::toFile(specification));
    }
    m_outputs.push_back(Output::toStandardOutput(options.format, isColoured(STDOUT_FILENO)));
  }

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
  Progress progress(std::cerr, isatty(STDERR_FILENO) != 0, isColoured(STDERR_FILENO),
                    plan.requests.size());
  catchSignals();
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
      requests);
  const RunSummary summary = runner.run(openingOf(options, session.catalogue()));
  if (!options.isQuiet) {
    progress.finish();
  }
  outputs.finish();
  return summary;
}

}  // namespace

int carryOutRun(const RunCommandOptions& options) {
  const Configuration configuration = Configuration::find(options.config);
  requireSecure(options, configuration.path());
  Outputs outputs(options);
  Session session(configuration.path(), options.language, settingsOf(options));
  const Catalogue& catalogue = session.catalogue();
  for (const std::string& pattern : unmatchedPatterns(catalogue, options.patterns)) {
    fmt::print(std::cerr, "diagctl: nothing matches {}\n", pattern);
  }
  const std::vector<SelectedPair> pairs = select(catalogue, options.patterns);
  if (options.isDryRun) {
    listPlan(std::cout, pairs);
    return ExitCode::passed;
  }
  const bool missesDevices =
      options.expectedDevices && catalogue.numberOfDevices() < *options.expectedDevices;
  if (missesDevices) {
    fmt::print(std::cerr, "diagctl: {} devices were found, {} are expected\n",
               catalogue.numberOfDevices(), *options.expectedDevices);
  }
  const RunPlan plan = makePlan(pairs, options.run);
  const RunSummary summary = runPlan(options, session, plan, outputs);
  for (const std::string& failure : outputs.failures()) {
    fmt::print(std::cerr, "diagctl: {}\n", failure);
  }
  if (lastSignal != 0) {
    return ExitCode::signalBase + lastSignal;
  }
  const int code = exitCodeOf(summary, session.failedPackages(), missesDevices, options.isStrict);
  const bool isTold = outputs.failures().empty();
  return translate(isTold || code != ExitCode::passed ? code : ExitCode::noVerdict, summary,
                   options.exitStyle);
}

}  // namespace TarvexDiags::DiagCtl
