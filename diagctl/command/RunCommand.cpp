#include "diagctl/command/RunCommand.h"

#include <fmt/format.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "diagctl/command/EstimateCommand.h"
#include "diagctl/command/JsonAnswers.h"
#include "diagctl/command/Listing.h"
#include "diagctl/command/MachineParts.h"
#include "diagctl/command/OpenSession.h"
#include "diagctl/command/RunFollowers.h"
#include "diagctl/report/Forecast.h"
#include "diagctl/report/Formats.h"
#include "diagctl/report/Output.h"
#include "diagctl/report/RunMetrics.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/SystemLog.h"
#include "diagctl/report/Wording.h"
#include "diagctl/run/Machine.h"
#include "diagctl/run/Runner.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/session/ControllerFailure.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/session/NameResolution.h"
#include "diagctl/session/OpenFiles.h"
#include "diagctl/session/PackageSettings.h"
#include "diagctl/session/Safety.h"
#include "diagctl/session/Session.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Capabilities.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace Contract = PackageKit::Contract;

constexpr unsigned long kMostSeconds = 1UL << 40;  ///< that a run is told to take

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

std::string nameOfUser() {
  const passwd* const entry = getpwuid(geteuid());
  return entry != nullptr ? entry->pw_name : std::to_string(geteuid());
}

// As it was asked for; empty for everything.
std::string describe(const SelectionPatterns& patterns) {
  std::string text;
  const auto add = [&text](const char* option, const std::vector<std::string>& values) {
    for (const std::string& value : values) {
      text += fmt::format("{}{}'{}'", text.empty() ? "" : " ", option, value);
    }
  };
  add("", patterns.words);
  add("-p ", patterns.packages);
  add("-d ", patterns.devices);
  add("-t ", patterns.tests);
  add("--exclude-package ", patterns.excludedPackages);
  add("--exclude-device ", patterns.excludedDevices);
  add("--exclude-test ", patterns.excludedTests);
  return text;
}

const char* nameOf(DiagCtrl::GlobalSettings::diagMode mode) {
  switch (mode) {
    case DiagCtrl::GlobalSettings::FACTORY:
      return "factory";
    case DiagCtrl::GlobalSettings::BRINGUP:
      return "bringup";
    default:
      return "customer";
  }
}

Schedule scheduleOf(Session& session, const RunPlan& plan, const std::string& packages) {
  DiagCtrl::GlobalSettings::runMode order{};
  require(session.controller().getRunMode(order), tr("reading the run mode"));
  Schedule schedule;
  schedule.isSerial = order == DiagCtrl::GlobalSettings::SERIAL;
  const DescribedTimes times(packages, isQuick(plan.options));
  for (const PlannedRequest& request : plan.requests) {
    const SelectedPair& pair = request.pair;
    schedule.loads.push_back({pair.device->tag,
                              secondsOfPasses(times.of(*pair.package, *pair.test), plan.options),
                              pair.package->takesMachine});
  }
  return schedule;
}

// Rounded up; nothing where a test has no figure.
std::optional<long> estimatedSeconds(const Schedule& schedule, const RunOptions& options) {
  const TimeNeeded needed = timeNeeded(schedule.loads);
  if (!needed.isComplete) {
    return std::nullopt;
  }
  const double seconds = schedule.isSerial ? needed.oneAfterTheOther : needed.sideBySide;
  const auto most = static_cast<double>(options.totalSeconds.value_or(kMostSeconds));
  return static_cast<long>(std::ceil(std::min({seconds, most, static_cast<double>(kMostSeconds)})));
}

void describePlan(const RunCommandOptions& options, Session& session, const RunPlan& plan,
                  const Schedule& schedule, std::map<std::string, std::string>& parameters) {
  DiagCtrl::GlobalSettings::diagMode mode{};
  require(session.controller().getDiagnosticMode(mode), tr("reading the diagnostic mode"));
  parameters["user"] = nameOfUser();
  parameters["mode"] = nameOf(mode);
  parameters["tests"] = std::to_string(plan.requests.size());
  if (const std::string selection = describe(options.patterns); !selection.empty()) {
    parameters["selection"] = selection;
  }
  const auto seconds = estimatedSeconds(schedule, plan.options);
  if (seconds && *seconds > 0) {
    parameters["estimatedSeconds"] = std::to_string(*seconds);
  }
}

