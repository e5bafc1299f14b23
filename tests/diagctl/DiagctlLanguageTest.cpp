// The program's own words, in the language of the reader.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "packagekit/contract/Texts.h"
#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class DiagctlLanguage : public Diagctl {
 protected:
  DiagctlLanguage() { addMixedPackage(); }

  Outcome runIn(const std::string& locale, const std::vector<std::string>& arguments) {
    Program::Options options;
    options.environment["LC_ALL"] = locale;
    return run(arguments, options);
  }
};

/// Whether a name's value is for people, or another in each run.
bool isToldToPeople(const std::string& name) {
  const std::vector<std::string> names = {"message", "resolution",     "commandLine", "timestamp",
                                          "seconds", "measuredAt",     "duration",    "value",
                                          "text",    "sequenceNumber", "parameters",  "metadata"};
  return std::find(names.begin(), names.end(), name) != names.end();
}

void dropWhatIsToldToPeople(nlohmann::json& value) {
  if (value.is_object()) {
    for (auto entry = value.begin(); entry != value.end();) {
      entry = isToldToPeople(entry.key()) ? value.erase(entry) : std::next(entry);
    }
  }
  if (value.is_structured()) {
    for (nlohmann::json& part : value) {
      dropWhatIsToldToPeople(part);
    }
  }
}

TEST_F(DiagctlLanguage, is_another_for_each_that_there_is) {
  const std::string english = run({"--lang", "en", "run", "-q", "-t", "Bad"}).out;
  std::map<std::string, std::string> seen = {{english, "en"}};
  for (const std::string language : PackageKit::Contract::kLanguages) {
    if (language == PackageKit::Contract::kFallbackLanguage) {
      continue;
    }
    const Outcome outcome = runIn("C.UTF-8", {"run", "-q", "-t", "Bad", "--lang", language});
    EXPECT_EQ(outcome.exitCode, kHardwareFailure);
    EXPECT_THAT(outcome.out, Not(HasSubstr("Verdict:"))) << language;
    const auto [known, isNew] = seen.emplace(outcome.out, language);
    EXPECT_TRUE(isNew) << language << " is told as " << known->second;
  }
}

TEST_F(DiagctlLanguage, is_the_one_of_the_locale_though_that_is_not_installed) {
  EXPECT_THAT(runIn("de_DE.UTF-8", {"list"}).out, HasSubstr("PAKET"));
  EXPECT_THAT(runIn("xx_XX.UTF-8", {"list"}).out, HasSubstr("PACKAGE"));
  EXPECT_THAT(runIn("../../x.UTF-8", {"list"}).out, HasSubstr("PACKAGE"));
}

TEST_F(DiagctlLanguage, of_a_page_is_told_to_whoever_reads_it_aloud) {
  const std::string log = place.path("run.jsonl");
  runIn("C.UTF-8", {"run", "-q", "-t", "Good", "-o", "jsonl=" + log});
  const auto pageIn = [&](const std::string& locale, const std::string& language) {
    return runIn(locale, {"report", log, "--format", "html", "--lang", language}).out;
  };
  EXPECT_THAT(pageIn("C.UTF-8", "en"), HasSubstr("<html lang=\"en\">"));
  EXPECT_THAT(pageIn("C.UTF-8", "de"),
              AllOf(HasSubstr("<html lang=\"de\">"), HasSubstr("BESTANDEN")));
  EXPECT_THAT(pageIn("C.UTF-8", "ja"), HasSubstr("<html lang=\"ja\">"));
  // A page names its characters itself, whatever those of a terminal.
  EXPECT_THAT(pageIn("C", "ja"),
              AllOf(HasSubstr("<html lang=\"ja\">"), HasSubstr("合格"), Not(HasSubstr("PASSED"))));
  EXPECT_THAT(pageIn("C", "de"),
              AllOf(HasSubstr("<html lang=\"de\">"), HasSubstr("BESTANDEN"), HasSubstr("Geräte")));
}

TEST_F(DiagctlLanguage, is_english_where_the_characters_cannot_be_shown) {
  const std::vector<std::string> words = {"run", "-q", "-t", "Bad", "--lang", "ja"};
  for (const std::string locale : {"C", "POSIX", "ja_JP.eucJP", "de_DE"}) {
    const std::string told = runIn(locale, words).out;
    EXPECT_THAT(told, HasSubstr("Verdict: FAILED")) << locale;
    EXPECT_TRUE(std::all_of(told.begin(), told.end(), [](char sign) { return sign > 0; })) << told;
  }
  EXPECT_THAT(runIn("", words).out, Not(HasSubstr("Verdict:")));
}

