#include "diagctl/command/CommandLine.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "diagctl/command/Arguments.h"
#include "diagctl/command/CheckCommand.h"
#include "diagctl/command/EstimateCommand.h"
#include "diagctl/command/ExplainCommand.h"
#include "diagctl/command/HealthCommand.h"
#include "diagctl/command/Help.h"
#include "diagctl/command/InventoryCheck.h"
#include "diagctl/command/InventoryCommand.h"
#include "diagctl/command/JsonAnswers.h"
#include "diagctl/command/Listing.h"
#include "diagctl/command/LogReplay.h"
#include "diagctl/command/MergeCommand.h"
#include "diagctl/command/OpenSession.h"
#include "diagctl/command/OptionGroup.h"
#include "diagctl/command/PlanArguments.h"
#include "diagctl/command/ReportCommand.h"
#include "diagctl/command/RunCommand.h"
#include "diagctl/command/SelfTest.h"
#include "diagctl/command/UsageFault.h"
#include "diagctl/command/WatchCommand.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/Formats.h"
#include "diagctl/report/LogFile.h"
#include "diagctl/report/Output.h"
#include "diagctl/session/Configuration.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/session/NameResolution.h"
#include "diagctl/session/NamedPlans.h"
#include "diagctl/session/Safety.h"
#include "diagctl/session/Session.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Texts.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr const char* kHelp = "help";

struct GlobalOptions {
  std::optional<std::string> config;
  std::string language = languageOfLocale();
  bool allowsInsecure = false;
};

void addDirectories(OptionGroup& group, PackageWishes& wishes) {
  group.list("--packages", "DIR", wishes.directories,
             english("A directory of packages, instead of the control file's; may be repeated"));
}

/// Which packages, and what they are to be set to.
void addPackages(CLI::App& command, PackageWishes& wishes) {
  OptionGroup group(command, english("Packages and settings"));
  addDirectories(group, wishes);
  group.list(
      "--set", "PACKAGE.KEY=VALUE", wishes.settings,
      english("A setting of a package, or with PACKAGE.NUMBER.KEY of one test; may be repeated"));
}

Configuration configurationOf(const GlobalOptions& global, const PackageWishes& wishes) {
  return openConfiguration(global.config, wishes, !global.allowsInsecure && mustBeSecure());
}

const std::vector<std::string> kProfiles = {"quick", "standard", "extended"};
const std::vector<std::string> kListings = {"packages", "devices", "tests"};

struct ListOptions {
  PackageWishes wishes;
  std::string what = kListings.front();
  std::string format = kTextFormat;
};

/// What a verb is to tell of.
struct LookOptions {
  PackageWishes wishes;
  std::string item;
  std::string format = kTextFormat;
};

void addAnswerFormat(CLI::App& command, std::string& format) {
  OptionGroup(command, "")
      .choice<std::string>("--format", "FORMAT", format,
                           {{kTextFormat, kTextFormat}, {kJsonFormat, kJsonFormat}},
                           english("For people or for programs"), kTextFormat);
}

void addSelection(CLI::App& command, SelectionPatterns& patterns) {
  OptionGroup group(command, english("Selecting"));
  const std::string value = "PATTERN";
  group.list("-p,--package", value, patterns.packages,
             english("Packages by name, mnemonic, number or wildcard"));
  group.list("-d,--device", value, patterns.devices,
             english("Devices by name, tag, number or wildcard"));
  group.list("-t,--test", value, patterns.tests, english("Tests by name, number or wildcard"));
  group.list("--exclude-package", value, patterns.excludedPackages,
             english("Packages to leave out"));
  group.list("--exclude-device", value, patterns.excludedDevices, english("Devices to leave out"));
  group.list("--exclude-test", value, patterns.excludedTests, english("Tests to leave out"));
  command
      .add_option(
          "WHAT", patterns.words,
          english("Packages, devices or tests, whichever it is that has the name. A pattern may "
                  "be a list by commas, or the beginning of one name alone"))
      ->type_name("WHAT");
}

OptionGroup::Choices<std::string> formatChoices() {
  OptionGroup::Choices<std::string> choices;
  for (const std::string& name : choosableFormats()) {
    choices.emplace_back(name, name);
  }
  return choices;
}

/// How much is told of what was found, and what it comes to.
void addStrictness(OptionGroup& group, ReportingOptions& options) {
  group.flag("--only-problems", options.onlyProblems,
             english("In the text, no line for what passed or was skipped"));
  group.flag("--strict", options.isStrict, english("A warning counts as no verdict"));
}

