// The kit speaks of all its codes, in every language.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "packagekit/contract/KitCodes.h"
#include "packagekit/contract/ReasonKind.h"
#include "packagekit/contract/Texts.h"
#include "tests/packagekit/contract/SourceLines.h"

namespace TarvexDiags::PackageKit::Contract {
namespace {

std::set<std::string> tokens() {
  std::set<std::string> all;
  for (const KitCode& row : kKitCodes) {
    all.emplace(row.token);
  }
  for (const KitStatus& row : kKitStatuses) {
    all.emplace(row.token);
  }
  return all;
}

class KitTexts : public ::testing::TestWithParam<const char*> {};

TEST_P(KitTexts, tell_every_token_and_what_to_do_about_it) {
  const std::string language = GetParam();
  std::set<std::string> expected;
  for (const std::string& token : tokens()) {
    expected.insert({token, toActionToken(token)});
  }
  expected.insert(kReasons.begin(), kReasons.end());
  expected.insert(kWords.begin(), kWords.end());
  std::set<std::string> found;
  const std::string head = "[" + language + "] ";
  for (const std::string& entry : entriesOf("packagekit/data/" + language + "/kit.cfg")) {
    ASSERT_EQ(entry.compare(0, head.size(), head), 0) << entry;
    const std::size_t equals = entry.find('=');
    EXPECT_GT(entry.size(), equals + 1) << entry;
    found.insert(entry.substr(head.size(), equals - head.size()));
  }
  EXPECT_EQ(found, expected);
}

INSTANTIATE_TEST_SUITE_P(Languages, KitTexts, ::testing::ValuesIn(kLanguages),
                         [](const auto& language) { return std::string(language.param); });

TEST(Reasons, are_of_the_kind_that_their_token_says) {
  EXPECT_EQ(kindOf(kNotOffered), ReasonKind::NotInThisMode);
  EXPECT_EQ(kindOf("SELF_TEST_NEEDS_PRIVILEGE"), ReasonKind::NeedsPrivilege);
  EXPECT_EQ(kindOf("NO_SELF_TEST"), ReasonKind::NotPossible);
  EXPECT_EQ(kindOf("it needs a privilege"), ReasonKind::NotPossible) << "words are of no kind";
}

TEST(Languages, are_those_that_the_kit_has_texts_in) {
  std::set<std::string> folders;
  for (const auto& entry :
       std::filesystem::directory_iterator(TestSupport::sourcePath("packagekit/data"))) {
    if (entry.is_directory()) {
      folders.insert(entry.path().filename());
    }
  }
  EXPECT_EQ(folders, std::set<std::string>(kLanguages.begin(), kLanguages.end()));
}

TEST(Languages, are_those_of_the_controller) {
  using Constants = DiagCtrl::DiagCtrlConstants;
  EXPECT_EQ(
      std::vector<std::string>(kLanguages.begin(), kLanguages.end()),
      (std::vector<std::string>{Constants::mSconpcEnglish, Constants::mSconpcGerman,
                                Constants::mSconpcFrench, Constants::mSconpcSpanish,
                                Constants::mSconpcSimplifiedChinese, Constants::mSconpcJapanese}));
}

}  // namespace
}  // namespace TarvexDiags::PackageKit::Contract
