#include "diagctl/CommandLine.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagctl/CodeTable.h"
#include "diagctl/Configuration.h"
#include "diagctl/ExitStatus.h"
#include "diagctl/Listing.h"
#include "diagctl/ReportCommand.h"
#include "diagctl/RunCommand.h"
#include "diagctl/Safety.h"
#include "diagctl/Session.h"

namespace TarvexDiags::DiagCtl {

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

void addRunOptions(CLI::App& command, RunCommandOptions& options) {
  addSelection(command, options.patterns);
  command.add_option("--profile", options.run.profile, "How thorough: quick, standard or extended")
      ->transform(
          CLI::CheckedTransformer(std::map<std::string, Profile>{{"quick", Profile::quick},
                                                                 {"standard", Profile::standard},
                                                                 {"extended", Profile::extended}},
                                  CLI::ignore_case));
  command.add_option("--passes", options.run.passes, "Passes of each test")
      ->check(CLI::Range(1, 1'000'000'000));
  const CLI::AsNumberWithUnit units(
      std::map<std::string, unsigned long>{{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}},
      CLI::AsNumberWithUnit::CASE_INSENSITIVE, "TIME");
  command.add_option("--time", options.run.secondsPerTest, "Limit on each test: 90s, 10m, 2h, 1d")
      ->transform(units)
      ->check(CLI::PositiveNumber);
  command.add_option("--total-time", options.run.totalSeconds, "Limit on the whole run")
      ->transform(units)
      ->check(CLI::PositiveNumber);
  command.add_flag("--stress", options.run.stress,
                   "Let each test repeat by itself until its limit");
  command.add_flag("--quick", options.run.quick, "Ask each test for its short form");
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
  command.add_option("--expect-devices", options.expectedDevices,
                     "Fewer devices than this are a hardware failure");
  command.add_flag("--dry-run", options.isDryRun, "Only tell what would run");
  command.add_option("--seed", options.run.seed, "Seed of the tests' random values");
  command.add_option("--format", options.format, "text, jsonl, junit or tap")
      ->check(CLI::IsMember({"text", "jsonl", "junit", "tap"}));
  command.add_option("-o,--output", options.outputs, "FORMAT=FILE; may be repeated");
  command.add_flag("-q,--quiet", options.isQuiet, "No progress");
  command.add_flag("--strict", options.isStrict, "A warning counts as no verdict");
  command.add_option("--exit-style", options.exitStyle, "plain, nagios or npd")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, ExitStyle>{
              {"plain", ExitStyle::plain}, {"nagios", ExitStyle::nagios}, {"npd", ExitStyle::npd}},
          CLI::ignore_case));
}

int list(const GlobalOptions& global, const ListOptions& options) {
  const Configuration configuration = configurationOf(global);
  const Session session(configuration.path(), global.language, {});
  for (const std::string& warning : session.warnings()) {
    fmt::print(std::cerr, "diagctl: {}\n", warning);
  }
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
    fmt::print("{} ({})\n", entry->name, toText(entry->severity));
    if (entry->resultNumber) {
      fmt::print("  {} as the result of a call\n", *entry->resultNumber);
    }
    if (entry->eventNumber) {
      fmt::print("  {} as a controller event\n", *entry->eventNumber);
    }
    fmt::print("  {}\n  -> {}\n", entry->meaning, entry->nextAction);
  }
  return ExitCode::passed;
}

}  // namespace

int runCommandLine(int argc, char** argv) {
  CLI::App app("Runs hardware diagnostics on this machine.", "diagctl");
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("diagctl ") + TARVEX_VERSION);
  app.footer(
      "Examples:\n"
      "  diagctl run                        all bundled tests on all devices\n"
      "  diagctl run -p memory --quick      a short look at the memory\n"
      "  diagctl list tests                 what can run where, and what cannot\n"
      "  diagctl explain LOAD_LIBRARY_FAILED");
  GlobalOptions global;
  app.add_option("-c,--config", global.config, "Control file");
  app.add_option("--lang", global.language, "Language of texts: en, de, fr, es, zh, ja");
  app.add_flag("--allow-insecure", global.allowsInsecure,
               "As root: work with files that others may change");
  app.fallthrough();

  ListOptions listOptions;
  auto* listCommand = app.add_subcommand("list", "List packages, devices or tests");
  listCommand->add_option("what", listOptions.what, "packages, devices or tests")
      ->check(CLI::IsMember({"packages", "devices", "tests"}));
  std::string item;
  auto* showCommand = app.add_subcommand("show", "Tell all about a package, device or test");
  showCommand->add_option("item", item, "Name, number or wildcard")->required();
  RunCommandOptions runOptions;
  auto* runCommand = app.add_subcommand("run", "Run tests and report");
  addRunOptions(*runCommand, runOptions);
  std::string code;
  auto* explainCommand = app.add_subcommand("explain", "Explain a code of the controller");
  explainCommand->add_option("code", code, "Name or number")->required();

  ReportCommandOptions reportOptions;
  auto* reportCommand = app.add_subcommand("report", "Turn a saved log into any format");
  reportCommand->add_option("log", reportOptions.log, "A file that run wrote as jsonl")->required();
  reportCommand->add_option("--format", reportOptions.format, "text, jsonl, junit or tap")
      ->check(CLI::IsMember({"text", "jsonl", "junit", "tap"}));
  reportCommand->add_option("-o,--output", reportOptions.outputs, "FORMAT=FILE; may be repeated");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& failure) {
    return app.exit(failure) == 0 ? ExitCode::passed : ExitCode::usage;
  }
  if (listCommand->parsed()) {
    return list(global, listOptions);
  }
  if (showCommand->parsed()) {
    return show(global, item);
  }
  if (explainCommand->parsed()) {
    return explain(code);
  }
  if (reportCommand->parsed()) {
    return carryOutReport(reportOptions);
  }
  runOptions.allowsInsecure = global.allowsInsecure;
  runOptions.config = global.config;
  runOptions.language = global.language;
  for (int i = 0; i < argc; ++i) {
    runOptions.commandLine += (i > 0 ? " " : "") + std::string(argv[i]);
  }
  return carryOutRun(runOptions);
}

}  // namespace TarvexDiags::DiagCtl
