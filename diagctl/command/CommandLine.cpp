#include "diagctl/command/CommandLine.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "diagctl/command/CheckCommand.h"
#include "diagctl/command/EstimateCommand.h"
#include "diagctl/command/Listing.h"
#include "diagctl/command/ReportCommand.h"
#include "diagctl/command/RunCommand.h"
#include "diagctl/command/SelfTest.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/Output.h"
#include "diagctl/session/CodeTable.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/session/Safety.h"
#include "diagctl/session/Session.h"
#include "packagekit/contract/Texts.h"

namespace TarvexDiags::FrontEnd {

namespace {

struct GlobalOptions {
  std::optional<std::string> config;
  std::string language = languageOfLocale();
  bool allowsInsecure = false;
};

Configuration configurationOf(const GlobalOptions& global) {
  Configuration configuration = Configuration::find(global.config);
  if (!global.allowsInsecure && mustBeSecure()) {
    requireSecureFiles(configuration.path());
  }
  return configuration;
}

struct ListOptions {
  std::string what = "packages";
};

void addSelection(CLI::App& command, SelectionPatterns& patterns) {
  command.add_option("-p,--package", patterns.packages,
                     "Packages by name, mnemonic, number or wildcard");
  command.add_option("-d,--device", patterns.devices, "Devices by name, tag, number or wildcard");
  command.add_option("-t,--test", patterns.tests, "Tests by name, number or wildcard");
  command.add_option("--exclude-package", patterns.excludedPackages, "Packages to leave out");
  command.add_option("--exclude-device", patterns.excludedDevices, "Devices to leave out");
  command.add_option("--exclude-test", patterns.excludedTests, "Tests to leave out");
}

/// How a run is told, and its outcome.
void addReporting(CLI::App& command, ReportingOptions& options) {
  command
      .add_option("--format", options.format,
                  "Format on standard output: text, jsonl, junit or tap")
      ->check(CLI::IsMember({"text", "jsonl", "junit", "tap"}));
  command
      .add_option("-o,--output", options.outputs,
                  "FORMAT=FILE; may be repeated; - is standard output")
      ->check([](const std::string& specification) { return findFault({specification}); });
  command.add_flag("--strict", options.isStrict, "A warning counts as no verdict");
  command
      .add_option("--exit-style", options.exitStyle,
                  "Exit codes for a monitor: plain, nagios or npd")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, ExitStyle>{
              {"plain", ExitStyle::plain}, {"nagios", ExitStyle::nagios}, {"npd", ExitStyle::npd}},
          CLI::ignore_case));
}

/// What settles how long tests take.
void addThoroughness(CLI::App& command, RunOptions& options) {
  command
      .add_option("--profile", options.profile,
                  "quick (short forms), standard (one pass) or extended (three passes)")
      ->transform(
          CLI::CheckedTransformer(std::map<std::string, Profile>{{"quick", Profile::quick},
                                                                 {"standard", Profile::standard},
                                                                 {"extended", Profile::extended}},
                                  CLI::ignore_case));
  command.add_option("--passes", options.passes, "Passes of each test, instead of the profile's")
      ->check(CLI::Range(1, 1'000'000'000));
  command.add_flag("--quick", options.quick, "Ask each test for its short form");
}

void addRunOptions(CLI::App& command, RunCommandOptions& options) {
  addSelection(command, options.patterns);
  addThoroughness(command, options.run);
  const CLI::AsNumberWithUnit units(
      std::map<std::string, unsigned long>{{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}},
      CLI::AsNumberWithUnit::CASE_INSENSITIVE, "TIME");
  command
      .add_option("--time", options.run.secondsPerTest,
                  "No further pass of a test after this: 90s, 10m, 2h, 1d")
      ->transform(units)
      ->check(CLI::PositiveNumber);
  command
      .add_option("--total-time", options.run.totalSeconds,
                  "End of the whole run, with no verdict on what still runs")
      ->transform(units)
      ->check(CLI::PositiveNumber);
  command.add_flag("--stress", options.run.stress,
                   "Let each test repeat by itself until its limit");
  command.add_flag("--halt-on-error", options.run.haltOnError,
                   "End the passes of a test after a bad result");
  auto* serial = command.add_flag("--serial", options.serial, "One test at a time");
  command.add_flag("--parallel", options.parallel, "As many tests as the devices allow")
      ->excludes(serial);
  command.add_option("--mode", options.mode, "customer, factory or bringup")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, DiagCtrl::GlobalSettings::diagMode>{
              {"customer", DiagCtrl::GlobalSettings::CUSTOMER},
              {"factory", DiagCtrl::GlobalSettings::FACTORY},
              {"bringup", DiagCtrl::GlobalSettings::BRINGUP}},
          CLI::ignore_case));
  command
      .add_option("--expect-devices", options.expectedDevices,
                  "Fewer devices than this are a hardware failure")
      ->check(CLI::NonNegativeNumber);
  command.add_flag("--dry-run", options.isDryRun, "Only tell what would run");
  command.add_option("--seed", options.run.seed, "Seed of the tests' random values")
      ->check(CLI::Range(1L, std::numeric_limits<long>::max()));
  addReporting(command, options.reporting);
  command.add_flag("-q,--quiet", options.isQuiet, "No progress");
}

