// What the watch finds, in words.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "diagctl/run/FindingText.h"
#include "diagctl/session/Explanation.h"
#include "packagekit/contract/Texts.h"

namespace TarvexDiags::FrontEnd {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using Watching::Finding;
using Watching::Kind;

Finding findingOf(Kind kind, const std::string& device, const std::string& part) {
  Finding finding;
  finding.kind = kind;
  finding.device = device;
  finding.part = part;
  finding.severity = Watching::Severity::Warning;
  return finding;
}

std::set<std::string> tokensIn(const WatchTexts::File& file) {
  std::set<std::string> tokens;
  const ConfigurationText content = ConfigurationText::parse(file.text);
  for (const auto& [key, text] : content.keys(file.language)) {
    EXPECT_FALSE(text.empty()) << file.language << " " << key;
    tokens.insert(key);
  }
  return tokens;
}

TEST(FindingText, has_words_and_advice_for_each_kind_in_every_language) {
  std::set<std::string> kinds;
  for (const Kind kind : Watching::allKinds()) {
    kinds.insert(WatchTexts::tokenOf(Watching::nameOf(kind)));
  }
  const std::vector<std::string> told = WatchTexts::tokens();
  EXPECT_EQ(std::set<std::string>(told.begin(), told.end()), kinds);
  std::vector<std::string> languages;
  for (const WatchTexts::File& file : WatchTexts::files()) {
    languages.emplace_back(file.language);
    EXPECT_EQ(tokensIn(file), tokensIn(WatchTexts::files().front())) << file.language;
    for (const std::string& token : kinds) {
      EXPECT_TRUE(tokensIn(file).contains(token)) << file.language << " " << token;
    }
  }
  EXPECT_THAT(languages,
              ::testing::UnorderedElementsAreArray(PackageKit::Contract::kLanguages.begin(),
                                                   PackageKit::Contract::kLanguages.end()));
}

TEST(FindingText, names_part_number_and_test) {
  const WatchTexts texts("en");
  const Finding finding = findingOf(Kind::MemoryCorrected, "mc:0", "DIMM_A1");
  const FindingText text = textOf(finding, texts, "Walking ones", 3);
  EXPECT_EQ(text.symptom, "memory-corrected");
  EXPECT_EQ(text.message, "Memory module DIMM_A1 corrected 3 errors during Walking ones.");
  EXPECT_EQ(text.action, "Replace the module if it goes on.");
  EXPECT_EQ(textOf(finding, texts, "Walking ones", 1).message,
            "Memory module DIMM_A1 corrected an error during Walking ones.");
}

TEST(FindingText, advises_more_where_it_is_a_failure) {
  Finding finding = findingOf(Kind::MemoryCorrected, "mc:0", "DIMM_A1");
  finding.severity = Watching::Severity::Failure;
  EXPECT_THAT(textOf(finding, WatchTexts("en"), "X", 10).action, HasSubstr("Replace the module:"));
}

TEST(FindingText, names_processor_and_bank_and_both_ends_of_a_link) {
  const WatchTexts texts("en");
  EXPECT_THAT(
      textOf(findingOf(Kind::MachineCheckCorrected, "cpu:0", "bank 4"), texts, "X", 1).message,
      HasSubstr("Processor 0, bank 4 "));
  EXPECT_THAT(
      textOf(findingOf(Kind::PcieCorrectable, "pci:0000:01:00.0", "0000:00:1c.0"), texts, "X", 1)
          .message,
      HasSubstr("0000:01:00.0 - 0000:00:1c.0"));
}

TEST(FindingText, names_a_processor_whose_core_is_not_known) {
  EXPECT_THAT(textOf(findingOf(Kind::Throttled, "cpu:0", ""), WatchTexts("en"), "X", 1).message,
              HasSubstr("cpu0 "));
}

TEST(FindingText, says_of_what_was_before_that_it_was_before_in_every_language) {
  Finding finding = findingOf(Kind::MachineCheckUncorrected, "cpu:0", "bank 4");
  finding.isBefore = true;
  EXPECT_EQ(textOf(finding, WatchTexts("en"), "this run", 1).message,
            "Processor 0, bank 4 had an error (machine check) before this run that it could not "
            "correct, which is told only now (count: 1).");
  for (const Kind kind : {Kind::MachineCheckCorrected, Kind::MachineCheckUncorrected}) {
    for (const WatchTexts::File& file : WatchTexts::files()) {
      const WatchTexts texts(file.language);
      finding.kind = kind;
      finding.isBefore = false;
      const std::string during = textOf(finding, texts, "X", 1).message;
      finding.isBefore = true;
      EXPECT_NE(textOf(finding, texts, "X", 1).message, during) << file.language;
    }
  }
}

TEST(FindingText, reads_well_where_no_part_is_known_in_every_language) {
  Finding finding = findingOf(Kind::MachineCheckCorrected, "machine", "");
  EXPECT_EQ(textOf(finding, WatchTexts("en"), "this run", 1).message,
            "The hardware of this machine corrected errors of its own (machine checks) during this "
            "run (count: 1).");
  EXPECT_EQ(textOf(findingOf(Kind::DiskMedium, "machine", ""), WatchTexts("en"), "X", 2).message,
            "The medium of a disk of this machine had errors during X (count: 2).");
  for (const WatchTexts::File& file : WatchTexts::files()) {
    const WatchTexts texts(file.language);
    for (const Kind kind : {Kind::MachineCheckCorrected, Kind::MachineCheckUncorrected}) {
      finding.kind = kind;
      finding.isBefore = false;
      const std::string during = textOf(finding, texts, "X", 1).message;
      finding.isBefore = true;
      EXPECT_NE(textOf(finding, texts, "X", 1).message, during) << file.language;
    }
  }
}

TEST(FindingText, takes_nothing_of_what_a_device_says_for_a_place_to_fill_in) {
  EXPECT_THAT(
      textOf(findingOf(Kind::DiskMedium, "block:sda", "$3$"), WatchTexts("en"), "X", 1).message,
      HasSubstr("disk $3$ had errors during X"));
}

TEST(FindingText, is_explained_by_the_name_that_a_report_has) {
  EXPECT_THAT(explanationsOf("nvme-warning", {}, "de"),
              ElementsAre(AllOf(Field(&Explanation::family, "watch"),
                                Field(&Explanation::name, "nvme-warning"),
                                Field(&Explanation::action, HasSubstr("Zustand")))));
  EXPECT_THAT(explanationsOf("watch:*", {}, "en"),
              Contains(Field(&Explanation::name, "memory-corrected")));
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
