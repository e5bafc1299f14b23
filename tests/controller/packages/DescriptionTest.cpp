// Package descriptions, read from real files.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "DiagCtrl/DiagCtrlInitialisationFailed.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagValidator.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "tests/support/PackageConfig.h"
#include "tests/support/Places.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TraceFile.h"

namespace TarvexDiags::DiagCtrl {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsNull;
using ::testing::Pair;
using ::testing::StrEq;
using TestSupport::PackageConfig;

constexpr unsigned short kMachine = 1;

class DescriptionTest : public ::testing::Test {
 protected:
  ~DescriptionTest() override {
    m_package.reset();
    delete DiagUtil::getInstance();
    delete DiagValidator::getInstance();
    delete DiagTracer::getInstance();
  }

  void trace() { DiagTracer::getInstance()->openTraceFile(m_directory.path().c_str(), 3); }

  /// The description of a file, read; throws when it is refused.
  DiagnosticPackage& read(const PackageConfig& config) {
    m_package = std::make_unique<DiagnosticPackage>("ALPHA", kMachine);
    m_package->initialize(config.writeTo(m_directory).c_str());
    return *m_package;
  }

  bool isRefused(const PackageConfig& config) {
    try {
      read(config);
      return false;
    } catch (DiagCtrlInitialisationFailed& failure) {
      EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::InitialisationFailed);
      EXPECT_THAT(failure.dump(), HasSubstr("DiagnosticPackage::initialize()"));
      return true;
    }
  }

  std::vector<int> offered(const PackageConfig& config) {
    std::vector<int> ids;
    for (const auto& [id, value] : read(config).getTestIdMap()) {
      EXPECT_EQ(value, 0);
      ids.push_back(id);
    }
    return ids;
  }

  TestSupport::TemporaryDirectory m_directory;
  std::unique_ptr<DiagnosticPackage> m_package;
};

// --- A complete file

TEST_F(DescriptionTest, tells_what_the_file_says_of_the_package) {
  DiagnosticPackage& package = read(
      PackageConfig(2).with("ResourceLockProperty", "pci").with("SODependencies", "libdriver.so"));
  EXPECT_STREQ(package.getPackageBaseName(), "ALPHA");
  EXPECT_STREQ(package.getPackageName(), "Scripted package");
  EXPECT_STREQ(package.getPackageMnemonic(), "SCRIPTED");
  EXPECT_STREQ(package.getPackageVersion(), "1.2.3");
  EXPECT_STREQ(package.getPackageDesc(), "Does what a script says");
  EXPECT_STREQ(package.getResourceString(), "pci");
  EXPECT_STREQ(package.getPackageDepDll(), "libdriver.so");
  EXPECT_EQ(package.getDeviceType(), 7U);
  EXPECT_FALSE(package.checkSystemLock());
  EXPECT_THAT(package.getPackageHandle(), IsNull());
  EXPECT_THAT(package.getTestIdMap(), ElementsAre(Pair(1, 0), Pair(2, 0)));
  EXPECT_THAT(package.getDisableTestList(), IsEmpty());
  EXPECT_EQ(package.getNumOfDevices(), 0);
}

TEST_F(DescriptionTest, tells_what_the_file_says_of_a_test) {
  PackageTestInfo& test = *read(PackageConfig(2).openMode(2, "READ_ONLY").estimatedTime(2, 90))
                               .getTestInfoFromPackage(2);
  EXPECT_STREQ(test.getTestName(), "Test 2");
  EXPECT_STREQ(test.getTestDesc(), "What test 2 does");
  EXPECT_STREQ(test.getTestCapabilities(), "none");
  EXPECT_STREQ(test.getTestOpenMode(), "READ_ONLY");
  EXPECT_FALSE(test.getTestDisable());
  EXPECT_EQ(test.getTestEstimatedTime(), 90);
  EXPECT_THAT(test.getEnableDeviceList(), IsEmpty());
  EXPECT_THAT(test.getDisableDeviceList(), IsEmpty());
}

