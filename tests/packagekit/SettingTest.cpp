// Declared settings: where their values come from, what they may be, and how they are told.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "packagekit/PackageKit.h"
#include "packagekit/testing/RecordingContext.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::PackageKit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::ThrowsMessage;

constexpr auto kReads = quickable<std::uint64_t>("Reads");
constexpr auto kLimit = required<double>("Limit");
constexpr auto kPatience = quickable<Seconds>("PatienceSeconds");
constexpr auto kName = optionalSetting<std::string>("Name");

class SettingTest : public testing::Test {
 protected:
  Settings settingsWith(const std::string& text) {
    return Settings(m_directory.write("package.cfg", text));
  }

  std::uint64_t quickReads(const std::string& text) {
    return settingsWith(text).value(kReads, 2, true);
  }

  TestSupport::TemporaryDirectory m_directory;
  const std::string m_file = m_directory.file("package.cfg");
};

TEST_F(SettingTest, value_of_the_test_goes_before_that_of_the_package) {
  const std::string both = "[Package]\nReads=1\n[TestID2]\nReads=2\n";
  EXPECT_EQ(settingsWith(both).value(kReads, 2), 2U);
  EXPECT_EQ(settingsWith(both).value(kReads, 1), 1U);
  EXPECT_EQ(settingsWith(both).value(kReads), 1U) << "of the package itself";
}

TEST_F(SettingTest, quick_request_takes_the_quick_value_wherever_it_stands) {
  EXPECT_EQ(quickReads("[TestID2]\nReads=9\nQuickReads=3\n"), 3U);
  EXPECT_EQ(quickReads("[Package]\nReads=9\nQuickReads=3\n"), 3U);
  EXPECT_EQ(quickReads("[Package]\nQuickReads=3\n[TestID2]\nReads=9\n"), 3U);
  EXPECT_EQ(quickReads("[Package]\nQuickReads=3\n[TestID2]\nReads=9\nQuickReads=4\n"), 4U);
  EXPECT_EQ(quickReads("[TestID2]\nReads=9\nQuickReads=20\n"), 20U) << "even if it is more";
}

TEST_F(SettingTest, quick_request_takes_the_full_value_where_there_is_no_quick_one) {
  EXPECT_EQ(quickReads("[TestID2]\nReads=9\n"), 9U);
  EXPECT_EQ(quickReads("[TestID2]\nReads=9\nQuickReads=\n"), 9U);
  EXPECT_EQ(quickReads("[Package]\nReads=8\n[TestID1]\nQuickReads=3\n"), 8U);
}

TEST_F(SettingTest, quick_value_concerns_nothing_but_quick_requests_and_quickable_settings) {
  EXPECT_EQ(settingsWith("[TestID2]\nReads=9\nQuickReads=3\n").value(kReads, 2), 9U);
  EXPECT_EQ(settingsWith("[TestID2]\nLimit=9\nQuickLimit=3\n").value(kLimit, 2, true), 9);
}

TEST_F(SettingTest, missing_key_has_no_default_but_is_told_with_its_file_and_test) {
  EXPECT_THAT([&] { settingsWith("[TestID2]\nRead=1\n").value(kReads, 2); },
              ThrowsMessage<UnusableSetting>(m_file + ": the key Reads is missing for test 2"));
  EXPECT_THAT([&] { settingsWith("[TestID2]\nReads=1\n").value(kReads); },
              ThrowsMessage<UnusableSetting>(m_file + ": the key Reads is missing"));
  EXPECT_THROW(quickReads("[TestID1]\nReads=1\n"), UnusableSetting);
}

TEST_F(SettingTest, value_of_another_kind_is_told_and_never_replaced) {
  EXPECT_THAT([&] { quickReads("[TestID2]\nReads=1\nQuickReads=few\n"); },
              ThrowsMessage<UnusableSetting>(HasSubstr("QuickReads cannot have the value 'few'")));
  for (const char* const value : {"-1", "1.5", "1 000", "99999999999999999999"}) {
    EXPECT_THROW(settingsWith(std::string("[Package]\nReads=") + value).value(kReads),
                 UnusableSetting)
        << value;
  }
  for (const char* const value : {"-0.5", "inf", "nan", "1e300", "long"}) {
    EXPECT_THROW(settingsWith(std::string("[Package]\nPatienceSeconds=") + value).value(kPatience),
                 UnusableSetting)
        << value;
  }
}

TEST_F(SettingTest, values_are_read_whatever_their_kind) {
  const Settings settings = settingsWith(
      "[Package]\nReads=18446744073709551615\nLimit=-2.5\nPatienceSeconds=0.25\nName=a b\n");
  EXPECT_EQ(settings.value(kReads), 18446744073709551615U);
  EXPECT_EQ(settings.value(kLimit), -2.5);
  EXPECT_EQ(settings.value(kPatience), std::chrono::milliseconds(250));
  EXPECT_EQ(settings.value(kName), "a b");
  EXPECT_EQ(settings.value(optionalSetting<long>("Depth")), std::nullopt);
}