std::map<std::string, std::string> localNamesOf(const Catalogue& catalogue) {
  std::map<std::string, std::string> names;
  const auto add = [&](const std::string& key, const std::string& name) {
    if (!name.empty()) {
      names[key] = name;
    }
  };
  for (const PackageItem& package : catalogue.packages) {
    add(package.name, package.localName);
    for (const TestItem& test : package.tests) {
      add(keyOfTest(package.name, test.name), test.localName);
    }
  }
  return names;
}

RunStarted openingOf(const RunCommandOptions& options, Session& session, const RunPlan& plan,
                     const Schedule& schedule) {
  const Catalogue& catalogue = session.catalogue();
  RunStarted start = describeMachine();
  start.name = "diagctl";
  start.version = TARVEX_VERSION;
  start.commandLine = options.commandLine;
  start.parameters = describe(options.run);
  describePlan(options, session, plan, schedule, start.parameters);
  start.software.push_back({"controller", "TarvexDiags", TARVEX_VERSION});
  for (const PackageItem& package : catalogue.packages) {
    start.software.push_back({package.baseName, package.name, package.version});
    for (const DeviceItem& device : package.devices) {
      start.hardware.push_back({.id = fmt::format("{}-{}", package.index, device.id),
                                .name = device.name,
                                .location = device.tag,
                                .bytes = static_cast<double>(device.bytes)});
    }
  }
  start.language = options.language;
  start.localNames = localNamesOf(catalogue);
  if (writesLog(options.reporting)) {
    addParts(start, Inventory::findParts(Inventory::SystemFiles(), Inventory::askDriver));
  }
  return start;
}

RunRecord runPlan(const RunCommandOptions& options, Session& session, const RunPlan& plan,
                  const Schedule& schedule, Outputs& outputs) {
  RunFollowers followers(outputs, schedule, options.isQuiet, Interruption::requests());
  Runner runner(
      session, plan, [&](const RunEvent& event) { followers.tell(event); },
      Interruption::requests(), [&] { followers.announceEnding(); });
  RunRecord record = runner.run(openingOf(options, session, plan, schedule));
  followers.finish();
  return record;
}

// Devices that were not asked for serve to compare with; those that were excluded are left alone.
std::vector<SelectedPair> offeredPairs(const Catalogue& catalogue, SelectionPatterns patterns) {
  patterns.packages.clear();
  patterns.devices.clear();
  patterns.tests.clear();
  patterns.words.clear();
  return select(catalogue, patterns);
}

// A control file can ask for the mode that offers such tests; whoever starts the run must, too.
std::string findDisruption(const std::vector<SelectedPair>& pairs) {
  const auto found = std::find_if(pairs.begin(), pairs.end(), [](const SelectedPair& pair) {
    return pair.state == PairState::Enabled &&
           Contract::hasCapability(pair.test->capabilities, Contract::kDestructive);
  });
  return found == pairs.end()
             ? ""
             : tr("{}: {} on {} takes its device out of service or overwrites it: allow that with "
                  "--allow-disruptive, or leave it out with --exclude-test",
                  found->package->toldName(), found->test->toldName(), found->device->name);
}

// Only tells what would run, with the code that a run of it could still come to.
int tellPlan(const std::vector<SelectedPair>& pairs, const RunConditions& conditions,
             bool isForPrograms) {
  if (isForPrograms) {
    writeJson(standardOutput(), planAsJson(pairs));
  } else {
    listPlan(standardOutput(), pairs);
  }
  RunSummary summary;
  for (const SelectedPair& pair : pairs) {
    ++(pair.state == PairState::Enabled ? summary.passed : summary.skipped);
  }
  return exitCodeOf(summary, conditions);
}

/// FORMAT=FILE of all reports.
std::vector<std::string> outputsOf(const RunCommandOptions& options) {
  std::vector<std::string> outputs = options.reporting.outputs;
  if (options.textfiles) {
    outputs.push_back(fmt::format("{}={}", kMetricsFormat, textfileOf(*options.textfiles, "run")));
  }
  return outputs;
}

RunConditions conditionsOf(const ReportingOptions& options, std::size_t failedPackages) {
  return {failedPackages, options.isStrict, options.failOnSkip};
}