int list(const GlobalOptions& global, const ListOptions& options) {
  const Configuration configuration = configurationOf(global);
  const Session session(configuration.path(), global.language, {});
  tellWarnings(std::cerr, session.warnings());
  if (options.what == "devices") {
    listDevices(std::cout, session.catalogue());
  } else if (options.what == "tests") {
    listTests(std::cout, session.catalogue());
  } else {
    listPackages(std::cout, session.catalogue());
  }
  return session.failedPackages() > 0 ? ExitCode::noVerdict : ExitCode::passed;
}

int show(const GlobalOptions& global, const std::string& item) {
  const Configuration configuration = configurationOf(global);
  const Session session(configuration.path(), global.language, {});
  tellWarnings(std::cerr, session.warnings());
  if (!showItem(std::cout, session.catalogue(), item)) {
    fmt::print(std::cerr, "diagctl: no package, device or test matches '{}'\n", item);
    return ExitCode::nothingRan;
  }
  return ExitCode::passed;
}

int explain(const std::string& code) {
  const std::vector<const CodeEntry*> entries = lookUp(code);
  if (entries.empty()) {
    fmt::print(std::cerr, "diagctl: no code '{}'\n", code);
    return ExitCode::nothingRan;
  }
  for (const CodeEntry* entry : entries) {
    fmt::print(std::cout, "{} ({})\n", entry->name, toText(entry->severity));
    if (entry->resultNumber) {
      fmt::print(std::cout, "  {} as the result of a call\n", *entry->resultNumber);
    }
    if (entry->eventNumber) {
      fmt::print(std::cout, "  {} as a controller event\n", *entry->eventNumber);
    }
    fmt::print(std::cout, "  {}\n  -> {}\n", entry->meaning, entry->nextAction);
  }
  return ExitCode::passed;
}

struct EstimateOptions {
  SelectionPatterns patterns;
  RunOptions run;
};

int tellEstimates(const GlobalOptions& global, const EstimateOptions& options) {
  Interruption::begin();
  const Configuration configuration = configurationOf(global);
  Session session(configuration.path(), global.language, {});
  tellWarnings(std::cerr, session.warnings());
  const bool isMatched = tellUnmatched(std::cerr, session.catalogue(), options.patterns);
  const std::vector<Estimate> estimates =
      estimate(session, select(session.catalogue(), options.patterns), passesOf(options.run),
               isQuick(options.run));
  writeEstimates(std::cout, estimates);
  if (Interruption::signal() != 0) {
    return ExitCode::signalBase + Interruption::signal();
  }
  if (estimates.empty()) {
    return ExitCode::nothingRan;
  }
  return isMatched && session.failedPackages() == 0 ? ExitCode::passed : ExitCode::noVerdict;
}

int check(const GlobalOptions& global) {
  const Configuration configuration = Configuration::find(global.config);
  return carryOutCheck(std::cout, configuration.path(), global.language,
                       !global.allowsInsecure && mustBeSecure());
}

/// A verb: its part of the command line, and what it does once that was parsed.
struct Verb {
  CLI::App* command;
  std::function<int()> carryOut;
};

/// The whole command line. Options are members, since the parser keeps references to them.
class CommandLine {
 public:
  CommandLine(int argc, char** argv) : m_arguments(argv, argv + argc) {
    m_app.require_subcommand(1);
    m_app.set_version_flag("--version", std::string("diagctl ") + TARVEX_VERSION);
    m_app.footer(
        "Examples:\n"
        "  diagctl run                        all bundled tests on all devices\n"
        "  diagctl run -p memory --quick      a short look at the memory\n"
        "  diagctl list tests                 what can run where, and what cannot\n"
        "  diagctl explain LOAD_LIBRARY_FAILED\n\n"
        "diagctl VERB --help tells more of each. The manual is diagctl(1).");
    m_app.add_option("-c,--config", m_global.config, "Control file");
    m_app.add_option(
        "--lang", m_global.language,
        fmt::format("Language of texts: {}", fmt::join(PackageKit::Contract::kLanguages, ", ")));
    m_app.add_flag("--allow-insecure", m_global.allowsInsecure,
                   "As root: work with files that others may change");
    m_app.fallthrough();
    addLooking();
    addRunning();
    addJudging();
  }