TEST_F(DescriptionTest, a_description_that_was_not_read_has_no_texts) {
  DiagnosticPackage package("ALPHA", kMachine);
  EXPECT_STREQ(package.getPackageBaseName(), "ALPHA");
  EXPECT_THAT(package.getPackageName(), IsNull());
  EXPECT_THAT(package.getPackageDepDll(), IsNull());
  EXPECT_FALSE(package.checkSystemLock());
}

TEST_F(DescriptionTest, a_test_that_does_not_exist_is_a_missing_key) {
  DiagnosticPackage& package = read(PackageConfig(1));
  try {
    package.getTestInfoFromPackage(2);
    ADD_FAILURE() << "nothing thrown";
  } catch (DiagCtrlKeyNotExistException& failure) {
    EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::KeyNotExistException);
    EXPECT_THAT(failure.dump(), HasSubstr("DiagnosticPackage::getDevice()"));
  }
}

TEST(DescriptionDeathTest, a_null_base_name_stops_the_process) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(DiagnosticPackage(nullptr, kMachine), "pcPackageBaseName");
}

TEST_F(DescriptionTest, the_file_is_not_looked_at_again) {
  DiagnosticPackage& package = read(PackageConfig(1).systemLock());
  PackageConfig(0).with("SystemLock", "FALSE").writeTo(m_directory);
  EXPECT_TRUE(package.checkSystemLock());
  EXPECT_STREQ(package.getPackageMnemonic(), "SCRIPTED");
}

TEST_F(DescriptionTest, keys_are_read_in_the_order_of_the_format) {
  trace();
  read(PackageConfig(1).disableTest(1, "WinNT").disableDevices(1, {"slot1", "slot2"}));
  std::vector<std::string> read;  // numbers are not told by the trace
  const std::string start = "DiagUtil::getString ";
  for (const auto& line : TestSupport::TraceFile(m_directory.path()).lines()) {
    const auto section = line.text.find('[');
    if (line.text.find(start) != std::string::npos && section != std::string::npos) {
      read.push_back(line.text.substr(section, line.text.find(" \"", section) - section));
    }
  }
  EXPECT_THAT(
      read, ElementsAre(
                "[Package] PackageName", "[Package] Mnemonic", "[Package] PackageVersion",
                "[Package] PackageDescription", "[Package] SystemLock",
                "[Package] ResourceLockProperty", "[Package] SODependencies", "[TestID1] TestName",
                "[TestID1] TestDescription", "[TestID1] TestCapabilities", "[TestID1] TestOpenMode",
                "[TestID1] TestDisable", "[DisableTestID1] MachineId", "[DisableTestID1] Os",
                "[DisableDeviceTestID1] MachineId", "[DisableDeviceTestID1] Os",
                "[DisableDeviceTestID1] DeviceName1", "[DisableDeviceTestID1] DeviceName2"));
}

// --- Strict and tolerant keys

struct Key {
  const char* section;
  const char* key;
};

/// A file in which every section and key of a description plays a part.
PackageConfig fullConfig() {
  return PackageConfig(3)
      .with("ResourceLockProperty", "pci")
      .with("SODependencies", "libdriver.so")
      .disableTest(2, "Linux", "1")
      .disableDevices(1, {"slot1", "slot2"}, "Linux", "1");
}

constexpr Key kStrictKeys[] = {
    {"Package", "PackageName"},
    {"Package", "Mnemonic"},
    {"Package", "PackageVersion"},
    {"Package", "PackageDescription"},
    {"Package", "SystemLock"},
    {"Package", "NumberOfTests"},
    {"TestID1", "TestName"},
    {"TestID1", "TestDescription"},
    {"TestID1", "TestDisable"},
    {"TestID3", "TestDisable"},
    {"DisableTestID1", "TestID"},
    {"DisableDeviceTestID1", "TestID"},
    {"DisableDeviceTestID1", "NumberOfDevice"},
    {"DisableDeviceTestID1", "DeviceName1"},
    {"DisableDeviceTestID1", "DeviceName2"},
};