// As many as there are devices, unless one runs at a time.
std::size_t testsAtOnce(Session& session, const RunPlan& plan) {
  DiagCtrl::GlobalSettings::runMode mode{};
  require(session.controller().getRunMode(mode), tr("reading the run mode"));
  std::set<const DeviceItem*> devices;
  for (const PlannedRequest& request : plan.requests) {
    devices.insert(request.pair.device);
  }
  return mode == DiagCtrl::GlobalSettings::SERIAL ? 1 : devices.size();
}

void addProvoked(RunPlan& plan, const std::string& directory) {
  std::map<const TestItem*, std::set<std::string>> provoked;
  for (PlannedRequest& request : plan.requests) {
    const auto [entry, isNew] = provoked.try_emplace(request.pair.test);
    if (isNew) {
      entry->second = provokedBy(directory, request.pair.package->baseName, request.pair.test->id);
    }
    request.provoked = entry->second;
  }
}

int runSelected(const RunCommandOptions& options, RunSummary& summary) {
  const Configuration configuration =
      openConfiguration(options.config, options.wishes, !options.allowsInsecure && mustBeSecure());
  const WatchWishes watch = watchWishesOf(configuration, options.watch);
  const auto interval = options.isDryRun ? nullptr : changePollInterval(watch);
  const auto opened = openSession(configuration, options.language, settingsOf(options));
  Session& session = *opened;
  const Catalogue& catalogue = session.catalogue();
  const SelectionPatterns patterns = resolve(catalogue, options.patterns);
  if (const auto unmatched = describeUnmatched(catalogue, patterns); !unmatched.empty()) {
    tellWarnings(standardError(), session.warnings());
    tellUnmatched(options.reporting, unmatched);
    return ExitCode::kNothingRan;
  }
  const std::vector<SelectedPair> pairs = select(catalogue, patterns);
  const std::string disruption = options.allowsDisruptive ? "" : findDisruption(pairs);
  if (!disruption.empty()) {
    standardError().print("diagctl: {}\n", disruption);
    return ExitCode::kUsage;
  }
  if (pairs.empty() && catalogue.numberOfDevices() > 0) {
    standardError().say("diagctl: nothing to run: what was named has no test in common\n");
  }
  if (options.isDryRun) {
    tellWarnings(standardError(), session.warnings());
    return tellPlan(pairs, conditionsOf(options.reporting, session.failedPackages()),
                    options.reporting.format == kJsonFormat);
  }
  if (options.run.debugsWorkers) {
    standardError().say(
        "diagctl: --debug-worker: workers may be read by other processes of the same user, and no "
        "call is refused to them\n");
  }
  RunOptions runOptions = options.run;
  runOptions.watch = watch;
  runOptions.tellsLog = wantsLog(options.reporting);
  runOptions.tellsThroughput = !options.isQuiet;
  runOptions.vanished = vanishedOf(options.reporting).value_or(VanishedAs::Trouble);
  RunPlan plan = makePlan(pairs, runOptions);
  addProvoked(plan, packageDirectoryOf(configuration.path()));
  plan.offered = offeredPairs(catalogue, patterns);
  plan.expectedDevices = options.expectedDevices.value_or(0);
  plan.missingDevices =
      plan.expectedDevices - std::min(plan.expectedDevices, catalogue.numberOfDevices());
  allowOpenFiles(openFilesFor(testsAtOnce(session, plan)));
  const ReportingOptions& reporting = options.reporting;
  const RunConditions conditions = conditionsOf(reporting, 0);
  Outputs outputs(outputsOf(options), formatOf(reporting),
                  {isColoured(STDOUT_FILENO), conditions, RunRecord::kUnbounded,
                   lineWidthOfOutput(), reporting.onlyProblems, reporting.verbosity});
  const RunRecord record =
      runPlan(options, session, plan,
              scheduleOf(session, plan, packageDirectoryOf(configuration.path())), outputs);
  summary = summaryOf(record);
  if (options.isTheVerb) {
    tellSystemLog(systemLogLineOf("run", record, conditions));
  }
  const int code = finish(outputs, exitCodeOf(record, conditions));
  return Interruption::signal() == 0 ? code : ExitCode::kSignalBase + Interruption::signal();
}

}  // namespace

int carryOutRun(const RunCommandOptions& options) {
  Interruption::begin();
  endWithoutVerdictWhenCutShort(options.reporting);
  return carryOutInStyle(options.reporting,
                         [&](RunSummary& summary) { return runSelected(options, summary); });
}

}  // namespace TarvexDiags::FrontEnd
