// What the manual and the completion of two shells offer, held against the program's own parser.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "packagekit/contract/Texts.h"
#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/Reports.h"
#include "tests/support/Places.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::HasSubstr;
namespace fs = std::filesystem;

/// The options that the help of a verb names.
std::set<std::string> optionsOf(const std::vector<std::string>& helpArguments) {
  const std::string help = diagctl(helpArguments).out;
  static const std::regex kOption("(^|[ ,])(--?[a-z][a-z-]*)");
  std::set<std::string> options;
  for (const std::string& line : linesOf(help)) {
    if (line.rfind("  -", 0) == 0) {
      const std::string names = line.substr(0, line.find("  ", 2));
      for (std::sregex_iterator match(names.begin(), names.end(), kOption), end; match != end;
           ++match) {
        options.insert((*match)[2]);
      }
    }
  }
  return options;
}

const std::vector<std::string>& verbs() {
  static const std::vector<std::string> kNames = {
      "list",  "show",    "inventory", "run",   "watch",    "health", "estimate",
      "check", "explain", "report",    "merge", "selftest", "help",   "version"};
  return kNames;
}

/// Those of two words.
const std::vector<std::string>& partsOfInventory() {
  static const std::vector<std::string> kNames = {"check", "golden", "diff"};
  return kNames;
}