TEST_F(DiagctlLanguage, is_that_of_errors_on_the_command_line_too) {
  const std::string english = runIn("C.UTF-8", {"--lang", "en", "runn"}).err;
  EXPECT_THAT(english, HasSubstr("is no verb"));
  for (const std::vector<std::string>& words : {std::vector<std::string>{"--lang", "de", "runn"},
                                                {"--lang=de", "runn"},
                                                {"run", "--pases", "1", "--lang", "de"}}) {
    const Outcome outcome = runIn("C.UTF-8", words);
    EXPECT_EQ(outcome.exitCode, kUsage);
    EXPECT_THAT(outcome.err, AllOf(Not(IsEmpty()), Not(HasSubstr("there is no option")),
                                   Not(HasSubstr("is no verb"))));
  }
}

TEST_F(DiagctlLanguage, of_the_help_is_english) {
  EXPECT_EQ(runIn("ja_JP.UTF-8", {"help", "run"}).out, runIn("C.UTF-8", {"help", "run"}).out);
}

TEST_F(DiagctlLanguage, of_a_log_is_english_but_for_its_messages) {
  const auto logIn = [&](const std::string& language) {
    std::multiset<std::string> facts;  // tests of several devices go side by side
    const std::vector<std::string> words = {
        "run",    "-q",     "--seed",           "7", "--format", "jsonl",
        "--lang", language, "--expect-devices", "9"};
    for (nlohmann::json line : parseLines(run(words).out)) {
      dropWhatIsToldToPeople(line);
      facts.insert(line.dump());
    }
    return facts;
  };
  const auto german = logIn("de");
  const auto english = logIn("en");
  std::vector<std::string> others;
  std::set_symmetric_difference(german.begin(), german.end(), english.begin(), english.end(),
                                std::back_inserter(others));
  EXPECT_THAT(others, IsEmpty());
}

TEST_F(DiagctlLanguage, of_a_report_is_the_readers_and_not_the_logs) {
  const std::string log = place.path("log.jsonl");
  ASSERT_EQ(run({"run", "-q", "-t", "Good", "--lang", "en", "-o", "jsonl=" + log}).exitCode,
            kPassed);
  EXPECT_THAT(runIn("C.UTF-8", {"report", log, "--lang", "de"}).out,
              Not(AnyOf(HasSubstr("Verdict"), HasSubstr("PASSED"))));
}

TEST_F(DiagctlLanguage, of_what_monitors_and_schedulers_keep_is_english) {
  const std::string cache = place.path("cache");
  const std::vector<std::string> monitored = {"run", "-q", "-t", "Good", "--format", "summary"};
  EXPECT_EQ(runIn("de_DE.UTF-8", monitored).out, runIn("C.UTF-8", monitored).out);
  for (const std::string style : {"plain", "slurm", "nagios", "nhc"}) {
    const Outcome outcome = runIn(
        "de_DE.UTF-8", {"health", "-t", "Bad", "-d", "Left", "--style", style, "--state", cache});
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr("is stuck"), HasSubstr("1 failed"), Not(HasSubstr("klemmt"))))
        << style << outcome.err;
  }
  EXPECT_THAT(runIn("de_DE.UTF-8",
                    {"health", "-t", "Bad", "-d", "Left", "--cached", "1h", "--state", cache})
                  .out,
              HasSubstr(" ago"));
}

TEST_F(DiagctlLanguage, counts_one_as_one_and_more_as_more) {
  const auto summaryOf = [&](const std::string& language, const std::string& test,
                             const std::string& device) {
    return runIn("C.UTF-8", {"run", "-q", "-t", test, "-d", device, "--lang", language}).out;
  };
  EXPECT_THAT(summaryOf("fr", "Good", "Left"), HasSubstr("1 réussi\n"));
  EXPECT_THAT(summaryOf("fr", "Good", "*"), HasSubstr("2 réussis\n"));
  EXPECT_THAT(summaryOf("es", "Picky", "Left"), HasSubstr("1 omitida\n"));
}

