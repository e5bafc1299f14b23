// What holds for every package that comes with the project. Each test walks the folder that they
// are built into, so a new package is in it.

#include <dlfcn.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "packagekit/PackageTexts.h"
#include "packagekit/Settings.h"
#include "packagekit/contract/ReaderKeys.h"
#include "packagekit/contract/SettingRule.h"
#include "packagekit/contract/Texts.h"
#include "tests/packages/TestsPage.h"
#include "tests/support/Places.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::PackageKit {
namespace {

namespace fs = std::filesystem;
using ::testing::IsEmpty;

std::vector<std::string> bundledPackages() {
  std::vector<std::string> names = TestSupport::packagesIn(TARVEX_PACKAGE_DIR);
  EXPECT_FALSE(names.empty());
  return names;
}

std::string fileOf(const std::string& name) {
  return TARVEX_PACKAGE_DIR "/lib" + name + ".so";
}

/// The numbers of the tests that the shared object has.
std::set<int> testsOf(const std::string& name) {
  std::set<int> numbers;
  for (const SettingRule& rule : TestSupport::settingRules(TARVEX_PACKAGE_DIR, name)) {
    numbers.insert(rule.testId);
  }
  numbers.erase(0);  // what the package reads as a whole
  return numbers;
}

/// What the expression finds in the package's sources whose names end so: its first group, sorted.
std::set<std::string> foundInSources(const std::string& name, const std::string& ending,
                                     const std::regex& expression) {
  std::set<std::string> found;
  for (const auto& entry : fs::directory_iterator(TestSupport::sourcePath("packages/" + name))) {
    if (!entry.path().string().ends_with(ending)) {
      continue;
    }
    std::ifstream file(entry.path());
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end;
         ++match) {
      found.insert((*match)[1]);
    }
  }
  return found;
}

/// Codes of the enumeration of events in the package's headers.
std::set<long> codesOf(const std::string& name) {
  static const std::regex kEnumeration("^enum (class )?[A-Za-z]*Event : ");
  static const std::regex kEnumerator("^  [A-Za-z]+ = ([0-9]+)\\b");
  std::set<long> codes;
  for (const auto& entry : fs::directory_iterator(TestSupport::sourcePath("packages/" + name))) {
    if (entry.path().extension() != ".h") {
      continue;
    }
    std::ifstream header(entry.path());
    bool isInside = false;
    for (std::string line; std::getline(header, line);) {
      std::smatch match;
      if (line.starts_with("enum ")) {
        isInside = std::regex_search(line, kEnumeration);
      } else if (isInside && std::regex_search(line, match, kEnumerator)) {
        codes.insert(std::stol(match[1]));
      }
      isInside = isInside && !line.starts_with("};");
    }
  }
  return codes;
}

TEST(BundledPackages, have_a_token_for_each_event_and_the_severity_of_its_number) {
  for (const std::string& name : bundledPackages()) {
    const std::set<long> codes = codesOf(name);
    EXPECT_FALSE(codes.empty()) << name << ": no header has an enumeration of its events";
    const Settings settings(TestSupport::sourcePath("packages/" + name + "/" + name + ".cfg"));
    for (long code = 1; code < 300; ++code) {
      const std::string own = code < 100 ? "Information" : code < 200 ? "Warning" : "Error";
      for (const std::string section : {"Information", "Warning", "Error"}) {
        const bool stands = settings.read(section, std::to_string(code)).has_value();
        EXPECT_TRUE(!stands || (codes.contains(code) && section == own))
            << name << ": [" << section << "] " << code << " is no event of the package's header";
        EXPECT_TRUE(stands || section != own || !codes.contains(code))
            << name << ": [" << section << "] has no token for " << code;
      }
    }
  }
}

TEST(BundledPackages, have_texts_that_are_complete_in_every_language) {
  for (const std::string& name : bundledPackages()) {
    EXPECT_THAT(checkPackageTexts(TARVEX_PACKAGE_DIR, name), IsEmpty());
  }
}

/// The texts of a package in a language, by their keys.
std::map<std::string, std::string> textsOf(const std::string& name, const std::string& language) {
  std::ifstream file(TARVEX_PACKAGE_DIR "/" + language + "/" + name + ".cfg");
  std::map<std::string, std::string> texts;
  for (std::string line; std::getline(file, line);) {
    const std::size_t equals = line.find('=');
    if (equals != std::string::npos && line[0] != '#') {
      texts[line.substr(0, equals)] = line.substr(equals + 1);
    }
  }
  return texts;
}

std::set<std::string> keysOf(const std::map<std::string, std::string>& texts) {
  std::set<std::string> keys;
  for (const auto& [key, text] : texts) {
    keys.insert(key);
  }
  return keys;
}

// Words that stand in for a parameter are named by no configuration file.
TEST(BundledPackages, have_the_same_words_in_every_language) {
  for (const std::string& name : bundledPackages()) {
    const std::set<std::string> keys = keysOf(textsOf(name, "en"));
    EXPECT_FALSE(keys.empty());
    for (const char* const language : Contract::kLanguages) {
      EXPECT_EQ(keysOf(textsOf(name, language)), keys) << name << ", " << language;
    }
  }
}

// The package that misbehaves speaks to nobody but tests.
std::vector<std::string> packagesForPeople() {
  std::vector<std::string> names = bundledPackages();
  std::erase(names, "misbehaving");
  return names;
}

