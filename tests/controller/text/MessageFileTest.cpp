// The message file that has a text for each of the controller's codes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "DiagCtrl/CodeNames.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "System/SysUtil.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/Enumerators.h"

namespace TarvexDiags::Text {
namespace {

using DiagCtrl::DiagCtrlConstants;
using DiagCtrl::DiagCtrlEvent;
using DiagCtrl::DiagnosticController;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Codes = std::map<unsigned int, std::string>;

const std::vector<std::string> kLanguages = {DiagCtrlConstants::mSconpcEnglish,
                                             DiagCtrlConstants::mSconpcGerman,
                                             DiagCtrlConstants::mSconpcFrench,
                                             DiagCtrlConstants::mSconpcSpanish,
                                             DiagCtrlConstants::mSconpcSimplifiedChinese,
                                             DiagCtrlConstants::mSconpcJapanese};

std::string messageFile() {
  return TestSupport::sourcePath("DiagCtrl/messages.cfg");
}

std::set<std::string> allNames() {
  std::set<std::string> names;
  for (const Codes& codes : {TestSupport::resultCodes(), TestSupport::eventCodes()}) {
    for (const auto& [number, name] : codes) {
      names.insert(name);
    }
  }
  return names;
}

std::string textOf(const std::string& language, const std::string& token) {
  std::string text;
  EXPECT_EQ(System::SysUtil::ReadCfgFile(language, token, text, messageFile()),
            System::SysUtil::CFG_READ)
      << language << ": " << token;
  return text;
}

/// The tokens of each section of the message file, in the order of the file.
std::vector<std::pair<std::string, std::vector<std::string>>> sections() {
  std::vector<std::pair<std::string, std::vector<std::string>>> found;
  std::ifstream stream(messageFile());
  for (std::string line; std::getline(stream, line);) {
    if (line.starts_with('[')) {
      found.emplace_back(line.substr(1, line.size() - 2), std::vector<std::string>());
    } else if (!line.empty() && !line.starts_with('#')) {
      found.back().second.push_back(line.substr(0, line.find('=')));
    }
  }
  return found;
}

TEST(MessageFile, has_a_section_for_each_language_with_every_code_once_and_nothing_else) {
  const std::set<std::string> names = allNames();
  std::vector<std::string> languages;
  for (const auto& [language, tokens] : sections()) {
    languages.push_back(language);
    EXPECT_EQ(std::set<std::string>(tokens.begin(), tokens.end()), names) << language;
    EXPECT_EQ(tokens.size(), names.size()) << "a token stands twice in " << language;
  }
  EXPECT_EQ(languages, kLanguages);
}

TEST(MessageFile, tells_each_code_in_words_of_the_language) {
  for (const std::string& name : allNames()) {
    std::set<std::string> texts;
    for (const std::string& language : kLanguages) {
      const std::string text = textOf(language, name);
      EXPECT_GE(text.size(), 10U) << language << ": " << name;
      EXPECT_THAT(text, Not(HasSubstr("$"))) << "events of the controller have no parameters";
      texts.insert(text);
    }
    EXPECT_EQ(texts.size(), kLanguages.size()) << name << " says the same in two languages";
  }
}

TEST(MessageFile, tells_no_two_codes_alike) {
  for (const std::string& language : kLanguages) {
    std::map<std::string, std::string> nameOfText;
    for (const std::string& name : allNames()) {
      const auto [other, isNew] = nameOfText.emplace(textOf(language, name), name);
      EXPECT_TRUE(isNew) << language << ": " << name << " says what " << other->second << " says";
    }
  }
}

TEST(MessageFile, is_what_the_controller_reads_when_a_control_file_names_it) {
  TestSupport::ControllerHarness harness;
  harness.addPackage("ALPHA");
  harness.control().msgFilePath(messageFile());
  harness.start();
  for (std::string language : kLanguages) {
    std::string token = DiagCtrl::nameOf(DiagCtrlEvent::TEST_REQUEST_ABORTED);
    DiagCtrl::ParamStringVector parameters;
    char* text = nullptr;
    EXPECT_EQ(harness->getLocalizedMessage(0, language.data(), token.data(), parameters, text),
              DiagnosticController::SUCCESS);
    const std::unique_ptr<char[]> owned(text);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text, textOf(language, token));
  }
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre());
}

}  // namespace
}  // namespace TarvexDiags::Text