/// By what a run is judged, and how much is told of it.
void addJudgement(OptionGroup& group, ReportingOptions& options) {
  addStrictness(group, options);
  group
      .choice<FailOnSkip>(
          "--fail-on-skip", "KIND", options.failOnSkip,
          {{"any", FailOnSkip::Everything}, {"privilege", FailOnSkip::Privilege}},
          english("What is skipped, or what needs a privilege, counts as no verdict"), "")
      .expected(0, 1)
      ->default_str("any");
  group.choice<VanishedAs>("--vanished", "KIND", options.vanished,
                           {{"trouble", VanishedAs::Trouble}, {"failure", VanishedAs::Failure}},
                           english("What a device that vanishes during its test is"), "trouble");
}

void addRedaction(OptionGroup& group, RedactionWishes& wishes) {
  group.flag(
      "--redact", wishes.isRedacted,
      english("Replace serial numbers, addresses, UUIDs and the host's name by a hash, whose key "
              "is drawn anew each time"));
  group.text(
      "--redact-key", "FILE", wishes.keyFile,
      english("The same with this file for the key, so that what is equal in several documents "
              "stays equal"));
}

/// How what was found is told.
/// @param formats for standard output.
void addReports(OptionGroup& group, ReportingOptions& options,
                const OptionGroup::Choices<std::string>& formats) {
  group.choice<std::string>("--format", "FORMAT", options.format, formats,
                            english("Format on standard output"), kTextFormat);
  group.list("-o,--output", "FORMAT=FILE", options.outputs,
             english("A report into a file, or with - onto standard output; may be repeated"));
  group.counted(
      "-v,--verbose", options.verbosity,
      english("In the text, all information and figures of each test; twice, what it wrote "
              "into the package's log as well"));
  group.choice<ExitStyle>(
      "--exit-style", "STYLE", options.exitStyle,
      {{"plain", ExitStyle::Plain}, {"nagios", ExitStyle::Nagios}, {"npd", ExitStyle::Npd}},
      english("Exit codes for a monitor"), "plain");
}

/// How a run is told, and its outcome.
/// @param formats for standard output.
void addReporting(CLI::App& command, ReportingOptions& options,
                  const OptionGroup::Choices<std::string>& formats) {
  OptionGroup group(command, english("Reporting"));
  addReports(group, options, formats);
  addJudgement(group, options);
}

/// What settles how long tests take.
/// @param otherwise the profile without the option.
void addThoroughness(CLI::App& command, RunOptions& options,
                     const std::string& otherwise = kProfiles[1]) {
  OptionGroup group(command, english("How thorough"));
  group.choice<Profile>("--profile", "PROFILE", options.profile,
                        {{kProfiles[0], Profile::Quick},
                         {kProfiles[1], Profile::Standard},
                         {kProfiles[2], Profile::Extended}},
                        english("Short forms, one pass, or three passes; or a plan by its name"),
                        otherwise);
  group.number<int>("--passes", options.passes, 1, 1'000'000'000, english("Passes of each test"),
                    english("the profile's"));
  group.flag("--quick", options.quick, english("Ask each test for its short form"));
}

void addLimits(CLI::App& command, RunCommandOptions& options) {
  OptionGroup group(command, english("How long"));
  group.seconds("--time", options.run.secondsPerTest,
                english("No further pass of a test after this: 90s, 10m, 2h, 1d"),
                english("no limit"));
  group.seconds("--total-time", options.run.totalSeconds,
                english("End of the whole run, with no verdict on what still runs"),
                english("no limit"));
  group.flag("--stress", options.run.stress,
             english("Let each test repeat by itself until its limit"));
  group.flag("--halt-on-error", options.run.haltOnError,
             english("End the passes of a test after a bad result"));
  group.flag("--fail-fast", options.run.failFast,
             english("End the whole run after the first failure"));
}