TEST_F(DescriptionTest, is_refused_without_any_of_the_strict_keys) {
  ASSERT_FALSE(isRefused(fullConfig()));
  for (const Key& key : kStrictKeys) {
    SCOPED_TRACE(std::string(key.section) + " " + key.key);
    EXPECT_TRUE(isRefused(fullConfig().withoutKey(key.section, key.key)));
    EXPECT_TRUE(isRefused(fullConfig().withKey(key.section, key.key, "")));
  }
}

TEST_F(DescriptionTest, is_refused_with_a_strict_number_of_zero) {
  for (const Key& key :
       {Key{"Package", "NumberOfTests"}, Key{"DisableTestID1", "TestID"},
        Key{"DisableDeviceTestID1", "TestID"}, Key{"DisableDeviceTestID1", "NumberOfDevice"}}) {
    for (const char* const value : {"0", "none", "0x1"}) {
      SCOPED_TRACE(std::string(key.section) + " " + key.key + "=" + value);
      EXPECT_TRUE(isRefused(fullConfig().withKey(key.section, key.key, value)));
    }
  }
}

TEST_F(DescriptionTest, is_refused_with_flags_that_are_not_TRUE_or_FALSE) {
  for (const char* const value : {"0", "1", "yes", "TRUE!", "T"}) {
    SCOPED_TRACE(value);
    EXPECT_TRUE(isRefused(PackageConfig(1).with("SystemLock", value)));
    EXPECT_TRUE(isRefused(PackageConfig(1).withTest(1, "TestDisable", value)));
  }
  EXPECT_TRUE(read(PackageConfig(1).with("SystemLock", "true")).checkSystemLock());
  EXPECT_FALSE(read(PackageConfig(1).with("SystemLock", "False")).checkSystemLock());
  EXPECT_THAT(offered(PackageConfig(2).withTest(2, "TestDisable", "tRuE")), ElementsAre(1));
}

TEST_F(DescriptionTest, is_refused_when_a_test_section_is_missing) {
  EXPECT_TRUE(isRefused(PackageConfig(3).withoutSection("TestID2")));
  EXPECT_TRUE(isRefused(PackageConfig(2).with("NumberOfTests", "3")));
}

TEST_F(DescriptionTest, is_refused_when_the_file_cannot_be_read) {
  DiagnosticPackage package("ALPHA", kMachine);
  EXPECT_THROW(package.initialize("/there/is/no/such/file.cfg"), DiagCtrlInitialisationFailed);
  EXPECT_THROW(package.initialize(m_directory.path().c_str()), DiagCtrlInitialisationFailed);
}

struct TolerantKey {
  Key key;
  std::function<void(DiagnosticPackage&)> expectDefault;
};

TEST_F(DescriptionTest, has_a_default_for_each_tolerant_key) {
  const TolerantKey rows[] = {
      {{"Package", "DeviceType"}, [](auto& p) { EXPECT_EQ(p.getDeviceType(), 0U); }},
      {{"Package", "ResourceLockProperty"},
       [](auto& p) { EXPECT_STREQ(p.getResourceString(), ""); }},
      {{"Package", "SODependencies"}, [](auto& p) { EXPECT_STREQ(p.getPackageDepDll(), ""); }},
      {{"TestID1", "TestCapabilities"},
       [](auto& p) { EXPECT_STREQ(p.getTestInfoFromPackage(1)->getTestCapabilities(), ""); }},
      {{"TestID1", "TestOpenMode"},
       [](auto& p) { EXPECT_STREQ(p.getTestInfoFromPackage(1)->getTestOpenMode(), ""); }},
      {{"TestID1", "TestEstimatedTime"},
       [](auto& p) { EXPECT_EQ(p.getTestInfoFromPackage(1)->getTestEstimatedTime(), 0); }},
      {{"Disable Test", "NumberOfTests"},
       [](auto& p) { EXPECT_THAT(p.getDisableTestList(), IsEmpty()); }},
      {{"Disable Device", "NumberOfTests"},
       [](auto& p) { EXPECT_THAT(p.getDisableTestList(), ElementsAre(2)); }},
      {{"DisableTestID1", "MachineId"},
       [](auto& p) { EXPECT_THAT(p.getDisableTestList(), ElementsAre(2)); }},
      {{"DisableTestID1", "Os"},
       [](auto& p) { EXPECT_THAT(p.getDisableTestList(), ElementsAre(2)); }},
  };
  for (const TolerantKey& row : rows) {
    SCOPED_TRACE(std::string(row.key.section) + " " + row.key.key);
    row.expectDefault(read(fullConfig().withoutKey(row.key.section, row.key.key)));
    row.expectDefault(read(fullConfig().withKey(row.key.section, row.key.key, "")));
  }
}