TEST(BundledPackages, tell_every_reason_in_every_language) {
  static const std::regex kReason("Reason k[A-Za-z]+\\{\"([^\"]*)\"\\}");
  for (const std::string& name : packagesForPeople()) {
    const std::set<std::string> reasons = foundInSources(name, "Reasons.h", kReason);
    EXPECT_FALSE(reasons.empty()) << name << " has no header of its reasons";
    for (const char* const language : Contract::kLanguages) {
      const auto texts = textsOf(name, language);
      for (const std::string& reason : reasons) {
        const auto text = texts.find(reason);
        EXPECT_TRUE(text != texts.end() && !text->second.empty())
            << name << ", " << language << ": " << reason;
      }
    }
  }
}

TEST(BundledPackages, give_no_reason_but_those_of_their_header) {
  static const std::regex kReason(
      "\\b((?:Support::no|unsupported|NotSupported|NotAta|notSupported|TakenAway|DeviceVanished)\\("
      "\\s*\"[^\"]*\"|"
      "Reason\\{\"[^\"]*\")");
  for (const std::string& name : packagesForPeople()) {
    EXPECT_THAT(foundInSources(name, ".cpp", kReason), IsEmpty()) << name;
  }
}

// A token that is missing from the texts reaches the reader as it stands.
TEST(BundledPackages, have_a_text_for_each_word_that_stands_in_for_a_parameter) {
  static const std::regex kWord("\"([A-Z]+(?:_[A-Z]+)+)\"");
  static const std::set<std::string> kNamesOfTheSystem = {
      "ETHTOOL_GDRVINFO", "ETHTOOL_GLINKSETTINGS", "ETHTOOL_GSTRINGS", "ETHTOOL_TEST"};
  for (const std::string& name : packagesForPeople()) {
    const auto texts = textsOf(name, "en");
    for (const std::string& word : foundInSources(name, ".cpp", kWord)) {
      EXPECT_TRUE(texts.contains(word) || kNamesOfTheSystem.contains(word)) << name << ": " << word;
    }
  }
}

TEST(BundledPackages, have_a_section_for_each_test_and_a_test_for_each_section) {
  for (const std::string& name : bundledPackages()) {
    const Settings settings(TARVEX_PACKAGE_DIR "/" + name + ".cfg");
    const long count =
        Settings::toInteger(settings.package("NumberOfTests").value_or("")).value_or(0);
    std::set<int> sections;
    for (int number = 1; number <= count; ++number) {
      sections.insert(number);
    }
    EXPECT_EQ(testsOf(name), sections) << name << ": tests of the object, tests of the file";
  }
}

/// The keys of one section of a package's file.
std::set<std::string> keysIn(const std::string& name, const std::string& section) {
  std::ifstream file(TestSupport::sourcePath("packages/" + name + "/" + name + ".cfg"));
  std::set<std::string> keys;
  bool isInside = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("[")) {
      isInside = line == "[" + section + "]";
    } else if (const std::size_t equals = line.find('=');
               isInside && equals != std::string::npos && line[0] != '#') {
      keys.insert(line.substr(0, equals));
    }
  }
  return keys;
}

TEST(BundledPackages, tell_what_each_setting_means_and_the_unit_of_each_number) {
  for (const std::string& name : bundledPackages()) {
    std::set<std::string> read;
    std::set<std::string> numbers;
    for (const SettingRule& rule : TestSupport::ownSettingRules(TARVEX_PACKAGE_DIR, name)) {
      read.insert(rule.key);
      if (rule.kind == SettingKind::Integer || rule.kind == SettingKind::Count ||
          rule.kind == SettingKind::Number) {
        numbers.insert(rule.key);
      }
    }
    EXPECT_FALSE(read.empty()) << name;
    EXPECT_EQ(keysIn(name, Contract::kSettingMeaning), read) << name << ": told of, read";
    EXPECT_EQ(keysIn(name, Contract::kSettingUnit), numbers) << name << ": told of, numbers";
  }
}

TEST(BundledPackages, tell_what_each_test_needs_and_writes) {
  for (const std::string& name : bundledPackages()) {
    const Settings settings(TARVEX_PACKAGE_DIR "/" + name + ".cfg");
    for (const int test : testsOf(name)) {
      for (const char* const key : {Contract::kTestNeeds, Contract::kTestWrites}) {
        EXPECT_NE(settings.test(test, key).value_or(""), "") << name << ": " << test << ' ' << key;
      }
    }
  }
}

TEST(BundledPackages, stand_on_the_page_of_tests_as_they_are) {
  std::ostringstream page;
  page << std::ifstream(TestSupport::sourcePath("docs/tests.md")).rdbuf();
  EXPECT_EQ(page.str(), TestSupport::testsPage(TARVEX_PACKAGE_DIR))
      << "make docs/tests.md anew: cmake --build --preset dev --target tests_page";
}

TEST(BundledPackages, are_gone_after_their_release) {
  for (const std::string& name : bundledPackages()) {
    void* const handle = dlopen(fileOf(name).c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    ASSERT_EQ(dlclose(handle), 0);
    EXPECT_EQ(dlopen(fileOf(name).c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << name;
  }
}

TEST(BundledPackages, have_tests_of_their_own) {
  for (const std::string& name : bundledPackages()) {
    const std::string list = "tests/packages/" + name + "/CMakeLists.txt";
    EXPECT_TRUE(fs::exists(TestSupport::sourcePath(list))) << list << " is missing";
  }
}

}  // namespace
}  // namespace TarvexDiags::PackageKit