void addConduct(CLI::App& command, RunCommandOptions& options) {
  using Settings = DiagCtrl::GlobalSettings;
  OptionGroup group(command, english("How it runs"));
  CLI::Option& serial = group.flag("--serial", options.serial, english("One test at a time"));
  group.flag("--parallel", options.parallel, english("As many tests as the devices allow"))
      .excludes(&serial);
  group.choice<Settings::diagMode>("--mode", "MODE", options.mode,
                                   {{"customer", Settings::CUSTOMER},
                                    {"factory", Settings::FACTORY},
                                    {"bringup", Settings::BRINGUP}},
                                   english("Diagnostic mode"), english("the control file's"));
  group.flag("--allow-disruptive", options.allowsDisruptive,
             english("Also tests that take devices out of service or overwrite them"));
  group.flag("--debug-worker", options.run.debugsWorkers,
             english("Let a debugger read the processes in which tests run"));
  group.number<std::size_t>(
      "--expect-devices", options.expectedDevices, 0, std::numeric_limits<std::size_t>::max(),
      english("Fewer devices than this are a hardware failure"), english("any number will do"));
  group.flag("--dry-run", options.isDryRun, english("Only tell what would run"));
  group.number<std::uint64_t>(
      "--seed", options.run.seed, 1, static_cast<std::uint64_t>(std::numeric_limits<long>::max()),
      english("Seed of the tests' random values"), english("another for each run"));
  group.flag("-q,--quiet", options.isQuiet, english("No progress"));
}

void addTextfile(CLI::App& command, std::optional<std::string>& directory) {
  OptionGroup(command, english("Reporting"))
      .text("--textfile", "DIR", directory,
            english("Metrics for the textfile collector of Prometheus, into this directory"));
}

void addHealthOptions(CLI::App& command, HealthOptions& options) {
  OptionGroup group(command, english("Asking"));
  group.seconds("--max-time", options.mostSeconds,
                english("End of it all, with what is known by then"), "45s");
  group.seconds("--cached", options.cached,
                english("Only tell the last result, which may be as old as this"),
                english("make a check"));
  group.choice<HealthStyle>("--style", "STYLE", options.style,
                            {{"plain", HealthStyle::Plain},
                             {"slurm", HealthStyle::Slurm},
                             {"nagios", HealthStyle::Nagios},
                             {"npd", HealthStyle::Npd},
                             {"nhc", HealthStyle::Nhc}},
                            english("Whose exit codes and lines"), "plain");
  group.choice<VanishedAs>("--vanished", "KIND", options.vanished,
                           {{"trouble", VanishedAs::Trouble}, {"failure", VanishedAs::Failure}},
                           english("What a device that vanishes during its test is"),
                           english("failure for nagios and npd, else trouble"));
  group.flag(
      "--drain", options.drains,
      english("With style slurm: drain this node for a hardware failure, unless it is drained"));
  group.flag("--undrain-own", options.undrainsOwn,
             english("With style slurm: give it back once it passes, if it was drained here"));
  group.text("--slurm-conf", "FILE", options.slurmConfiguration, english("Slurm's configuration"),
             english("the one that it finds"));
  group.text("--state", "DIR", options.state, english("Where the last result is kept"),
             english("see FILES in the manual"));
}

void addRunOptions(CLI::App& command, RunCommandOptions& options) {
  addSelection(command, options.patterns);
  addThoroughness(command, options.run);
  addLimits(command, options);
  addPackages(command, options.wishes);
  addConduct(command, options);
  addWatching(command, options.watch);
  addSettling(command, options.watch);
  OptionGroup::Choices<std::string> formats = formatChoices();
  formats.emplace_back(kJsonFormat, kJsonFormat);  // of what would run
  addReporting(command, options.reporting, formats);
  addTextfile(command, options.textfiles);
}

Json listingOf(const Catalogue& catalogue, const std::string& what) {
  if (what == "devices") {
    return devicesAsJson(catalogue);
  }
  return what == "tests" ? testsAsJson(catalogue) : packagesAsJson(catalogue);
}

int list(const GlobalOptions& global, const ListOptions& options) {
  const std::string what = chosenName(options.what, kListings, "list");
  const Configuration configuration = configurationOf(global, options.wishes);
  const auto session = openSession(configuration, global.language, {});
  tellWarnings(standardError(), session->warnings());
  const Catalogue& catalogue = session->catalogue();
  if (options.format == kJsonFormat) {
    writeJson(standardOutput(), withPlaces(listingOf(catalogue, what), configuration));
  } else {
    if (what == "devices") {
      listDevices(standardOutput(), catalogue);
    } else if (what == "tests") {
      listTests(standardOutput(), catalogue);
    } else {
      listPackages(standardOutput(), catalogue);
    }
    listPlaces(standardOutput(), configuration);
  }
  return session->failedPackages() > 0 ? ExitCode::kNoVerdict : ExitCode::kPassed;
}