TEST_F(DescriptionTest, leaves_keys_of_others_alone) {
  EXPECT_FALSE(isRefused(PackageConfig(1)
                             .with("Language", "fr")
                             .with("Vendor", "anybody")
                             .token("Error", 5, "TOKEN")
                             .withTest(1, "Colour", "blue")));
}

// --- The number of tests, and gaps in it

TEST_F(DescriptionTest, a_negative_number_of_tests_means_none) {
  EXPECT_THAT(offered(PackageConfig(0).with("NumberOfTests", "-2")), IsEmpty());
}

TEST_F(DescriptionTest, tests_beyond_the_number_are_not_read) {
  EXPECT_THAT(offered(PackageConfig(5).with("NumberOfTests", "2")), ElementsAre(1, 2));
}

TEST_F(DescriptionTest, a_withdrawn_test_leaves_a_gap) {
  EXPECT_THAT(offered(PackageConfig(3).withdrawTest(2)), ElementsAre(1, 3));
  EXPECT_THAT(m_package->getDisableTestList(), IsEmpty());
  EXPECT_THROW(m_package->getTestInfoFromPackage(2), DiagCtrlKeyNotExistException);
  EXPECT_STREQ(m_package->getTestInfoFromPackage(3)->getTestName(), "Test 3");
}

TEST_F(DescriptionTest, a_withdrawn_test_needs_its_strict_keys) {
  EXPECT_TRUE(isRefused(PackageConfig(2).withdrawTest(2).withoutTest(2, "TestName")));
  EXPECT_FALSE(isRefused(PackageConfig(2).withdrawTest(2).withoutTest(2, "TestOpenMode")));
}

// --- Tests that are disabled by entries

TEST_F(DescriptionTest, a_disabled_test_is_listed_and_not_offered) {
  EXPECT_THAT(offered(PackageConfig(3).disableTest(2).disableTest(3)), ElementsAre(1));
  EXPECT_THAT(m_package->getDisableTestList(), ElementsAre(2, 3));
  EXPECT_THROW(m_package->getTestInfoFromPackage(2), DiagCtrlKeyNotExistException);
}

TEST_F(DescriptionTest, a_test_is_disabled_once) {
  EXPECT_THAT(offered(PackageConfig(2).disableTest(2).disableTest(2)), ElementsAre(1));
  EXPECT_THAT(m_package->getDisableTestList(), ElementsAre(2));
}

TEST_F(DescriptionTest, an_entry_for_a_test_that_does_not_exist_is_read_no_further) {
  trace();
  read(PackageConfig(2).withdrawTest(2).disableTest(2, "Linux").disableTest(9, "Linux"));
  const TestSupport::TraceFile lines(m_directory.path());
  EXPECT_FALSE(lines.contains("[DisableTestID1] MachineId"));
  EXPECT_FALSE(lines.contains("[DisableTestID2] Os"));
  EXPECT_THAT(m_package->getDisableTestList(), IsEmpty());
}

