#include "diagctl/command/CommandLine.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
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
#include "diagctl/report/Formats.h"
#include "diagctl/report/Output.h"
#include "diagctl/session/CodeTable.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/session/Safety.h"
#include "diagctl/session/Session.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"
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
                     tr("Packages by name, mnemonic, number or wildcard"));
  command.add_option("-d,--device", patterns.devices,
                     tr("Devices by name, tag, number or wildcard"));
  command.add_option("-t,--test", patterns.tests, tr("Tests by name, number or wildcard"));
  command.add_option("--exclude-package", patterns.excludedPackages, tr("Packages to leave out"));
  command.add_option("--exclude-device", patterns.excludedDevices, tr("Devices to leave out"));
  command.add_option("--exclude-test", patterns.excludedTests, tr("Tests to leave out"));
}

/// How a run is told, and its outcome.
void addReporting(CLI::App& command, ReportingOptions& options) {
  command
      .add_option("--format", options.format, tr("Format on standard output: {}", listOfFormats()))
      ->check(CLI::IsMember(choosableFormats()));
  command
      .add_option("-o,--output", options.outputs,
                  tr("FORMAT=FILE; may be repeated; - is standard output"))
      ->check([](const std::string& specification) { return findFault({specification}); });
  command.add_flag("--strict", options.isStrict, tr("A warning counts as no verdict"));
  command.add_flag("--fail-on-skip", options.failsOnSkip,
                   tr("What is not possible here counts as no verdict"));
  command
      .add_option("--vanished", options.vanished,
                  tr("What a device that vanishes during its test is: trouble or failure"))
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, VanishedAs>{{"trouble", VanishedAs::Trouble},
                                            {"failure", VanishedAs::Failure}},
          CLI::ignore_case));
  command
      .add_option("--exit-style", options.exitStyle,
                  tr("Exit codes for a monitor: plain, nagios or npd"))
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, ExitStyle>{
              {"plain", ExitStyle::Plain}, {"nagios", ExitStyle::Nagios}, {"npd", ExitStyle::Npd}},
          CLI::ignore_case));
}

/// What settles how long tests take.
void addThoroughness(CLI::App& command, RunOptions& options) {
  command
      .add_option("--profile", options.profile,
                  tr("quick (short forms), standard (one pass) or extended (three passes)"))
      ->transform(
          CLI::CheckedTransformer(std::map<std::string, Profile>{{"quick", Profile::Quick},
                                                                 {"standard", Profile::Standard},
                                                                 {"extended", Profile::Extended}},
                                  CLI::ignore_case));
  command
      .add_option("--passes", options.passes, tr("Passes of each test, instead of the profile's"))
      ->check(CLI::Range(1, 1'000'000'000));
  command.add_flag("--quick", options.quick, tr("Ask each test for its short form"));
}

void addRunOptions(CLI::App& command, RunCommandOptions& options) {
  addSelection(command, options.patterns);
  addThoroughness(command, options.run);
  const CLI::AsNumberWithUnit units(
      std::map<std::string, unsigned long>{{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}},
      CLI::AsNumberWithUnit::CASE_INSENSITIVE, "TIME");
  command
      .add_option("--time", options.run.secondsPerTest,
                  tr("No further pass of a test after this: 90s, 10m, 2h, 1d"))
      ->transform(units)
      ->check(CLI::PositiveNumber);
  command
      .add_option("--total-time", options.run.totalSeconds,
                  tr("End of the whole run, with no verdict on what still runs"))
      ->transform(units)
      ->check(CLI::PositiveNumber);
  command.add_flag("--stress", options.run.stress,
                   tr("Let each test repeat by itself until its limit"));
  command.add_flag("--halt-on-error", options.run.haltOnError,
                   tr("End the passes of a test after a bad result"));
  auto* serial = command.add_flag("--serial", options.serial, tr("One test at a time"));
  command.add_flag("--parallel", options.parallel, tr("As many tests as the devices allow"))
      ->excludes(serial);
  command.add_option("--mode", options.mode, tr("customer, factory or bringup"))
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, DiagCtrl::GlobalSettings::diagMode>{
              {"customer", DiagCtrl::GlobalSettings::CUSTOMER},
              {"factory", DiagCtrl::GlobalSettings::FACTORY},
              {"bringup", DiagCtrl::GlobalSettings::BRINGUP}},
          CLI::ignore_case));
  command.add_flag("--allow-disruptive", options.allowsDisruptive,
                   tr("Also tests that take devices out of service or overwrite them"));
  command
      .add_option("--expect-devices", options.expectedDevices,
                  tr("Fewer devices than this are a hardware failure"))
      ->check(CLI::NonNegativeNumber);
  command.add_flag("--dry-run", options.isDryRun, tr("Only tell what would run"));
  command.add_option("--seed", options.run.seed, tr("Seed of the tests' random values"))
      ->check(CLI::Range(1L, std::numeric_limits<long>::max()));
  addReporting(command, options.reporting);
  command.add_flag("-q,--quiet", options.isQuiet, tr("No progress"));
}