int show(const GlobalOptions& global, const LookOptions& options) {
  const Configuration configuration = configurationOf(global, options.wishes);
  const auto session = openSession(configuration, global.language, {});
  tellWarnings(standardError(), session->warnings());
  const Catalogue& catalogue = session->catalogue();
  const std::string directory = packageDirectoryOf(configuration.path());
  const bool isForPrograms = options.format == kJsonFormat;
  const std::vector<std::string> patterns = patternsOfWord(catalogue, options.item);
  if (isForPrograms) {
    writeJson(standardOutput(), itemsAsJson(catalogue, patterns, directory));
  }
  int code = ExitCode::kPassed;
  for (const std::string& pattern : patterns) {
    const bool isFound = isForPrograms ? matchesSomething(catalogue, pattern)
                                       : showItem(standardOutput(), catalogue, pattern, directory);
    if (!isFound) {
      standardError().say("diagctl: no package, device or test matches '{}'{}\n", pattern,
                          hintFor(catalogue, PatternKind::Word, pattern));
      code = ExitCode::kNothingRan;
    }
  }
  return code;
}

int explain(const GlobalOptions& global, const LookOptions& options) {
  std::error_code ignored;  // one that can't be looked at is none either
  for (const std::string& directory : options.wishes.directories) {
    if (!std::filesystem::is_directory(directory, ignored)) {
      throw UsageFault(tr("'{}' is no directory", directory));
    }
  }
  return carryOutExplain(standardOutput(), options.item,
                         {global.config, options.wishes.directories}, global.language,
                         options.format == kJsonFormat);
}

struct EstimateOptions {
  PackageWishes wishes;
  std::string format = kTextFormat;
  SelectionPatterns patterns;
  RunOptions run;
};

int tellEstimates(const GlobalOptions& global, const EstimateOptions& options) {
  Interruption::begin();
  const Configuration configuration = configurationOf(global, options.wishes);
  const auto session = openSession(configuration, global.language, {});
  tellWarnings(standardError(), session->warnings());
  const SelectionPatterns patterns = resolve(session->catalogue(), options.patterns);
  if (const auto unmatched = describeUnmatched(session->catalogue(), patterns);
      !unmatched.empty()) {
    tellUnmatched({}, unmatched);
    return ExitCode::kNothingRan;
  }
  const std::vector<Estimate> estimates =
      estimate(*session, select(session->catalogue(), patterns), options.run,
               packageDirectoryOf(configuration.path()));
  if (options.format == kJsonFormat) {
    writeJson(standardOutput(), estimatesAsJson(estimates));
  } else {
    writeEstimates(standardOutput(), estimates);
  }
  if (Interruption::signal() != 0) {
    return ExitCode::kSignalBase + Interruption::signal();
  }
  if (estimates.empty()) {
    return ExitCode::kNothingRan;
  }
  return session->failedPackages() == 0 ? ExitCode::kPassed : ExitCode::kNoVerdict;
}

int check(const GlobalOptions& global, const LookOptions& options) {
  const bool isSecure = !global.allowsInsecure && mustBeSecure();
  const bool isForPrograms = options.format == kJsonFormat;
  try {
    const Configuration configuration =
        composeConfiguration(global.config, options.wishes, isSecure);
    return carryOutCheck(standardOutput(), configuration, global.language, isSecure, isForPrograms);
  } catch (const ConfigurationFault& fault) {
    std::vector<Problem> problems = checkControlFile(fault.file());
    problems.push_back({fault.file(), fault.section(), fault.key(), fault.reason()});
    return tellProblems(standardOutput(), problems, fault.file(), isForPrograms);
  }
}

/// Without standard input.
std::vector<std::string> filesAmong(const std::vector<std::string>& logs) {
  std::vector<std::string> files;
  std::copy_if(logs.begin(), logs.end(), std::back_inserter(files),
               [](const std::string& log) { return log != kStandardInputName; });
  return files;
}

/// The whole command line. Options are members, since the parser keeps references to them.
class CommandLine {
 public:
  CommandLine(int argc, char** argv) : m_arguments(argv, argv + argc) {
    m_program.footer(
        "  diagctl run                        all bundled tests on all devices\n"
        "  diagctl run -p memory --quick      a short look at the memory\n"
        "  diagctl list tests                 what can run where, and what cannot\n"
        "  diagctl explain LOAD_LIBRARY_FAILED");
    addOptionsOfEveryVerb();
    addLooking();
    addTaking();
    addRunning();
    addJudging();
    addTelling();
  }

  // In which an error is told that comes before the words are understood.
  std::string languageAskedFor() const {
    constexpr std::string_view option = "--lang";
    for (std::size_t place = 1; place < m_arguments.size(); ++place) {
      const std::string_view word = m_arguments[place];
      if (word == option && place + 1 < m_arguments.size()) {
        return m_arguments[place + 1];
      }
      if (word.starts_with(option) && word.substr(option.size()).starts_with('=')) {
        return std::string(word.substr(option.size() + 1));
      }
    }
    return m_global.language;
  }