TEST_F(DescriptionTest, an_entry_without_a_test_is_refused_though_it_would_not_apply) {
  EXPECT_TRUE(isRefused(PackageConfig(1).disableTest(0, "WinNT")));
  EXPECT_TRUE(
      isRefused(PackageConfig(1).disableTest(1, "WinNT").withoutKey("DisableTestID1", "TestID")));
}

TEST_F(DescriptionTest, counts_of_entries_that_are_not_positive_mean_none) {
  for (const char* const count : {"0", "-1", "many"}) {
    SCOPED_TRACE(count);
    const auto config = PackageConfig(2)
                            .disableTest(1)
                            .disableDevices(2, {"slot1"})
                            .withoutKey("DisableDeviceTestID1", "TestID")  // refused if it is read
                            .withKey("Disable Test", "NumberOfTests", count)
                            .withKey("Disable Device", "NumberOfTests", count);
    EXPECT_THAT(offered(config), ElementsAre(1, 2));
  }
}

struct Filter {
  const char* os;
  const char* machineId;
  bool applies;
};

TEST_F(DescriptionTest, entries_apply_to_a_decimal_machine_id_and_an_operating_system_in_any_case) {
  const Filter rows[] = {
      {"", "", true},       {"Linux", "", true},   {"LINUX", "", true}, {"linux", "1", true},
      {"WinNT", "", false}, {"WinNT", "1", false}, {"Lin", "", false},  {"", "1", true},
      {"", "01", true},     {"", "+1", true},      {"", "1x", true},    {"", "65537", true},
      {"", "-65535", true}, {"", "0", false},      {"", "2", false},    {"", "0x1", false},
      {"", "one", false},   {"", "65536", false},
  };
  for (const Filter& row : rows) {
    SCOPED_TRACE(std::string(row.os) + "/" + row.machineId);
    read(PackageConfig(2).disableTest(2, row.os, row.machineId));
    EXPECT_EQ(m_package->getDisableTestList().size(), row.applies ? 1U : 0U);
  }
}

TEST_F(DescriptionTest, entries_apply_to_the_machine_that_the_description_was_made_for) {
  const std::string path =
      PackageConfig(2).disableTest(1, "", "1").disableTest(2, "", "7").writeTo(m_directory);
  DiagnosticPackage package("ALPHA", 7);
  package.initialize(path.c_str());
  EXPECT_THAT(package.getDisableTestList(), ElementsAre(2));
}

// --- Devices that are disabled by entries. Which pairs they disable is tested with the devices.

TEST_F(DescriptionTest, an_entry_of_devices_that_does_not_apply_needs_its_count_and_no_names) {
  const auto config = PackageConfig(1).disableDevices(1, {"slot1"}, "WinNT");
  const char* const section = "DisableDeviceTestID1";
  EXPECT_FALSE(isRefused(PackageConfig(config).withoutKey(section, "DeviceName1")));
  EXPECT_TRUE(isRefused(PackageConfig(config).withoutKey(section, "NumberOfDevice")));
  EXPECT_TRUE(isRefused(PackageConfig(config).withKey(section, "NumberOfDevice", "0")));
}

TEST_F(DescriptionTest, an_entry_of_devices_without_machine_or_system_applies_to_all_of_them) {
  const char* const section = "DisableDeviceTestID1";
  for (const char* const key : {"MachineId", "Os"}) {
    SCOPED_TRACE(key);
    for (const auto& config :
         {fullConfig().withoutKey(section, key), fullConfig().withKey(section, key, "")}) {
      EXPECT_FALSE(isRefused(config));
      EXPECT_TRUE(isRefused(PackageConfig(config).withoutKey(section, "DeviceName2")))
          << "its names are read";
    }
  }
}

