// The storage package as the controller loads it, on a file that stands for a disk.

#include <filesystem>
#include <fstream>

#include "packagekit/ResourceTags.h"
#include "packagekit/testing/PackageDriver.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Storage {
namespace {

namespace fs = std::filesystem;
using Diag::DiagnosticResult;
using PackageKit::Testing::PackageDriver;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class StoragePackage : public testing::Test {
 protected:
  StoragePackage() {
    std::string name = fs::absolute("image-XXXXXX").string();
    m_folder = mkdtemp(name.data());
    std::ofstream image(path(), std::ios::binary);
    for (int block = 0; block < 8 * 256; ++block) {
      image << std::string(4096, static_cast<char>(block % 251));
    }
    image.close();
    driver.set("Package", "DeviceFile1", path().string());
    driver.set("TestID8", "QuickFileMegabytes", "8");
    // Others keep the disk below busy, which is not what these tests look at.
    driver.set("TestID7", "LimitMilliseconds", "20000");
  }
  ~StoragePackage() override { fs::remove_all(m_folder); }

  fs::path path() const { return m_folder / "image"; }

  PackageDriver::Run runQuick(const std::vector<int>& tests) {
    PackageDriver::Options options;
    options.quickMode = true;
    return driver.run("image", tests, options);
  }

  PackageDriver driver{TARVEX_PACKAGE_DIR, "storage"};

 private:
  fs::path m_folder;
};

TEST_F(StoragePackage, passes_every_test_on_a_sound_device) {
  const auto run = runQuick({1, 4, 5, 6, 7, 8});
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED);
  for (const unsigned int code : {1U, 2U, 3U, 4U, 6U, 7U}) {
    EXPECT_TRUE(run.has(code)) << code;
  }
  EXPECT_GT(std::stod(run.measurement("readRate")), 0);
  EXPECT_GT(std::stod(run.measurement("coveredBytes")), 0);
  EXPECT_GE(std::stod(run.measurement("totalBytes")), std::stod(run.measurement("coveredBytes")));
  EXPECT_GT(std::stod(run.measurement("verifyRate")), 0);
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(StoragePackage, leaves_nothing_behind) {
  runQuick({8});
  const auto entries = fs::directory_iterator(path().parent_path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST_F(StoragePackage, warns_of_a_device_whose_size_is_not_what_it_was) {
  driver.devices();
  fs::resize_file(path(), std::uintmax_t{4} << 20);
  const auto run = runQuick({1});
  EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_TRUE(run.has(115));
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(StoragePackage, quick_request_takes_what_the_user_set_for_all_requests) {
  driver.set("TestID5", "QuickReads", "").set("TestID5", "Reads", "300");
  const auto run = runQuick({5});
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED);
  EXPECT_EQ(run.parametersOf(3).at(1), "300");
}

TEST_F(StoragePackage, setting_that_is_missing_leaves_no_verdict_and_is_named) {
  driver.set("TestID4", "Depth", "");
  const auto run = runQuick({4});
  EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_THAT(run.parametersOf(9006).at(3), HasSubstr("the key Depth is missing for test 4"));
}

TEST_F(StoragePackage, warns_of_a_rate_below_the_one_asked_for) {
  driver.set("TestID4", "MinimumRate", "100000000");
  const auto run = runQuick({4});
  EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_TRUE(run.has(114));
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(StoragePackage, does_not_blame_a_device_that_vanished) {
  driver.devices();
  fs::remove(path());
  for (const int test : {1, 4, 5, 6, 7}) {
    const auto run = runQuick({test});
    EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS) << test;
    ASSERT_TRUE(run.has(9005)) << test;
    EXPECT_EQ(run.parametersOf(9005)[3], "VANISHED_DISK");
    EXPECT_THAT(run.parametersOf(9005)[4], HasSubstr("No such file"));
  }
}

TEST_F(StoragePackage, does_not_blame_a_device_that_was_emptied) {
  driver.devices();
  fs::resize_file(path(), 0);
  const auto run = runQuick({4});
  ASSERT_TRUE(run.has(9005));
  EXPECT_EQ(run.parametersOf(9005)[3], "VANISHED_WITHOUT_BLOCKS");
}

TEST_F(StoragePackage, offers_no_health_tests_for_a_file_and_says_why) {
  EXPECT_FALSE(driver.supports("image", 2));
  EXPECT_FALSE(driver.supports("image", 3));
  EXPECT_TRUE(driver.supports("image", 4));
  EXPECT_THAT(driver.logText(), HasSubstr("FILE_WITHOUT_HEALTH"));
}

TEST_F(StoragePackage, tells_the_present_status_of_a_device) {
  DeviceEnum::IDevice* device = driver.device("image").getDevice();
  EXPECT_EQ(device->getDeviceStatus(), 0U);
  fs::remove(path());
  EXPECT_EQ(device->getDeviceStatus(), 2U);
}

TEST_F(StoragePackage, gives_each_device_a_lock_of_its_own) {
  std::vector<std::string> tags;
  for (auto& device : driver.devices()) {
    tags.push_back(device.getDevice()->getResourceTag());
  }
  EXPECT_THAT(tags, Contains("host/image"));
  EXPECT_THAT(PackageKit::findTagClashes(tags), IsEmpty());
}

TEST_F(StoragePackage, leaves_out_a_file_that_is_not_there) {
  driver.set("Package", "DeviceFile2", "/no/such/file");
  driver.devices();
  EXPECT_THAT(driver.logText(), HasSubstr("/no/such/file is no file"));
}

}  // namespace
}  // namespace TarvexDiags::Storage