  /// @param carry the verb that is asked for.
  int answer(const std::function<int(const Verb&)>& carry) {
    Arguments arguments;
    speak(languageAskedFor());
    try {
      const std::vector<std::string> words(m_arguments.begin() + 1, m_arguments.end());
      readArguments(words, m_program, m_verbs, arguments);
      if (arguments.wantsVersion) {
        return tellVersion();
      }
      if (arguments.wantsHelp) {
        return tellHelp(arguments.verb);
      }
      if (arguments.verb == nullptr) {
        writeVerbs(standardError(), m_verbs);
        return ExitCode::kUsage;
      }
      parse(m_program, arguments.ofProgram);
      speak(m_global.language);
      take(takePlan(arguments, m_verbs, kProfiles, !m_global.allowsInsecure && mustBeSecure()));
      parse(*arguments.verb->command, arguments.ofVerb);
      requireSound(findFault(m_run.reporting.outputs));
      requireSound(findFault(m_inventoryCheck.reporting.outputs));
      requireFitting();
      requireFittingHealth();
      requireSound(m_run.watch);
      requireSound(m_watch.watch);
      requireSound(m_health.run.watch);
      requireSoundLogs();
      return carry(*arguments.verb);
    } catch (const UsageFault& fault) {
      return tellUsage(fault.what(), arguments.verb);
    } catch (const CLI::ParseError& fault) {
      return tellUsage(fault.what(), arguments.verb);
    }
  }

 private:
  void take(const std::optional<NamedPlan>& plan) {
    if (plan) {
      for (PackageWishes* const wishes : {&m_run.wishes, &m_estimate.wishes}) {
        wishes->planFile = plan->file;
        wishes->planSettings = plan->settings;
      }
    }
  }

  // The parser takes the words from the end.
  static void parse(CLI::App& command, std::vector<std::string> words) {
    std::reverse(words.begin(), words.end());
    command.parse(words);
  }

  static void requireSound(const std::string& fault) {
    if (!fault.empty()) {
      throw UsageFault("--output: " + fault);
    }
  }

  void requireSoundLogs() const {
    for (const std::vector<std::string>* logs : {&m_report.logs, &m_merge.logs}) {
      if (const std::string fault = findLogFault(*logs); !fault.empty()) {
        throw UsageFault(fault);
      }
    }
    requireSound(findFault(m_report.reporting.outputs, filesAmong(m_report.logs)));
    if (const std::string fault = findPagesFault(m_report); !fault.empty()) {
      throw UsageFault("--split: " + fault);
    }
    for (const std::string& log : filesAmong(m_merge.logs)) {
      if (m_merge.output && isSameFile(*m_merge.output, log)) {
        throw UsageFault(tr("--output: '{}' is one of the logs", *m_merge.output));
      }
    }
  }

  // What the control file says beside is known later.
  static void requireSound(const WatchOptions& options) {
    WatchWishes ignored;
    apply(options, ignored);
  }

  void requireFitting() const {
    if (m_run.reporting.format == kJsonFormat && !m_run.isDryRun) {
      throw UsageFault(tr("--format: 'json' is for --dry-run; a run is told as {}", kLogFormat));
    }
    if (m_run.isDryRun && (m_run.textfiles || !m_run.reporting.outputs.empty())) {
      throw UsageFault(tr("{}: --dry-run runs nothing that a report could tell of",
                          m_run.textfiles ? "--textfile" : "--output"));
    }
  }

  void requireFittingHealth() const {
    if (m_health.cached && m_health.textfiles) {
      throw UsageFault(tr("--textfile: --cached checks nothing that metrics could tell of"));
    }
    if (m_health.style != HealthStyle::Slurm && (m_health.drains || m_health.undrainsOwn)) {
      throw UsageFault(
          tr("{}: only style slurm knows a node", m_health.drains ? "--drain" : "--undrain-own"));
    }
  }

  static int tellUsage(const std::string& fault, const Verb* verb) {
    const std::string hint = verb == nullptr || verb->name == kHelp ? "" : " " + verb->name;
    standardError().say("diagctl: {}\n\"diagctl help{}\" tells what is possible.\n", fault, hint);
    return ExitCode::kUsage;
  }

  static int tellVersion() {
    standardOutput().print("{} {}\n", "diagctl", TARVEX_VERSION);
    return ExitCode::kPassed;
  }