TEST_F(SettingTest, test_is_held_to_the_keys_that_it_has_declared) {
  TestParameters parameters;
  parameters.testId = 2;
  parameters.quickMode = true;
  parameters.configFile = settingsWith("[Package]\nReads=9\nQuickReads=3\nLimit=1\n").file();
  parameters.declaredKeys = {"Reads"};
  const Testing::RecordingContext context(parameters);
  EXPECT_EQ(context.value(kReads), 3U);
  EXPECT_THAT([&] { context.value(kLimit); },
              ThrowsMessage<std::logic_error>("test 2 reads the key Limit without declaring it"));
  EXPECT_THROW(context.value(kName), std::logic_error);
}

TEST(SettingRuleTest, package_tells_its_own_keys_and_those_of_its_tests) {
  Package package;
  EXPECT_THAT(package.settings(), IsEmpty());
  package.reads({kName});
  package.test(2, [](TestContext&) { return passed(); }).reads({kReads, kLimit});
  const SettingList rules = package.settings();
  ASSERT_THAT(rules, SizeIs(3));
  EXPECT_EQ(toLine(rules[0]), "0 Name 0 0 0");
  EXPECT_EQ(toLine(rules[1]), "2 Reads 3 1 1");
  EXPECT_EQ(toLine(rules[2]), "2 Limit 4 1 0");
}

TEST(SettingRuleTest, rules_that_a_later_kit_writes_are_left_out) {
  const auto rules = settingRulesFrom("2 Reads 3 1 1\n2 Colour 99 1 0\nnonsense\n0 Name 0 0 0\n");
  ASSERT_THAT(rules, SizeIs(2));
  EXPECT_EQ(toLine(rules[0]), "2 Reads 3 1 1");
  EXPECT_EQ(toLine(rules[1]), "0 Name 0 0 0");
}

TEST(SettingRuleTest, value_belongs_to_the_kinds_that_can_read_it) {
  const auto kindsOf = [](const std::string& value) {
    std::vector<SettingKind> kinds;
    for (int kind = 0; kind <= static_cast<int>(SettingKind::Duration); ++kind) {
      if (isValueOf(static_cast<SettingKind>(kind), value)) {
        kinds.push_back(static_cast<SettingKind>(kind));
      }
    }
    return kinds;
  };
  using enum SettingKind;
  EXPECT_THAT(kindsOf("some"), ElementsAre(Text));
  EXPECT_THAT(kindsOf("true"), ElementsAre(Text, Flag));
  EXPECT_THAT(kindsOf("-3"), ElementsAre(Text, Integer, Number));
  EXPECT_THAT(kindsOf("-0.5"), ElementsAre(Text, Number));
  EXPECT_THAT(kindsOf("7"), ElementsAre(Text, Integer, Count, Number, Duration));
  EXPECT_THAT(kindsOf("0.5"), ElementsAre(Text, Number, Duration));
  EXPECT_THAT(kindsOf("1e10"), ElementsAre(Text, Number)) << "too long to wait";
}

TEST(TestTableTest, row_says_all_that_there_is_to_say_of_a_test) {
  Package package;
  package.tests({
      {.number = 1, .body = [](TestContext&) { return passed(); }},
      {.number = 4,
       .body = [](TestContext&) { return unusual(1); },
       .reads = {kReads},
       .support = [](const Device&, const Environment&) { return Support::no("no disk"); },
       .estimate = [](const Device&, const Environment&) { return 17; },
       .modes = {DeviceEnum::IDeviceEnumerator::FACTORY},
       .writes = true},
  });
  Environment factory{DeviceEnum::IDeviceEnumerator::FACTORY, Settings(""), "", 0,
                      [](const std::string&) {}};
  Environment customer = factory;
  customer.diagnosticMode = DeviceEnum::IDeviceEnumerator::CUSTOMER;
  const TestEntry& plain = *package.find(1);
  EXPECT_TRUE(plain.supports({}, customer));
  EXPECT_EQ(plain.estimateFor({}, customer), 0);
  EXPECT_FALSE(plain.isWriting());
  const TestEntry& full = *package.find(4);
  EXPECT_EQ(full.supports({}, factory).reason(), "no disk");
  EXPECT_THAT(full.supports({}, customer).detail(), HasSubstr("CUSTOMER"));
  EXPECT_EQ(full.estimateFor({}, factory), 17);
  EXPECT_TRUE(full.isWriting());
  EXPECT_THAT(full.settings(), SizeIs(1));
  EXPECT_THAT(package.testIds(), ElementsAre(1, 4));
}

TEST(TestTableTest, two_rows_of_one_number_are_refused) {
  Package package;
  const TestRow row{.number = 3, .body = [](TestContext&) { return passed(); }};
  EXPECT_THROW(package.tests({row, row}), std::logic_error);
}

}  // namespace
}  // namespace TarvexDiags::PackageKit