int list(const GlobalOptions& global, const ListOptions& options) {
  const Configuration configuration = configurationOf(global);
  const Session session(configuration.path(), global.language, {});
  tellWarnings(standardError(), session.warnings());
  if (options.what == "devices") {
    listDevices(standardOutput(), session.catalogue());
  } else if (options.what == "tests") {
    listTests(standardOutput(), session.catalogue());
  } else {
    listPackages(standardOutput(), session.catalogue());
  }
  return session.failedPackages() > 0 ? ExitCode::kNoVerdict : ExitCode::kPassed;
}

int show(const GlobalOptions& global, const std::string& item) {
  const Configuration configuration = configurationOf(global);
  const Session session(configuration.path(), global.language, {});
  tellWarnings(standardError(), session.warnings());
  if (!showItem(standardOutput(), session.catalogue(), item)) {
    standardError().say("diagctl: no package, device or test matches '{}'\n", item);
    return ExitCode::kNothingRan;
  }
  return ExitCode::kPassed;
}

int explain(const std::string& code) {
  const std::vector<const CodeEntry*> entries = lookUp(code);
  if (entries.empty()) {
    standardError().say("diagctl: no code '{}'\n", code);
    return ExitCode::kNothingRan;
  }
  for (const CodeEntry* entry : entries) {
    standardOutput().print("{} ({})\n", entry->name, told(toText(entry->severity)));
    if (entry->resultNumber) {
      standardOutput().say("  {} as the result of a call\n", *entry->resultNumber);
    }
    if (entry->eventNumber) {
      standardOutput().say("  {} as a controller event\n", *entry->eventNumber);
    }
    standardOutput().print("  {}\n  -> {}\n", told(entry->meaning), told(entry->nextAction));
  }
  return ExitCode::kPassed;
}

struct EstimateOptions {
  SelectionPatterns patterns;
  RunOptions run;
};

int tellEstimates(const GlobalOptions& global, const EstimateOptions& options) {
  Interruption::begin();
  const Configuration configuration = configurationOf(global);
  Session session(configuration.path(), global.language, {});
  tellWarnings(standardError(), session.warnings());
  const bool isMatched = tellUnmatched(standardError(), session.catalogue(), options.patterns);
  const std::vector<Estimate> estimates =
      estimate(session, select(session.catalogue(), options.patterns), passesOf(options.run),
               isQuick(options.run));
  writeEstimates(standardOutput(), estimates);
  if (Interruption::signal() != 0) {
    return ExitCode::kSignalBase + Interruption::signal();
  }
  if (estimates.empty()) {
    return ExitCode::kNothingRan;
  }
  return isMatched && session.failedPackages() == 0 ? ExitCode::kPassed : ExitCode::kNoVerdict;
}