  int tellHelp(const Verb* verb) const {
    if (verb == nullptr) {
      writeHelp(standardOutput(), m_program, m_verbs);
    } else {
      writeHelp(standardOutput(), m_program, *verb);
    }
    return ExitCode::kPassed;
  }

  CLI::App& add(const std::string& name, const std::string& text, const char* examples,
                std::function<int()> carryOut) {
    m_verbs.push_back(
        {name, text, examples, std::make_unique<CLI::App>(text, name), std::move(carryOut)});
    m_verbs.back().command->set_help_flag();  // it is the program's
    return *m_verbs.back().command;
  }

  /// A word of a verb that is no option.
  template <class Target>
  static CLI::Option& addWord(CLI::App& command, const char* name, Target& target,
                              const std::string& text) {
    CLI::Option& option = *command.add_option(name, target, text);
    option.type_name(name);
    return option;
  }

  void addOptionsOfEveryVerb() {
    m_program.set_help_flag("-h,--help",
                            english("Tell what there is, and behind a verb all of it"));
    m_program.add_flag("--version", m_wantsVersion, english("Tell the version"));
    OptionGroup group(m_program, "");
    group.text("-c,--config", "FILE", m_global.config, english("Control file"),
               english("the first that exists; see FILES in the manual"));
    OptionGroup::Choices<std::string> languages;
    for (const char* const language : PackageKit::Contract::kLanguages) {
      languages.emplace_back(language, language);
    }
    group.choice<std::string>("--lang", "LANGUAGE", m_global.language, languages,
                              english("Language of texts"), english("the locale's"));
    group.flag("--allow-insecure", m_global.allowsInsecure,
               english("As root: work with files that others may change"));
  }

  void addLooking() {
    CLI::App& listing =
        add("list", english("List packages, devices or tests"),
            "  diagctl list\n  diagctl list devices", [this] { return list(m_global, m_list); });
    addWord(listing, "WHAT", m_list.what,
            withValues(english("What to list"), kListings, kListings.front()));
    addPackages(listing, m_list.wishes);
    addAnswerFormat(listing, m_list.format);
    CLI::App& showing = add("show", english("Tell all about a package, device or test"),
                            "  diagctl show memory\n  diagctl show 'Unit*'",
                            [this] { return show(m_global, m_shown); });
    addWord(showing, "ITEM", m_shown.item, english("Name, number or wildcard")).required();
    addPackages(showing, m_shown.wishes);
    addAnswerFormat(showing, m_shown.format);
    CLI::App& explaining = add("explain", english("Explain a word or a number of a report"),
                               "  diagctl explain 32\n  diagctl explain 9040\n"
                               "  diagctl explain worker-crashed",
                               [this] { return explain(m_global, m_explained); });
    addWord(explaining, "WORD", m_explained.item, english("Name, number or wildcard")).required();
    OptionGroup group(explaining, english("Packages"));
    addDirectories(group, m_explained.wishes);
    addAnswerFormat(explaining, m_explained.format);
  }

  void addTaking() {
    CLI::App& taking = add("inventory", english("Tell what this machine is made of, as a document"),
                           "  diagctl inventory -o machine.json\n"
                           "  diagctl inventory --redact-key fleet.key",
                           [this] { return carryOutInventory(standardOutput(), m_inventory); });
    OptionGroup group(taking, "");
    group.text("-o,--output", "FILE", m_inventory.output, english("Where the document goes"),
               english("standard output"));
    addRedaction(group, m_inventory.redaction);
    group.text("--root", "DIR", m_inventory.root,
               english("The directory below which the machine's proc and sys lie, as recorded"),
               "/");
    addComparing();
  }

  static void addRules(OptionGroup& group, std::optional<std::string>& rules) {
    group.text("--rules", "FILE", rules,
               english("Rules for what differs, as JSON, which come before those that come along"));
  }

