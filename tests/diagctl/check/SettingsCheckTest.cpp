// The keys that a package has declared, held against its configuration file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "diagctl/check/SettingsCheck.h"
#include "packagekit/Setting.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::FrontEnd {
namespace {

using PackageKit::optionalSetting;
using PackageKit::quickable;
using PackageKit::required;
using PackageKit::SettingRule;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

SettingRule readBy(int test, SettingRule rule) {
  rule.testId = test;
  return rule;
}

/// Two tests that read from a disk, and a package that may be told of files.
const std::vector<SettingRule> kRules = {
    readBy(0, optionalSetting<std::string>("DeviceFile#")),
    readBy(0, required<bool>("Virtual")),
    readBy(1, quickable<std::uint64_t>("Reads")),
    readBy(2, quickable<std::uint64_t>("Reads")),
    readBy(1, required<double>("Factor")),
    readBy(2, quickable<PackageKit::Seconds>("HoldSeconds")),
    readBy(2, optionalSetting<long>("InjectFault")),
};

const char* const kSound =
    "[Package]\nPackageName=Disks\nVirtual=FALSE\nReads=100\n"
    "[TestID1]\nTestName=Read\nFactor=2.5\n"
    "[TestID2]\nTestName=Hold\nHoldSeconds=90\nQuickHoldSeconds=0.5\n";

class SettingsCheckTest : public testing::Test {
 protected:
  /// What is told of the sound file with one text in it replaced by another.
  std::vector<std::string> toldWith(const std::string& from, const std::string& to, int tests = 2) {
    std::string text = kSound;
    text.replace(text.find(from), from.size(), to);
    const auto file = ConfigurationText::read(m_directory.write("disks.cfg", text));
    std::vector<Problem> problems;
    checkSettings(*file, "disks.cfg", tests, {m_packageKeys, m_testKeys}, kRules, problems);
    std::vector<std::string> lines;
    for (const Problem& problem : problems) {
      lines.push_back(toText(problem));
    }
    return lines;
  }

 private:
  const std::vector<KeyRule> m_packageKeys = {{"PackageName", ValueKind::Text, true}};
  const std::vector<KeyRule> m_testKeys = {{"TestName", ValueKind::Text, true}};
  TestSupport::TemporaryDirectory m_directory;
};

TEST_F(SettingsCheckTest, nothing_is_told_of_a_file_with_all_keys_and_no_others) {
  EXPECT_THAT(toldWith("Reads=100", "Reads=100"), IsEmpty());
  EXPECT_THAT(toldWith("Reads=100", "Reads=100\nQuickReads=5\nDeviceFile1=/a\nDeviceFile12=/b"),
              IsEmpty());
  EXPECT_THAT(toldWith("HoldSeconds=90", "HoldSeconds=90\nReads=7\nQuickReads=1\nInjectFault=-1"),
              IsEmpty())
      << "a test may have what the package has";
}

TEST_F(SettingsCheckTest, missing_key_is_told_where_its_only_reader_stands) {
  EXPECT_THAT(toldWith("Factor=2.5\n", ""),
              UnorderedElementsAre("disks.cfg [TestID1] Factor: the key is missing"));
  EXPECT_THAT(toldWith("Virtual=FALSE\n", ""),
              UnorderedElementsAre("disks.cfg [Package] Virtual: the key is missing"));
  EXPECT_THAT(toldWith("Factor=2.5\n", "Factor=\n"),
              UnorderedElementsAre("disks.cfg [TestID1] Factor: the value is empty or too long"));
  EXPECT_THAT(toldWith("HoldSeconds=90\n", ""),
              UnorderedElementsAre("disks.cfg [TestID2] HoldSeconds: the key is missing"))
      << "its quick value is no default of it";
}

TEST_F(SettingsCheckTest, key_that_all_its_readers_miss_is_told_once) {
  EXPECT_THAT(toldWith("Reads=100\n", ""),
              UnorderedElementsAre("disks.cfg [Package] Reads: the key is missing"));
}

TEST_F(SettingsCheckTest, key_that_one_of_its_readers_misses_is_told_for_that_one) {
  EXPECT_THAT(toldWith("Reads=100\n[TestID1]\n", "[TestID1]\nReads=100\n"),
              UnorderedElementsAre("disks.cfg [TestID2] Reads: the key is missing"));
}

TEST_F(SettingsCheckTest, key_of_the_package_itself_does_not_count_in_a_test) {
  EXPECT_THAT(
      toldWith("Virtual=FALSE\nReads=100\n[TestID1]\n", "Reads=100\n[TestID1]\nVirtual=FALSE\n"),
      UnorderedElementsAre("disks.cfg [TestID1] Virtual: no such key is read",
                           "disks.cfg [Package] Virtual: the key is missing"));
}

TEST_F(SettingsCheckTest, key_that_nobody_reads_is_told_in_its_section) {
  EXPECT_THAT(toldWith("Reads=100", "Reads=100\nRaeds=5"),
              UnorderedElementsAre("disks.cfg [Package] Raeds: no such key is read"));
  EXPECT_THAT(toldWith("Factor=2.5", "Factor=2.5\nHoldSeconds=1"),
              UnorderedElementsAre("disks.cfg [TestID1] HoldSeconds: no such key is read"))
      << "another test's";
  EXPECT_THAT(toldWith("Factor=2.5", "Factor=2.5\nQuickFactor=1"),
              UnorderedElementsAre("disks.cfg [TestID1] QuickFactor: no such key is read"))
      << "quick requests take the same";
  EXPECT_THAT(toldWith("Reads=100", "Reads=100\nDeviceFile=/a\nDeviceFileX=/a"),
              UnorderedElementsAre("disks.cfg [Package] DeviceFile: no such key is read",
                                   "disks.cfg [Package] DeviceFileX: no such key is read"));
}

TEST_F(SettingsCheckTest, value_of_another_kind_is_told_with_its_reason) {
  EXPECT_THAT(
      toldWith("Reads=100", "Reads=-1"),
      UnorderedElementsAre("disks.cfg [Package] Reads: '-1' is no whole number of 0 or above"));
  EXPECT_THAT(toldWith("Factor=2.5", "Factor=2,5"),
              UnorderedElementsAre("disks.cfg [TestID1] Factor: '2,5' is no number"));
  EXPECT_THAT(toldWith("Virtual=FALSE", "Virtual=no"),
              UnorderedElementsAre("disks.cfg [Package] Virtual: 'no' is none of TRUE, FALSE"));
  EXPECT_THAT(toldWith("QuickHoldSeconds=0.5", "QuickHoldSeconds=short\nInjectFault=one"),
              UnorderedElementsAre(
                  "disks.cfg [TestID2] QuickHoldSeconds: 'short' is no time in seconds from 0 to "
                  "31536000",
                  "disks.cfg [TestID2] InjectFault: 'one' is no whole number"));
}

TEST_F(SettingsCheckTest, tests_beyond_the_number_of_tests_need_nothing) {
  EXPECT_THAT(toldWith("HoldSeconds=90\n", "", 1), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
