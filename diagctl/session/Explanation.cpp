#include "diagctl/session/Explanation.h"

#include <fmt/format.h>
#include <fnmatch.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/session/CodeTable.h"
#include "diagctl/session/ConfigurationText.h"
#include "diagctl/session/TextArchive.h"
#include "diagctl/session/WatchTexts.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/KitCodes.h"
#include "packagekit/contract/Texts.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace Contract = PackageKit::Contract;
namespace fs = std::filesystem;

constexpr const char* kController = "controller";
constexpr const char* kKit = "kit";
constexpr const char* kExit = "exit";
constexpr const char* kWord = "word";
constexpr const char* kWatch = "watch";

/// What was asked: a name or a number, of one family or of any.
struct Question {
  std::string family;  ///< empty: any
  std::string text;
  std::optional<unsigned int> number;

  bool isAbout(const std::string& other) const {
    return family.empty() || strcasecmp(family.c_str(), other.c_str()) == 0;
  }
  bool names(const std::string& name) const {
    return fnmatch(text.c_str(), name.c_str(), FNM_CASEFOLD) == 0;
  }
  /// A token is also asked for as a symptom: "line-stuck" for "LINE_STUCK".
  bool namesToken(const std::string& token) const {
    std::string symptom = token;
    std::replace(symptom.begin(), symptom.end(), '_', '-');
    return names(token) || names(symptom);
  }
};