  void addComparing() {
    const std::string verb = "inventory";
    CLI::App& checking = add(verb + " check", english("Tell how this machine differs from a file"),
                             "  diagctl inventory check --against golden.json\n"
                             "  diagctl inventory check --against /etc/fleet --format junit",
                             [this] { return checkInventory(); });
    OptionGroup group(checking, "");
    group.text(
        "--against", "FILE", m_inventoryCheck.against,
        english("What the machine should be: of golden, or an inventory; or a directory with one "
                "for each kind of machine"));
    addRules(group, m_inventoryCheck.rules);
    group.text("--root", "DIR", m_inventoryCheck.root,
               english("The directory below which the machine's proc and sys lie, as recorded"),
               "/");
    OptionGroup reporting(checking, english("Reporting"));
    addReports(reporting, m_inventoryCheck.reporting, formatChoices());
    addStrictness(reporting, m_inventoryCheck.reporting);
    CLI::App& deriving =
        add(verb + " golden", english("Derive from inventories what most of the machines are"),
            "  diagctl inventory golden fleet/*.json -o golden.json",
            [this] { return carryOutInventoryGolden(m_inventoryGolden); });
    addWord(deriving, "FILE", m_inventoryGolden.files, english("Inventories, at least four"))
        .required();
    OptionGroup derived(deriving, "");
    derived.text("-o,--output", "FILE", m_inventoryGolden.output,
                 english("Where the document goes"), english("standard output"));
    addRules(derived, m_inventoryGolden.rules);
    CLI::App& comparing =
        add(verb + " diff", english("Tell in what two inventories differ"),
            "  diagctl inventory diff before.json after.json", [this] {
              return carryOutInventoryDiff(standardOutput(), m_inventories[0], m_inventories[1]);
            });
    addWord(comparing, "ONE", m_inventories[0], english("An inventory, or what golden wrote"))
        .required();
    addWord(comparing, "OTHER", m_inventories[1], english("Another one")).required();
  }

  void addRunning() {
    CLI::App& running = add("run", english("Run tests and report"),
                            "  diagctl run --profile quick\n"
                            "  diagctl run -d 'disk*' --exclude-test 'Write*' -o junit=report.xml\n"
                            "  diagctl run --format jsonl --total-time 10m > run.jsonl",
                            [this] { return run(); });
    addRunOptions(running, m_run);
    addWatchingAlone();
    addHealth();
    CLI::App& estimating = add("estimate", english("Tell how long tests take"),
                               "  diagctl estimate\n  diagctl estimate -p memory --passes 10",
                               [this] { return tellEstimates(m_global, m_estimate); });
    addSelection(estimating, m_estimate.patterns);
    addThoroughness(estimating, m_estimate.run);
    addPackages(estimating, m_estimate.wishes);
    addAnswerFormat(estimating, m_estimate.format);
  }

  void addWatchingAlone() {
    CLI::App& watching = add("watch", english("Watch what kernel and sensors say of the hardware"),
                             "  diagctl watch\n  diagctl watch --for 24h --format jsonl",
                             [this] { return watch(); });
    OptionGroup group(watching, "");
    group.text("--for", "TIME", m_watch.duration, english("How long: 90s, 10m, 24h, 7d"),
               english("until a signal ends it"));
    group.choice<std::string>("--format", "FORMAT", m_watch.format,
                              {{kTextFormat, kTextFormat}, {kLogFormat, kLogFormat}},
                              english("Format on standard output"), kTextFormat);
    group.list("--set", "watch.KEY=VALUE", m_watch.wishes.settings,
               english("A setting of the watch; may be repeated"));
    addWatching(watching, m_watch.watch);
    addTextfile(watching, m_watch.textfiles);
  }

  void addHealth() {
    CLI::App& asking = add("health", english("Check the machine for a monitor or a scheduler"),
                           "  diagctl health --max-time 45s\n"
                           "  diagctl health --style slurm --drain --undrain-own\n"
                           "  diagctl health --style npd --cached 26h",
                           [this] { return health(); });
    addHealthOptions(asking, m_health);
    addSelection(asking, m_health.run.patterns);
    m_health.run.run.profile = Profile::Quick;
    addThoroughness(asking, m_health.run.run, kProfiles[0]);
    addPackages(asking, m_health.run.wishes);
    addWatching(asking, m_health.run.watch);
    addSettling(asking, m_health.run.watch);
    addTextfile(asking, m_health.textfiles);
  }

  void addJudging() {
    CLI::App& reporting = add("report", english("Turn saved logs into any format"),
                              "  diagctl report run.jsonl\n"
                              "  diagctl report run.jsonl --format junit > run.xml\n"
                              "  diagctl report *.jsonl\n"
                              "  diagctl report node*.jsonl --split pages",
                              [this] { return carryOutReport(m_report); });
    addLogs(reporting, m_report.logs);
    addReporting(reporting, m_report.reporting, formatChoices());
    OptionGroup(reporting, english("Reporting"))
        .text("--split", "DIR", m_report.pages,
              english("The html page, with a page for each machine beside it, into this directory: "
                      "index.html has all"));
    OptionGroup redaction(reporting, english("What identifies machines"));
    addRedaction(redaction, m_report.redaction);
    addMerging();
    CLI::App& checking =
        add("check", english("Tell every problem of the configuration and the packages"),
            "  diagctl check\n  diagctl check --config control.cfg",
            [this] { return check(m_global, m_checked); });
    addPackages(checking, m_checked.wishes);
    addAnswerFormat(checking, m_checked.format);
    CLI::App& proving =
        add("selftest", english("Prove that crashes, hangs and floods of tests do no harm"),
            "  diagctl selftest", [this] {
              return carryOutSelfTest(standardOutput(), m_selfTestPackages, m_global.language,
                                      m_global.allowsInsecure);
            });
    OptionGroup(proving, "")
        .text("--packages", "DIR", m_selfTestPackages,
              english("Directory of the package that misbehaves"),
              english("the one that comes along"));
  }