std::set<std::string> wordsOf(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

/// What bash offers behind a beginning of a command line, whose last word may be empty.
std::set<std::string> completions(const std::string& words, const std::string& file) {
  const std::string command =
      "bash -c 'source " + TestSupport::sourcePath("completion/diagctl.bash") + "; COMP_WORDS=(" +
      words + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _diagctl; echo \"${COMPREPLY[@]}\"' > " +
      file;
  EXPECT_EQ(std::system(command.c_str()), 0);  // NOLINT(cert-env33-c): bash is what is tested
  return wordsOf(contentsOf(file));
}

TEST_F(Diagctl, bash_completes_every_verb_and_option) {
  const std::string file = place.path("words");
  EXPECT_EQ(completions("diagctl \"\"", file),
            std::set<std::string>(verbs().begin(), verbs().end()));
  for (const std::string& verb : verbs()) {
    std::set<std::string> expected = optionsOf({verb, "--help"});
    expected.insert({"-c", "--config", "--lang", "--allow-insecure"});
    EXPECT_EQ(completions("diagctl " + verb + " -", file), expected) << verb;
  }
  EXPECT_EQ(completions("diagctl inventory \"\"", file),
            std::set<std::string>(partsOfInventory().begin(), partsOfInventory().end()));
  for (const std::string& part : partsOfInventory()) {
    std::set<std::string> expected = optionsOf({"inventory", part, "--help"});
    expected.insert({"-c", "--config", "--lang", "--allow-insecure"});
    EXPECT_EQ(completions("diagctl inventory " + part + " -", file), expected) << part;
  }
  EXPECT_EQ(completions("diagctl -", file), optionsOf({"--help"}));
  EXPECT_EQ(completions("diagctl run --profile q", file), std::set<std::string>{"quick"});
}

/// What zsh offers behind each of the beginnings of a command line.
std::vector<std::set<std::string>> completionsOfZsh(const std::vector<std::string>& beginnings,
                                                    const std::string& file) {
  std::string command = "zsh -f " + TestSupport::sourcePath("tests/diagctl/complete.zsh") + " " +
                        TestSupport::sourcePath("completion") + " " + file;
  for (const std::string& beginning : beginnings) {
    command += " '" + beginning + "'";
  }
  EXPECT_EQ(std::system(command.c_str()), 0);  // NOLINT(cert-env33-c): zsh is what is tested
  std::vector<std::set<std::string>> offers;
  const std::string mark = "<match>";
  for (const std::string& line : linesOf(contentsOf(file))) {
    if (line == "<begin>") {
      offers.emplace_back();
    } else if (line.rfind(mark, 0) == 0 && !offers.empty()) {
      offers.back().insert(line.substr(mark.size()));
    }
  }
  return offers;
}

TEST_F(Diagctl, zsh_completes_every_verb_and_option) {
  std::vector<std::string> beginnings = {"diagctl ", "diagctl -", "diagctl list ",
                                         "diagctl run --profile q"};
  std::vector<std::set<std::string>> expected = {
      std::set<std::string>(verbs().begin(), verbs().end()),
      optionsOf({"--help"}),
      {"packages", "devices", "tests"},
      {"quick"}};
  for (const std::string& verb : verbs()) {
    beginnings.push_back("diagctl " + verb + " -");
    expected.push_back(optionsOf({verb, "--help"}));
    expected.back().insert({"-c", "--config", "--lang", "--allow-insecure"});
  }
  beginnings.emplace_back("diagctl inventory ");
  expected.emplace_back(partsOfInventory().begin(), partsOfInventory().end());
  for (const std::string& part : partsOfInventory()) {
    beginnings.push_back("diagctl inventory " + part + " -");
    expected.push_back(optionsOf({"inventory", part, "--help"}));
    expected.back().insert({"-c", "--config", "--lang", "--allow-insecure"});
  }
  const auto offers = completionsOfZsh(beginnings, place.path("words"));
  ASSERT_EQ(offers.size(), expected.size());
  for (std::size_t i = 0; i < offers.size(); ++i) {
    EXPECT_EQ(offers[i], expected[i]) << beginnings[i];
  }
}

/// The program in the search path, with packages of the test's own.
class CompletedNames : public Diagctl {
 protected:
  CompletedNames() {
    addMixedPackage();
    fs::create_directories(place.path("config/tarvexdiags"));
    fs::copy_file(place.controlFile(), place.path("config/tarvexdiags/control.cfg"));
    setenv("XDG_CONFIG_HOME", place.path("config").c_str(), 1);
    setenv("PATH", (fs::path(TARVEX_DIAGCTL).parent_path().string() + ":" + m_path).c_str(), 1);
  }
  ~CompletedNames() override {
    setenv("PATH", m_path.c_str(), 1);
    unsetenv("XDG_CONFIG_HOME");
  }

 private:
  const std::string m_path = std::getenv("PATH");
};

TEST_F(CompletedNames, are_those_of_packages_devices_and_tests_in_bash) {
  if (!isBuildTrusted()) {
    GTEST_SKIP() << "root loads nothing from here without being told so";
  }
  const std::string file = place.path("words");
  using Words = std::set<std::string>;
  EXPECT_EQ(completions("diagctl run -p \"\"", file), Words{"MIX"});
  EXPECT_EQ(completions("diagctl run -d l", file), Words{"Left"});
  EXPECT_EQ(completions("diagctl estimate --exclude-test S", file), Words{"Silent"});
  EXPECT_EQ(completions("diagctl show B", file), Words{"Bad"});
  EXPECT_EQ(completions("diagctl run M", file), Words{"MIX"});
  EXPECT_EQ(completions("diagctl explain load_l", file), Words{"LOAD_LIBRARY_FAILED"});
}

TEST_F(CompletedNames, are_those_of_packages_devices_and_tests_in_zsh) {
  if (!isBuildTrusted()) {
    GTEST_SKIP() << "root loads nothing from here without being told so";
  }
  const auto offers =
      completionsOfZsh({"diagctl run -p ", "diagctl run -d L", "diagctl estimate --exclude-test S",
                        "diagctl show B", "diagctl explain load_l"},
                       place.path("words"));
  using Words = std::set<std::string>;
  EXPECT_EQ(offers,
            (std::vector<Words>{{"MIX"}, {"Left"}, {"Silent"}, {"Bad"}, {"LOAD_LIBRARY_FAILED"}}));
}

TEST_F(CompletedNames, are_those_of_plans_in_both_shells) {
  fs::create_directories(place.path("config/tarvexdiags/plans"));
  place.write(place.path("config/tarvexdiags/plans/night shift.cfg"), "");
  place.write(place.path("config/tarvexdiags/plans/quay.cfg"), "");
  using Words = std::set<std::string>;
  EXPECT_EQ(completions("diagctl run --profile q", place.path("words")), (Words{"quick", "quay"}));
  EXPECT_EQ(completions("diagctl estimate --profile n", place.path("words")),
            (Words{"night\\", "shift"}))
      << "one name, fit to be typed";
  const auto offers = completionsOfZsh({"diagctl run --profile q"}, place.path("words"));
  EXPECT_EQ(offers, (std::vector<Words>{{"quick", "quay"}}));
}

TEST_F(CompletedNames, are_those_of_settings_in_both_shells) {
  if (!isBuildTrusted()) {
    GTEST_SKIP() << "root loads nothing from here without being told so";
  }
  setenv("XDG_CONFIG_HOME", place.path("none").c_str(), 1);  // so that the bundled packages count
  using Words = std::set<std::string>;
  const Words expected{"Memory.MarginMegabytes=", "Memory.MarginPercent="};
  EXPECT_EQ(completions("diagctl run --set memory.mar", place.path("words")), expected);
  const auto offers = completionsOfZsh({"diagctl run --set Memory.Mar"}, place.path("words"));
  ASSERT_EQ(offers.size(), 1U);
  EXPECT_EQ(offers[0], expected);
}

TEST_F(Diagctl, both_shells_complete_values_behind_an_equals_sign_and_formats_of_outputs) {
  const std::string file = place.path("words");
  using Words = std::set<std::string>;
  EXPECT_EQ(completions("diagctl run --format = j", file), (Words{"jsonl", "junit", "json"}));
  EXPECT_EQ(completions("diagctl list --format =", file), (Words{"text", "json"}));
  EXPECT_EQ(completions("diagctl run -o j", file), (Words{"jsonl=", "junit="}));
  EXPECT_EQ(completions("diagctl run --fail-on-skip = p", file), Words{"privilege"});
  const auto offers =
      completionsOfZsh({"diagctl run --format=j", "diagctl list --format=", "diagctl run -o j",
                        "diagctl run --fail-on-skip=p"},
                       file);
  EXPECT_EQ(offers,
            (std::vector<Words>{
                {"jsonl", "junit", "json"}, {"text", "json"}, {"jsonl", "junit"}, {"privilege"}}));
}

TEST_F(Diagctl, the_manual_names_every_verb_and_option) {
  const std::string manual = contentsOf(TestSupport::sourcePath("man/diagctl.1"));
  std::set<std::string> options = optionsOf({"--help"});
  for (const std::string& verb : verbs()) {
    options.merge(optionsOf({verb, "--help"}));
    EXPECT_THAT(manual, ::testing::ContainsRegex("\n\\.(B|BI|BR) " + verb));
  }
  for (const std::string& part : partsOfInventory()) {
    options.merge(optionsOf({"inventory", part, "--help"}));
    EXPECT_THAT(manual, HasSubstr("\n.BI \"inventory " + part));
  }
  EXPECT_GT(options.size(), 30U);
  for (const std::string& option : options) {
    std::string written;  // a hyphen of an option is "\\-" in a manual
    for (const char character : option) {
      written += character == '-' ? "\\-" : std::string(1, character);
    }
    EXPECT_THAT(manual, HasSubstr(written)) << option;
  }
}

/// The help of a verb without its line breaks.
std::string helpInOneLine(const std::vector<std::string>& arguments) {
  std::istringstream words(diagctl(arguments).out);
  std::string line;
  for (std::string word; words >> word;) {
    line += word + " ";
  }
  return line;
}

/// The values behind an option in a help: "--format FORMAT Format on it (text, tap; default: tap)".
std::set<std::string> valuesOf(const std::string& option,
                               const std::vector<std::string>& helpArguments = {"run", "--help"}) {
  const std::regex brackets(option + " [A-Z]+ [^()]*\\(([^);]*)");
  std::smatch match;
  const std::string help = helpInOneLine(helpArguments);
  if (!std::regex_search(help, match, brackets)) {
    return {};
  }
  std::string values = match[1];
  std::replace(values.begin(), values.end(), ',', ' ');
  return wordsOf(values);
}

/// What the manual has behind an option: ".BR \-\-format " " text | tap".
std::set<std::string> valuesInManual(const std::string& option, const std::string& manual) {
  std::string name;
  for (const char character : option) {
    name += character == '-' ? "\\-" : std::string(1, character);
  }
  const std::string head = "\n.BR " + name + " \" \" ";
  const std::size_t begin = manual.find(head);
  if (begin == std::string::npos) {
    return {};
  }
  const std::size_t values = begin + head.size();
  std::set<std::string> words = wordsOf(manual.substr(values, manual.find('\n', values) - values));
  words.erase("|");
  return words;
}

const std::vector<std::string>& optionsWithValues() {
  static const std::vector<std::string> kOptions = {"--format", "--profile", "--mode",
                                                    "--exit-style"};
  return kOptions;
}

TEST_F(Diagctl, both_shells_complete_the_values_that_the_parser_takes) {
  std::vector<std::string> beginnings;
  for (const std::string& option : optionsWithValues()) {
    const std::set<std::string> values = valuesOf(option);
    EXPECT_GE(values.size(), 3U) << option;
    EXPECT_EQ(completions("diagctl run " + option + " \"\"", place.path("words")), values)
        << option;
    beginnings.push_back("diagctl run " + option + " ");
  }
  const auto offers = completionsOfZsh(beginnings, place.path("words"));
  ASSERT_EQ(offers.size(), beginnings.size());
  for (std::size_t i = 0; i < offers.size(); ++i) {
    EXPECT_EQ(offers[i], valuesOf(optionsWithValues()[i])) << beginnings[i];
  }
}

TEST_F(Diagctl, the_manual_names_the_values_that_the_parser_takes) {
  const std::string manual = contentsOf(TestSupport::sourcePath("man/diagctl.1"));
  for (const std::string& option : optionsWithValues()) {
    EXPECT_EQ(valuesInManual(option, manual), valuesOf(option)) << option;
  }
}

/// The languages that a text lists behind "Language of texts: ", by commas and "or".
std::set<std::string> languagesIn(const std::string& text) {
  const std::string head = "Language of texts: ";
  const std::size_t begin = text.find(head);
  if (begin == std::string::npos) {
    return {};
  }
  const std::size_t list = begin + head.size();
  std::string words = text.substr(list, text.find_first_of(".\n", list) - list);
  std::replace(words.begin(), words.end(), ',', ' ');
  std::set<std::string> languages = wordsOf(words);
  languages.erase("or");
  return languages;
}

TEST_F(Diagctl, help_manual_and_shells_name_the_languages_that_there_are) {
  using PackageKit::Contract::kLanguages;
  const std::set<std::string> languages(kLanguages.begin(), kLanguages.end());
  EXPECT_EQ(valuesOf("--lang", {"--help"}), languages);
  EXPECT_EQ(languagesIn(contentsOf(TestSupport::sourcePath("man/diagctl.1"))), languages);
  EXPECT_EQ(completions("diagctl run --lang \"\"", place.path("words")), languages);
  const auto offers = completionsOfZsh({"diagctl run --lang "}, place.path("words"));
  ASSERT_EQ(offers.size(), 1U);
  EXPECT_EQ(offers[0], languages);
}

TEST_F(Diagctl, the_manual_has_a_paragraph_for_each_format) {
  const std::string manual = contentsOf(TestSupport::sourcePath("man/diagctl.1"));
  const std::size_t begin = manual.find("\n.SH FORMATS");
  const std::string section = manual.substr(begin, manual.find("\n.SH ", begin + 1) - begin);
  const std::regex head("\n\\.TP\n\\.B ([a-z]+)");
  std::set<std::string> formats;
  for (std::sregex_iterator match(section.begin(), section.end(), head), end; match != end;
       ++match) {
    formats.insert((*match)[1]);
  }
  EXPECT_EQ(formats, valuesOf("--format"));
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