std::optional<unsigned int> toNumber(const std::string& text) {
  unsigned int number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

Question parse(const std::string& asked) {
  Question question;
  const std::size_t colon = asked.find(':');
  question.family = colon != std::string::npos ? asked.substr(0, colon) : "";
  question.text = colon != std::string::npos ? asked.substr(colon + 1) : asked;
  question.number = toNumber(question.text);
  return question;
}

// ---- The controller's codes

void addController(const Question& question, std::vector<Explanation>& found) {
  for (const CodeEntry& entry : codeTable()) {
    const bool isMeant = question.number ? entry.resultNumber == question.number ||
                                               entry.eventNumber == question.number
                                         : question.namesToken(std::string(entry.name));
    if (!isMeant) {
      continue;
    }
    found.push_back({kController, std::string(entry.name), entry.resultNumber, entry.eventNumber,
                     told(toText(entry.severity)), told(entry.meaning), told(entry.nextAction)});
  }
}

// ---- Codes of the kit and of packages

const char* kindOf(const std::string& section) {
  return section == "Error"     ? marked("error")
         : section == "Warning" ? marked("warning")
                                : marked("information");
}

/// What a package says in its files.
struct PackageFiles {
  ConfigurationText description;
  std::vector<std::map<std::string, std::string>> texts;  ///< in the order of preference
};

std::optional<PackageFiles> readPackage(const std::string& directory, const std::string& name,
                                        const std::string& language) {
  auto description = ConfigurationText::read(directory + "/" + name + ".cfg");
  if (!description || !description->hasSection("Package")) {
    return std::nullopt;
  }
  PackageFiles files{std::move(*description), {}};
  for (const std::string& each : {language, std::string(Contract::kFallbackLanguage)}) {
    if (const auto file =
            ConfigurationText::read(fmt::format("{}/{}/{}.cfg", directory, each, name))) {
      files.texts.push_back(file->keys(each));
    }
  }
  return files;
}

// What is filled in at each event stands as dots; so does a word with its detail behind it.
std::string withDots(const std::string& text) {
  const std::string dots = "...";
  std::string told = fillIn(text, {dots});
  if (const std::size_t place = told.find(dots + dots); place != std::string::npos) {
    told.erase(place, dots.size());
  }
  return told;
}

std::string textOf(const PackageFiles& files, const std::string& token) {
  for (const auto& texts : files.texts) {
    if (const auto text = texts.find(token); text != texts.end()) {
      return withDots(text->second);
    }
  }
  return {};
}

bool isMeant(const Question& question, unsigned int code, const std::string& token) {
  if (question.number) {
    return code == *question.number;
  }
  const Contract::KitCode* const row = Contract::findKitCode(code);
  return question.namesToken(token) ||
         (row != nullptr && question.names(std::string(row->symptom)));
}

void addPackage(const Question& question, const std::string& name, const PackageFiles& files,
                std::set<unsigned int>& kitCodes, std::vector<Explanation>& found) {
  for (const char* const section : {"Error", "Warning", "Information"}) {
    for (const auto& [key, token] : files.description.keys(section)) {
      const auto code = toNumber(key);
      if (!code) {
        continue;
      }
      const bool isKit = Contract::isKitCode(*code);
      const std::string family = isKit ? kKit : name;
      // Every package has the kit's.
      if (!question.isAbout(family) || !isMeant(question, *code, token) ||
          (isKit && !kitCodes.insert(*code).second)) {
        continue;
      }
      found.push_back({family, token, std::nullopt, code, told(kindOf(section)),
                       textOf(files, token), textOf(files, Contract::toActionToken(token))});
    }
  }
}

std::set<std::string> packagesIn(const std::string& directory) {
  std::set<std::string> names;
  std::error_code failure;
  for (const auto& entry : fs::directory_iterator(directory, failure)) {
    if (entry.path().extension() == ".cfg") {
      names.insert(entry.path().stem());
    }
  }
  return names;
}

void addPackages(const Question& question, const std::vector<std::string>& directories,
                 const std::string& language, std::vector<Explanation>& found) {
  std::set<unsigned int> kitCodes;
  for (const std::string& directory : directories) {
    for (const std::string& name : packagesIn(directory)) {
      if (const auto files = readPackage(directory, name, language)) {
        addPackage(question, name, *files, kitCodes, found);
      }
    }
  }
}

// ---- Findings of the watch over the machine

void addWatch(const Question& question, const std::string& language,
              std::vector<Explanation>& found) {
  const WatchTexts texts(language);
  for (const std::string& token : WatchTexts::tokens()) {
    if (!question.number && question.namesToken(token)) {
      found.push_back({kWatch, WatchTexts::nameOf(token), std::nullopt, std::nullopt,
                       tr("finding of the watch"), texts.text(token, {"..."}),
                       texts.text(Contract::toActionToken(token))});
    }
  }
}

// ---- Words of reports

struct Word {
  const char* name;
  const char* meaning;
  const char* action;  ///< may be empty
};

constexpr Word kWords[] = {
    {"PASSED", marked("The device does what the test asks of it."), marked("Nothing to do.")},
    {"FAILED", marked("The hardware is at fault."),
     marked("Do what stands below the finding; run the test again to confirm it.")},
    {"WARNING", marked("Something was seen that is no fault yet."),
     marked("Do what stands below the finding. --strict counts it as no verdict.")},
    {"ERROR", marked("No verdict: the tool could not do its work."),
     marked("Do what stands below the trouble, and run the test again.")},
    {"ABORTED", marked("No verdict: a person, a signal or the total time ended the test."),
     marked("Run the test again, with more time.")},
    {"SKIPPED",
     marked("Nothing was tested: not possible here, a privilege is missing, not in this diagnostic "
            "mode, or the run was ended before its turn."),
     marked("Run as root for what needs a privilege. --fail-on-skip counts it as no verdict.")},
    {"no-result", marked("A package ended a test and handed over no result."),
     marked("Look into the package's log.")},
    {"cut-off",
     marked("The run ended before the test did: it crashed, was killed, or the machine was lost."),
     marked("Run the test again.")},
    {"device-missing", marked("Fewer devices were found than --expect-devices asks for."),
     marked("Compare \"diagctl list devices\" with what should be there.")},
    {"package-not-loaded", marked("A package was left out: there is no verdict on its devices."),
     marked("Run \"diagctl check\": it names file and reason.")},
    {"failed", marked("A test failed and named no event behind it."),
     marked("Look into the package's log.")},
    {"unusual-status", marked("A test had neither passed nor failed and named no event behind it."),
     marked("Look into the package's log.")},
    {"crash-on-one-device", marked("A test crashes on this device and not on another one."),
     marked("Take the device out of service and have it replaced.")},
    {"crash-not-repeated", marked("A test crashed once, and not when it was repeated."),
     marked("Run the test again, and for longer.")},
    {"queueing-failed", marked("The controller refused a test and gave a reason without a name."),
     marked("Run \"diagctl check\": it names file and reason.")},
    {"run-trouble", marked("Something went wrong with the run as a whole."),
     marked("Do what stands below the trouble, and run the test again.")},
    {"further-tests", marked("More tests were run than a report holds; these are summed up."),
     marked("Look at the log, which has each of them.")},
    {"no-end", marked("A check of health came to no end: its time was up, or it crashed."),
     marked("Give it more time with --max-time, or select less.")},
    {"log-not-read", marked("A log could not be read to its end, so there is no verdict on all."),
     marked("See the reason beside the file's name.")},
    {"part-missing", marked("A part of the machine is not there that should be."),
     marked("Seat the part anew, and exchange it when that does not help.")},
    {"part-degraded", marked("A part of the machine has less than it should have."),
     marked("Seat the part anew, and exchange it when that does not help.")},
    {"part-differs", marked("A part of the machine is another, or set otherwise, than it should."),
     marked("Bring it to what is expected, or expect what it is now.")},
    {"part-added", marked("The machine has a part that is not expected."),
     marked("Take it out, or expect it.")},
    {"not-comparable", marked("A fact of the machine is unknown and could not be compared."),
     marked("Take both inventories as root.")},
    {"UNKNOWN", marked("There is no verdict: the test has neither passed nor failed."),
     marked("Do what stands below the finding.")},
    {"DEBUG", marked("A line of the package's log."), ""},
    {"INFO", marked("Something to know: nothing is to be done about it."), ""},
    {"COMPLETE", marked("It came to its end, whatever was found."), ""},
    {"NOT_APPLICABLE", marked("The run has no result: nothing ran, or not all of it to its end."),
     marked("Look at what is ERROR or ABORTED in the report.")},
    {"OK", marked("All that was selected ran and passed."), marked("Nothing to do.")},
    {"CRITICAL", marked("A hardware failure."), marked("Look at what is FAILED in the report.")},
    {"not-possible", marked("The machine or the device has not what the test needs."), ""},
    {"needs-privilege", marked("This user may not do what the test needs."),
     marked("Run it as root.")},
    {"not-in-this-mode", marked("The diagnostic mode does not offer the test."),
     marked("Choose another one with --mode.")},
    {"not-run", marked("The run was ended before the test's turn."),
     marked("Run the test again, with more time.")},
    {"run-failure",
     marked("The run says that it failed, and none of its tests in the report does."),
     marked("Look at the log, which has each of them.")},
    {"machine-watch", marked("What the machine itself has shown while tests ran."),
     marked("Do what stands below the finding.")},
    {"coverage", marked("How much of the machine the tests have covered."), ""},
    {"seed", marked("The number that a pass drew its random values from."),
     marked("Repeat the pass with --seed.")},
    {"duration", marked("The seconds that the test itself has taken."), ""},
    {"coveredBytes", marked("The bytes of the device that the test has looked at."), ""},
    {"totalBytes", marked("The bytes that the device has."), ""},
    {"coveredCores", marked("The cores that the test has looked at."), ""},
    {"verifiedRate", marked("How much the test has verified in a second."), ""},
    {"verifyRate", marked("How much the test has verified in a second."), ""},
    {"verifiedShare", marked("The share of the time that went into verified work."), ""},
    {"verifiedTime", marked("The time that went into verified work."), ""},
    {"resultsCompared", marked("How many results the test has compared."), ""},
    {"readRate", marked("How much the test has read in a second."), ""},
    {"writeRate", marked("How much the test has written in a second."), ""},
    {"randomReads", marked("How many reads at random places the test has done in a second."), ""},
    {marked("operand making"),
     marked("The core made wrong values to compute with: nothing that it computes is sound."),
     marked("Do what stands below the finding.")},
    {"comparison", marked("The core compared two results wrongly."),
     marked("Do what stands below the finding.")},
    {"tool-trouble", marked("The kit raised an event that this program does not know."),
     marked("Check that the program and the packages are of the same version.")},
};

/// A word that says what another one says, in another format.
struct Synonym {
  const char* name;
  const char* of;
};

constexpr Synonym kSynonyms[] = {
    {"PASS", "PASSED"},
    {"FAIL", "FAILED"},
    {"failure", "FAILED"},
    {"SKIP", "SKIPPED"},
    {marked("with a warning"), "WARNING"},
    {"no-verdict", "ERROR"},
    {marked("without a verdict"), "ERROR"},
    {marked("not run"), "not-run"},
    {"skipped-for-privilege", "needs-privilege"},
    {marked("skipped for lack of a privilege"), "needs-privilege"},
    {"skipped-in-this-mode", "not-in-this-mode"},
    {marked("skipped in this mode"), "not-in-this-mode"},
    {marked("Machine watch"), "machine-watch"},
};

void addWord(const char* name, const Word& word, std::vector<Explanation>& found) {
  found.push_back({kWord, name, std::nullopt, std::nullopt, tr("word of a report"),
                   told(word.meaning), told(word.action)});
}

void addWords(const Question& question, std::vector<Explanation>& found) {
  // As a report tells it, too.
  const auto isMeantBy = [&](const char* name) {
    return question.names(name) || question.names(told(name));
  };
  for (const Word& word : kWords) {
    if (isMeantBy(word.name)) {
      addWord(word.name, word, found);
    }
    for (const Synonym& synonym : kSynonyms) {
      if (std::string_view(synonym.of) == word.name && isMeantBy(synonym.name)) {
        addWord(synonym.name, word, found);
      }
    }
  }
}

struct ExitMeaning {
  int code;
  const char* meaning;
  const char* action;
};

constexpr ExitMeaning kExits[] = {
    {ExitCode::kPassed, marked("All that was selected ran and passed."), marked("Nothing to do.")},
    {ExitCode::kHardwareFailure, marked("A hardware failure."),
     marked("Look at what is FAILED in the report.")},
    {ExitCode::kNoVerdict, marked("No verdict on all of it: trouble of the tool, or aborted."),
     marked("Look at what is ERROR or ABORTED in the report.")},
    {ExitCode::kNothingRan, marked("Nothing ran: a pattern matches nothing, or all was skipped."),
     marked("Run \"diagctl list tests\" for what can run here.")},
    {ExitCode::kUsage, marked("Wrong usage."), marked("Run \"diagctl --help\".")},
};

void addExits(const Question& question, std::vector<Explanation>& found) {
  if (!question.number) {
    return;
  }
  const int code = static_cast<int>(std::min(*question.number, 1000U));
  for (const ExitMeaning& exit : kExits) {
    if (exit.code == code) {
      found.push_back({kExit, tr("exit status {}", code), std::nullopt, std::nullopt,
                       tr("without --exit-style"), told(exit.meaning), told(exit.action)});
    }
  }
  constexpr int kSignals = 64;
  if (code > ExitCode::kSignalBase && code <= ExitCode::kSignalBase + kSignals) {
    found.push_back({kExit, tr("exit status {}", code), std::nullopt, std::nullopt,
                     tr("without --exit-style"),
                     tr("The run was ended by signal {}.", code - ExitCode::kSignalBase), ""});
  }
}

}  // namespace

std::vector<Explanation> explanationsOf(const std::string& asked,
                                        const std::vector<std::string>& directories,
                                        const std::string& language) {
  const Question question = parse(asked);
  std::vector<Explanation> found;
  if (question.isAbout(kWord)) {
    addWords(question, found);
  }
  if (question.isAbout(kController)) {
    addController(question, found);
  }
  addPackages(question, directories, language, found);
  if (question.isAbout(kWatch)) {
    addWatch(question, language, found);
  }
  if (question.isAbout(kExit)) {
    addExits(question, found);
  }
  return found;
}

}  // namespace TarvexDiags::FrontEnd