TEST_F(DescriptionTest, an_entry_of_devices_for_a_test_that_is_gone_needs_nothing_more) {
  const char* const section = "DisableDeviceTestID1";
  for (const auto& config :
       {PackageConfig(2).disableTest(2), PackageConfig(2).withdrawTest(2), PackageConfig(1)}) {
    EXPECT_FALSE(isRefused(PackageConfig(config)
                               .disableDevices(2, {"slot1"})
                               .withoutKey(section, "NumberOfDevice")
                               .withoutKey(section, "DeviceName1")));
    EXPECT_TRUE(isRefused(
        PackageConfig(config).disableDevices(2, {"slot1"}).withoutKey(section, "TestID")));
  }
}

TEST_F(DescriptionTest, a_negative_count_of_devices_disables_none) {
  EXPECT_FALSE(isRefused(PackageConfig(1)
                             .disableDevices(1, {"slot1"})
                             .withKey("DisableDeviceTestID1", "NumberOfDevice", "-1")
                             .withoutKey("DisableDeviceTestID1", "DeviceName1")));
}

// --- Again

TEST_F(DescriptionTest, a_cleared_description_is_read_anew) {
  m_package = std::make_unique<DiagnosticPackage>("ALPHA", kMachine);
  m_package->initialize(PackageConfig(3).disableTest(3).writeTo(m_directory).c_str());
  m_package->clearPackageData();
  EXPECT_THAT(m_package->getTestIdMap(), IsEmpty());
  EXPECT_THAT(m_package->getDisableTestList(), IsEmpty());
  const char* const mnemonic = m_package->getPackageMnemonic();
  EXPECT_STREQ(mnemonic, "SCRIPTED") << "texts stay";

  m_package->initialize(
      PackageConfig(2).mnemonic("OTHER").systemLock().writeTo(m_directory).c_str());
  EXPECT_THAT(m_package->getTestIdMap(), ElementsAre(Pair(1, 0), Pair(2, 0)));
  EXPECT_STREQ(m_package->getPackageMnemonic(), "OTHER");
  EXPECT_STREQ(mnemonic, "SCRIPTED") << "and can still be read by those who asked before";
  EXPECT_TRUE(m_package->checkSystemLock());
}

TEST_F(DescriptionTest, the_handle_is_kept_and_not_closed) {
  const std::string path = TestSupport::modulePath("loader_complete");
  void* const handle = dlopen(path.c_str(), RTLD_NOW);
  ASSERT_NE(handle, nullptr) << dlerror();
  {
    DiagnosticPackage package("ALPHA", kMachine);
    package.setPackageHandle(handle);
    EXPECT_EQ(package.getPackageHandle(), handle);
    package.clearPackageData();
    EXPECT_EQ(package.getPackageHandle(), handle);
  }
  void* const again = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  EXPECT_EQ(again, handle) << "still open";
  dlclose(again);
  dlclose(handle);
}

TEST_F(DescriptionTest, tests_can_be_added_by_hand) {
  DiagnosticPackage package("ALPHA", kMachine);
  auto* const test = new PackageTestInfo;
  package.updateTestIdMap(4, 0);
  package.updateTestIdTestObjectMap(4, test);
  EXPECT_THAT(package.getTestIdMap(), ElementsAre(Pair(4, 0)));
  EXPECT_EQ(package.getTestInfoFromPackage(4), test);
}

TEST(PackageTestInfoTest, keeps_what_it_is_given) {
  PackageTestInfo test;
  EXPECT_THAT(test.getTestName(), IsNull());
  char* const name = new char[5]{'n', 'a', 'm', 'e', '\0'};
  test.setTestName(name);
  test.setTestDisable(true);
  test.setTestEstimatedTime(-4);
  test.updateEnableDeviceIdList(2);
  test.updateEnableDeviceIdList(1);
  test.updateDisableDeviceIdList(3);
  EXPECT_EQ(test.getTestName(), name);
  EXPECT_TRUE(test.getTestDisable());
  EXPECT_EQ(test.getTestEstimatedTime(), -4);
  EXPECT_THAT(test.getEnableDeviceList(), ElementsAre(2, 1));
  EXPECT_THAT(test.getDisableDeviceList(), ElementsAre(3));
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