  int carryOut() {
    try {
      std::vector<std::string> rest(m_arguments.rbegin(), m_arguments.rend() - 1);
      m_app.parse(rest);
      requireSound(findFault(m_run.reporting.outputs));
      requireSound(findFault(m_report.reporting.outputs, m_report.log));
    } catch (const CLI::ParseError& failure) {
      return m_app.exit(failure) == 0 ? ExitCode::passed : ExitCode::usage;
    }
    for (const Verb& verb : m_verbs) {
      if (verb.command->parsed()) {
        return verb.carryOut();
      }
    }
    return ExitCode::usage;
  }

 private:
  static void requireSound(const std::string& fault) {
    if (!fault.empty()) {
      throw CLI::ValidationError("--output", fault);
    }
  }

  CLI::App& add(const char* name, const char* description, const char* examples,
                std::function<int()> carryOut) {
    CLI::App& command = *m_app.add_subcommand(name, description);
    command.footer(std::string("Examples:\n") + examples);
    m_verbs.push_back({&command, std::move(carryOut)});
    return command;
  }

  void addLooking() {
    CLI::App& listing =
        add("list", "List packages, devices or tests", "  diagctl list\n  diagctl list devices",
            [this] { return list(m_global, m_list); });
    listing.add_option("what", m_list.what, "packages, devices or tests")
        ->check(CLI::IsMember({"packages", "devices", "tests"}));
    CLI::App& showing = add("show", "Tell all about a package, device or test",
                            "  diagctl show memory\n  diagctl show 'Unit*'",
                            [this] { return show(m_global, m_item); });
    showing.add_option("item", m_item, "Name, number or wildcard")->required();
    CLI::App& explaining = add("explain", "Explain a code of the controller",
                               "  diagctl explain 32\n  diagctl explain INCORRECT_PHASE",
                               [this] { return explain(m_code); });
    explaining.add_option("code", m_code, "Name or number")->required();
  }

  void addRunning() {
    CLI::App& running = add("run", "Run tests and report",
                            "  diagctl run --profile quick\n"
                            "  diagctl run -d 'disk*' --exclude-test 'Write*' -o junit=report.xml\n"
                            "  diagctl run --format jsonl --total-time 10m > run.jsonl",
                            [this] { return run(); });
    addRunOptions(running, m_run);
    CLI::App& estimating = add("estimate", "Tell how long tests take",
                               "  diagctl estimate\n  diagctl estimate -p memory --passes 10",
                               [this] { return tellEstimates(m_global, m_estimate); });
    addSelection(estimating, m_estimate.patterns);
    addThoroughness(estimating, m_estimate.run);
  }

  void addJudging() {
    CLI::App& reporting = add("report", "Turn a saved log into any format",
                              "  diagctl report run.jsonl\n"
                              "  diagctl report run.jsonl --format junit > run.xml",
                              [this] { return carryOutReport(m_report); });
    reporting.add_option("log", m_report.log, "A file that run wrote as jsonl")->required();
    addReporting(reporting, m_report.reporting);
    add("check", "Tell every problem of the configuration and the packages",
        "  diagctl check\n  diagctl check --config control.cfg",
        [this] { return check(m_global); });
    CLI::App& proving = add("selftest", "Prove that crashes, hangs and floods of tests do no harm",
                            "  diagctl selftest", [this] {
                              return carryOutSelfTest(std::cout, m_selfTestPackages,
                                                      m_global.language, m_global.allowsInsecure);
                            });
    proving.add_option("--packages", m_selfTestPackages,
                       "Directory of the package that misbehaves");
  }

  int run() {
    m_run.allowsInsecure = m_global.allowsInsecure;
    m_run.config = m_global.config;
    m_run.language = m_global.language;
    m_run.commandLine = fmt::format("{}", fmt::join(m_arguments, " "));
    return carryOutRun(m_run);
  }

  CLI::App m_app{"Runs hardware diagnostics on this machine.", "diagctl"};
  std::vector<std::string> m_arguments;
  GlobalOptions m_global;
  ListOptions m_list;
  std::string m_item;
  std::string m_code;
  RunCommandOptions m_run;
  EstimateOptions m_estimate;
  ReportCommandOptions m_report;
  std::string m_selfTestPackages;
  std::vector<Verb> m_verbs;
};

// Data that could not be written is no data.
int requireWritten(int code) {
  std::cout.flush();
  if (std::cout || code == ExitCode::usage) {
    return code;
  }
  fmt::print(std::cerr, "diagctl: standard output cannot be written\n");
  return code == ExitCode::passed ? ExitCode::noVerdict : code;
}

}  // namespace

int runCommandLine(int argc, char** argv) {
  return requireWritten(CommandLine(argc, argv).carryOut());
}

}  // namespace TarvexDiags::FrontEnd