int check(const GlobalOptions& global) {
  const Configuration configuration = Configuration::find(global.config);
  return carryOutCheck(standardOutput(), configuration.path(), global.language,
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
        tr("Examples:\n"
           "  diagctl run                        all bundled tests on all devices\n"
           "  diagctl run -p memory --quick      a short look at the memory\n"
           "  diagctl list tests                 what can run where, and what cannot\n"
           "  diagctl explain LOAD_LIBRARY_FAILED\n\n"
           "diagctl VERB --help tells more of each. The manual is diagctl(1)."));
    m_app.add_option("-c,--config", m_global.config, tr("Control file"));
    m_app.add_option("--lang", m_global.language,
                     tr("Language of texts: {}",
                        fmt::format("{}", fmt::join(PackageKit::Contract::kLanguages, ", "))));
    m_app.add_flag("--allow-insecure", m_global.allowsInsecure,
                   tr("As root: work with files that others may change"));
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
      return answer(failure);
    }
    for (const Verb& verb : m_verbs) {
      if (verb.command->parsed()) {
        return verb.carryOut();
      }
    }
    return ExitCode::kUsage;
  }

 private:
  static void requireSound(const std::string& fault) {
    if (!fault.empty()) {
      throw CLI::ValidationError("--output", fault);
    }
  }

  /// @param fault with what was typed, and the text that begins with it.
  static void tellUsage(const std::string& fault, const std::string& text) {
    if (!text.empty() && text.starts_with(fault)) {
      standardError().print("{}", fault);
      standardError().write(text.substr(fault.size()));
    } else {
      standardError().write(text);
    }
  }

  /// Tells the help or the version that was asked for, or what is wrong with the command line.
  int answer(const CLI::ParseError& failure) {
    std::ostringstream out;
    std::ostringstream error;
    const int code = m_app.exit(failure, out, error);
    standardOutput().write(out.str());
    tellUsage(failure.what(), error.str());
    return code == 0 ? ExitCode::kPassed : ExitCode::kUsage;
  }

  CLI::App& add(const char* name, const std::string& description, const char* examples,
                std::function<int()> carryOut) {
    CLI::App& command = *m_app.add_subcommand(name, description);
    command.footer(tr("Examples:") + "\n" + examples);
    m_verbs.push_back({&command, std::move(carryOut)});
    return command;
  }

  void addLooking() {
    CLI::App& listing =
        add("list", tr("List packages, devices or tests"), "  diagctl list\n  diagctl list devices",
            [this] { return list(m_global, m_list); });
    listing.add_option("what", m_list.what, tr("packages, devices or tests"))
        ->check(CLI::IsMember({"packages", "devices", "tests"}));
    CLI::App& showing = add("show", tr("Tell all about a package, device or test"),
                            "  diagctl show memory\n  diagctl show 'Unit*'",
                            [this] { return show(m_global, m_item); });
    showing.add_option("item", m_item, tr("Name, number or wildcard"))->required();
    CLI::App& explaining = add("explain", tr("Explain a code of the controller"),
                               "  diagctl explain 32\n  diagctl explain INCORRECT_PHASE",
                               [this] { return explain(m_code); });
    explaining.add_option("code", m_code, tr("Name or number"))->required();
  }

  void addRunning() {
    CLI::App& running = add("run", tr("Run tests and report"),
                            "  diagctl run --profile quick\n"
                            "  diagctl run -d 'disk*' --exclude-test 'Write*' -o junit=report.xml\n"
                            "  diagctl run --format jsonl --total-time 10m > run.jsonl",
                            [this] { return run(); });
    addRunOptions(running, m_run);
    CLI::App& estimating = add("estimate", tr("Tell how long tests take"),
                               "  diagctl estimate\n  diagctl estimate -p memory --passes 10",
                               [this] { return tellEstimates(m_global, m_estimate); });
    addSelection(estimating, m_estimate.patterns);
    addThoroughness(estimating, m_estimate.run);
  }

  void addJudging() {
    CLI::App& reporting = add("report", tr("Turn a saved log into any format"),
                              "  diagctl report run.jsonl\n"
                              "  diagctl report run.jsonl --format junit > run.xml",
                              [this] { return carryOutReport(m_report); });
    reporting.add_option("log", m_report.log, tr("A file that run wrote as {}", kLogFormat))
        ->required();
    addReporting(reporting, m_report.reporting);
    add("check", tr("Tell every problem of the configuration and the packages"),
        "  diagctl check\n  diagctl check --config control.cfg",
        [this] { return check(m_global); });
    CLI::App& proving =
        add("selftest", tr("Prove that crashes, hangs and floods of tests do no harm"),
            "  diagctl selftest", [this] {
              return carryOutSelfTest(standardOutput(), m_selfTestPackages, m_global.language,
                                      m_global.allowsInsecure);
            });
    proving.add_option("--packages", m_selfTestPackages,
                       tr("Directory of the package that misbehaves"));
  }

  int run() {
    m_run.allowsInsecure = m_global.allowsInsecure;
    m_run.config = m_global.config;
    m_run.language = m_global.language;
    m_run.commandLine = fmt::format("{}", fmt::join(m_arguments, " "));
    return carryOutRun(m_run);
  }

  CLI::App m_app{tr("Runs hardware diagnostics on this machine."), "diagctl"};
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
  standardOutput().flush();
  if (standardOutput().isSound() || code == ExitCode::kUsage) {
    return code;
  }
  standardError().say("diagctl: standard output cannot be written\n");
  return code == ExitCode::kPassed ? ExitCode::kNoVerdict : code;
}

}  // namespace

int runCommandLine(int argc, char** argv) {
  return requireWritten(CommandLine(argc, argv).carryOut());
}

}  // namespace TarvexDiags::FrontEnd
