// Texts of packages that are told from memory, filled in as the controller does it.

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "diagctl/session/TextArchive.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::FrontEnd {
namespace {

using Diag::DiagnosticEvent;

TEST(FilledInText, follows_the_rules_of_the_controller) {
  const std::vector<std::pair<std::string, std::string>> expectations = {
      {"Test $1$ failed on $2$", "Test A failed on B"},
      {"$2$ before $1$", "B before A"},
      {"100$$ done", "100$ done"},
      {"$x$ and $y$", "A and B"},
      {"$2$ then $y$", "B then B"},
      {"$0$", "A"},
      {"$-4$", "A"},
      {"$9$", "B"},
      {"abc$def", "abcdef"},
      {"abc$", "abc"},
      {"no variables", "no variables"},
      {"", ""}};
  for (const auto& [text, filled] : expectations) {
    EXPECT_EQ(fillIn(text, {"A", "B"}), filled) << text;
  }
  EXPECT_EQ(fillIn("$1$ costs", {"5$ or $2$"}), "5$ or $2$ costs");
  EXPECT_EQ(fillIn("nobody: $1$.", {}), "nobody: .");
}

TEST(FilledInText, ends_before_a_sentence_that_has_nothing_to_tell) {
  const std::string text = "It crashed. Last output: $2$";
  EXPECT_EQ(withoutEmptyEnd(text, {"A", ""}), "It crashed.");
  EXPECT_EQ(withoutEmptyEnd(text, {"A", "B"}), text);
  EXPECT_EQ(withoutEmptyEnd(text, {"A"}), text);
  EXPECT_EQ(withoutEmptyEnd("崩溃。最后的输出：$1$", {""}), "崩溃。");
  EXPECT_EQ(withoutEmptyEnd("Only $1$", {""}), "Only $1$");
  EXPECT_EQ(withoutEmptyEnd("$", {""}), "$");
  EXPECT_EQ(withoutEmptyEnd("A. $$", {""}), "A. $$");
}

class KeptTexts : public ::testing::Test {
 protected:
  KeptTexts() {
    m_place.makeDirectory("en");
    m_place.makeDirectory("de");
    m_place.write("disk.cfg",
                  "[Error]\n7=STUCK\n8=\n[Warning]\n7=WEAK\n[Package]\nNameToken=FOOT\n"
                  "[TestID2]\nNameToken=HAND\nDescriptionToken=FOOT\n");
    m_place.write("en/disk.cfg", "[en]\nSTUCK=$1$ is stuck.\nARM=The arm\n");
    m_place.write("de/disk.cfg",
                  "[de]\nSTUCK=$1$ klemmt.\nFOOT=Der Fuß\nthe long, thin arm=Der dünne "
                  "Arm\n[en]\nSTUCK=wrong section\n");
    m_archive.keep(3, m_place.path(), "disk", {"de", "en", "fr"});
    std::filesystem::remove_all(m_place.path());
  }

  TestSupport::TemporaryDirectory m_place;
  TextArchive m_archive;
};

TEST_F(KeptTexts, know_the_tokens_of_each_kind_of_event) {
  EXPECT_EQ(m_archive.token(3, DiagnosticEvent::ERROR_EVENT, 7), "STUCK");
  EXPECT_EQ(m_archive.token(3, DiagnosticEvent::WARNING_EVENT, 7), "WEAK");
  EXPECT_EQ(m_archive.token(3, DiagnosticEvent::INFORMATION_EVENT, 7), std::nullopt);
  EXPECT_EQ(m_archive.token(3, DiagnosticEvent::ERROR_EVENT, 8), std::nullopt);
  EXPECT_EQ(m_archive.token(1, DiagnosticEvent::ERROR_EVENT, 7), std::nullopt);
}

TEST_F(KeptTexts, tell_words_that_stand_in_for_a_parameter_alone_or_in_a_list) {
  for (const auto& [parameter, told] : std::vector<std::pair<std::string, std::string>>{
           {"FOOT", "Der Fuß klemmt."},
           {"the long, thin arm", "Der dünne Arm klemmt."},
           {"FOOT; the long, thin arm", "Der Fuß; Der dünne Arm klemmt."},
           {"FOOT; LEG", "FOOT; LEG klemmt."},
           {"FOOT;", "FOOT; klemmt."},
           {"", " klemmt."}}) {
    EXPECT_EQ(m_archive.message(3, "de", "STUCK", {parameter}), told) << parameter;
  }
}

TEST_F(KeptTexts, name_packages_and_tests_by_their_tokens) {
  EXPECT_EQ(m_archive.name(3, "de", "Package", TextArchive::kNameToken), "Der Fuß");
  EXPECT_EQ(m_archive.name(3, "de", "TestID2", TextArchive::kDescriptionToken), "Der Fuß");
  EXPECT_EQ(m_archive.name(3, "de", "TestID2", TextArchive::kNameToken), std::nullopt);
  EXPECT_EQ(m_archive.name(3, "de", "Package", TextArchive::kDescriptionToken), std::nullopt);
  EXPECT_EQ(m_archive.name(3, "de", "TestID1", TextArchive::kNameToken), std::nullopt);
  EXPECT_EQ(m_archive.name(3, "fr", "Package", TextArchive::kNameToken), std::nullopt);
}

TEST_F(KeptTexts, are_known_to_be_all_that_there_are) {
  EXPECT_TRUE(m_archive.keepsTokens(3));
  EXPECT_FALSE(m_archive.keepsTokens(1));
  EXPECT_TRUE(m_archive.keepsTexts(3, "de"));
  EXPECT_FALSE(m_archive.keepsTexts(3, "fr"));
}

TEST_F(KeptTexts, are_told_in_their_language_alone) {
  EXPECT_EQ(m_archive.message(3, "de", "STUCK", {"It"}), "It klemmt.");
  EXPECT_EQ(m_archive.message(3, "en", "STUCK", {"It"}), "It is stuck.");
  EXPECT_EQ(m_archive.message(3, "fr", "STUCK", {"It"}), std::nullopt);
  EXPECT_EQ(m_archive.message(3, "de", "WEAK", {}), std::nullopt);
}

TEST_F(KeptTexts, tell_a_parameter_that_is_a_token_as_its_text) {
  EXPECT_EQ(m_archive.message(3, "en", "STUCK", {"ARM"}), "The arm is stuck.");
  EXPECT_EQ(m_archive.message(3, "de", "STUCK", {"ARM"}), "ARM klemmt.");
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