/// With a package whose names have another text in German.
class NamesInALanguage : public DiagctlLanguage {
 protected:
  NamesInALanguage() {
    place.addPackage("WIRE",
                     {{.name = "Pull", .more = "NameToken=PULL\nDescriptionToken=PULL_TOLD"},
                      {.name = "Twist", .behaviour = "fail", .more = "NameToken=TWIST"}},
                     {{"Red", "bus/red"}});
    place.replaceIn(place.packageFile("WIRE"), "Mnemonic=", "NameToken=WIRE\nMnemonic=");
    place.replaceIn(place.path("packages/de/WIRE.cfg"), "[de]\n",
                    "[de]\nWIRE=Die Drähte\nPULL=Zugprobe\nPULL_TOLD=Zieht daran\n"
                    "TWIST=Drehprobe\n");
  }

  std::string inGerman(std::vector<std::string> words) {
    words.insert(words.end(), {"--lang", "de"});
    return runIn("C.UTF-8", words).out;
  }
};

TEST_F(NamesInALanguage, are_told_with_those_to_ask_for) {
  EXPECT_THAT(inGerman({"list"}), HasSubstr("Die Drähte (Package WIRE)"));
  EXPECT_THAT(inGerman({"list", "tests"}), HasSubstr("Zugprobe (Pull)"));
  EXPECT_THAT(inGerman({"show", "Pull"}),
              AllOf(HasSubstr("Die Drähte: Zugprobe (Pull)"), HasSubstr("Zieht daran")));
  EXPECT_THAT(run({"list", "tests", "--lang", "en"}).out, Not(HasSubstr("Zugprobe")));
  EXPECT_THAT(run({"list", "tests", "--lang", "fr"}).out, Not(HasSubstr("Zugprobe")));
}

TEST_F(NamesInALanguage, are_those_of_runs_estimates_and_plans) {
  const std::vector<std::string> selected = {"-p", "WIRE", "-t", "Pull"};
  for (std::vector<std::string> words : {std::vector<std::string>{"run", "-q"},
                                         {"run", "--dry-run"},
                                         {"estimate"},
                                         {"run", "-q", "--format", "html"}}) {
    words.insert(words.end(), selected.begin(), selected.end());
    EXPECT_THAT(inGerman(words),
                AllOf(HasSubstr("Die Drähte: Zugprobe"), Not(HasSubstr("Pull on"))))
        << words.back();
  }
}

TEST_F(NamesInALanguage, are_english_to_programs_and_in_patterns) {
  for (const std::string format : {"tap", "junit"}) {
    EXPECT_THAT(inGerman({"run", "-q", "-t", "Pull", "--format", format}),
                AllOf(HasSubstr("Pull"), Not(HasSubstr("Zugprobe"))));
  }
  EXPECT_THAT(inGerman({"list", "tests", "--format", "json"}), Not(HasSubstr("Zugprobe")));
  EXPECT_EQ(runIn("C.UTF-8", {"run", "-q", "-t", "Zugprobe", "--lang", "de"}).exitCode,
            kNothingRan);
}

TEST_F(NamesInALanguage, are_told_from_a_log_to_those_who_read_the_language) {
  const std::string log = place.path("log.jsonl");
  inGerman({"run", "-q", "-t", "Pull", "-o", "jsonl=" + log});
  EXPECT_THAT(contentsOf(log), HasSubstr("\"Package WIRE: Pull on Red\""));
  EXPECT_THAT(inGerman({"report", log}), HasSubstr("Die Drähte: Zugprobe"));
  EXPECT_THAT(inGerman({"report", log, "--format", "html"}), HasSubstr("Die Drähte: Zugprobe"));
  EXPECT_THAT(runIn("C.UTF-8", {"report", log, "--lang", "en"}).out,
              AllOf(HasSubstr("Package WIRE: Pull on Red"), Not(HasSubstr("Zugprobe"))));
}

TEST_F(NamesInALanguage, stand_in_one_column_behind_any_verdict) {
  const std::string told = inGerman({"run", "-q", "-p", "WIRE"});
  std::vector<std::size_t> columns;
  for (const std::string& line : linesOf(told)) {
    if (const std::size_t column = line.find("Die Drähte: "); line.ends_with(" s")) {
      columns.push_back(column);
    }
  }
  ASSERT_EQ(columns.size(), 2U) << told;
  EXPECT_EQ(columns.front(), columns.back()) << told;
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
