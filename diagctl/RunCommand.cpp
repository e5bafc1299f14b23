#include "diagctl/RunCommand.h"

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <signal.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <utility>

#include "diagctl/Configuration.h"
#include "diagctl/JsonlReporter.h"
#include "diagctl/Listing.h"
#include "diagctl/Machine.h"
#include "diagctl/Runner.h"
#include "diagctl/Session.h"
#include "diagctl/TextReporter.h"

namespace TarvexDiags::DiagCtl {

namespace {

RunRequests requests;
volatile std::sig_atomic_t lastSignal = 0;

// The first signal ends the run with its report, the second leaves at once.
void handleSignal(int signal) {
  if (lastSignal != 0) {
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
}

bool isColoured() {
  const char* noColour = std::getenv("NO_COLOR");
  return isatty(STDOUT_FILENO) != 0 && (noColour == nullptr || *noColour == '\0');
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

}  // namespace

int carryOutRun(const RunCommandOptions& options) {
  const Configuration configuration = Configuration::find(options.config);
  Session session(configuration.path(), options.language, settingsOf(options));
  const Catalogue& catalogue = session.catalogue();
  const std::vector<std::string> unmatched = unmatchedPatterns(catalogue, options.patterns);
  for (const std::string& pattern : unmatched) {
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
  std::unique_ptr<Reporter> reporter;
  if (options.format == "jsonl") {
    reporter = std::make_unique<JsonlReporter>(std::cout);
  } else {
    reporter = std::make_unique<TextReporter>(std::cout, isColoured());
  }
  catchSignals();
  Runner runner(
      session, plan, [&](const RunEvent& event) { reporter->handle(event); }, requests);
  const RunSummary summary = runner.run(openingOf(options, catalogue));
  reporter->finish();
  if (lastSignal != 0) {
    return ExitCode::signalBase + lastSignal;
  }
  const int code = exitCodeOf(summary, session.failedPackages(), missesDevices, options.isStrict);
  return translate(code, summary, options.exitStyle);
}

}  // namespace TarvexDiags::DiagCtl