  static void addLogs(CLI::App& command, std::vector<std::string>& logs) {
    addWord(
        command, "LOG", logs,
        english("Files that run wrote as {}, those of many machines as well; - is standard input",
                kLogFormat))
        .required();
  }

  void addMerging() {
    CLI::App& merging =
        add("merge", english("Merge the logs of many machines into one, and judge them"),
            "  diagctl merge node*.jsonl -o all.jsonl\n"
            "  diagctl merge node*.jsonl -o /dev/null --only-problems",
            [this] { return carryOutMerge(m_merge); });
    addLogs(merging, m_merge.logs);
    OptionGroup group(merging, english("Reporting"));
    group.text("-o,--output", "FILE", m_merge.output, english("Where the log goes"),
               english("standard output"));
    addJudgement(group, m_merge.reporting);
    OptionGroup redaction(merging, english("What identifies machines"));
    addRedaction(redaction, m_merge.redaction);
  }

  void addTelling() {
    CLI::App& helping = add(kHelp, english("Tell what there is, or all of a verb"),
                            "  diagctl help\n  diagctl help run", [this] {
                              const std::string verb =
                                  fmt::format("{}", fmt::join(m_helpedVerb, " "));
                              return tellHelp(verb.empty() ? nullptr : &verbNamed(verb, m_verbs));
                            });
    addWord(helping, "VERB", m_helpedVerb, english("The verb to tell of")).expected(0, 2);
    add("version", english("Tell the version"), "  diagctl version", [] { return tellVersion(); });
  }

  int watch() {
    m_watch.isSecure = !m_global.allowsInsecure && mustBeSecure();
    m_watch.config = m_global.config;
    m_watch.language = m_global.language;
    m_watch.commandLine = asCommand(m_arguments);
    return carryOutWatch(m_watch);
  }

  int health() {
    m_health.run.allowsInsecure = m_global.allowsInsecure;
    m_health.run.config = m_global.config;
    m_health.run.language = m_global.language;
    m_health.run.commandLine = asCommand(m_arguments);
    return carryOutHealth(m_health);
  }

  int checkInventory() {
    if (m_inventoryCheck.against.empty()) {
      throw UsageFault(tr("--against is missing: what the machine should be"));
    }
    m_inventoryCheck.commandLine = asCommand(m_arguments);
    return carryOutInventoryCheck(m_inventoryCheck);
  }

  int run() {
    m_run.allowsInsecure = m_global.allowsInsecure;
    m_run.config = m_global.config;
    m_run.language = m_global.language;
    m_run.commandLine = asCommand(m_arguments);
    return carryOutRun(m_run);
  }

  CLI::App m_program{english("Runs hardware diagnostics on this machine."), "diagctl"};
  std::vector<std::string> m_arguments;
  bool m_wantsVersion = false;
  GlobalOptions m_global;
  ListOptions m_list;
  LookOptions m_shown;
  LookOptions m_explained;
  LookOptions m_checked;
  InventoryOptions m_inventory;
  InventoryCheckOptions m_inventoryCheck;
  InventoryGoldenOptions m_inventoryGolden;
  std::array<std::string, 2> m_inventories;
  RunCommandOptions m_run;
  WatchCommandOptions m_watch;
  HealthOptions m_health;
  EstimateOptions m_estimate;
  ReportCommandOptions m_report;
  MergeCommandOptions m_merge;
  std::string m_selfTestPackages;
  std::vector<std::string> m_helpedVerb;
  std::deque<Verb> m_verbs;
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
  return requireWritten(
      CommandLine(argc, argv).answer([](const Verb& verb) { return verb.carryOut(); }));
}

int readCommandLine(int argc, char** argv) {
  return CommandLine(argc, argv).answer([](const Verb&) { return ExitCode::kPassed; });
}

}  // namespace TarvexDiags::FrontEnd
