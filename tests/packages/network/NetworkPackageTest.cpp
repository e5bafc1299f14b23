// The network package as the controller loads it, in namespaces where no real interface is.

#include <net/if.h>
#include <netlink/route/link/veth.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "packagekit/ResourceTags.h"
#include "packagekit/testing/PackageDriver.h"
#include "packages/network/InterfaceSetter.h"
#include "packages/network/Links.h"
#include "packages/network/Netlink.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Network {
namespace {

using Diag::DiagnosticResult;
using PackageKit::DiagnosticMode;
using PackageKit::Testing::PackageDriver;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using TestSupport::eventually;

PackageDriver::Run runQuick(PackageDriver& driver, const std::string& device,
                            const std::vector<int>& tests) {
  PackageDriver::Options options;
  options.quickMode = true;
  return driver.run(device, tests, options);
}

/// @brief The warnings and errors of a run, for people to read when a test fails.
std::string complaintsOf(const PackageDriver::Run& run) {
  std::string text;
  for (const auto& event : run.events) {
    if (event.type != PackageKit::EventType::INFORMATION_EVENT) {
      text += "\n" + std::to_string(event.code);
      for (const std::string& parameter : event.parameters) {
        text += " " + parameter;
      }
    }
  }
  return text;
}

/// @brief A test that does not answer would be killed after twice that: half a second is shown on a
/// machine that does nothing else.
constexpr auto kAbortLimit = std::chrono::seconds(30);

class NetworkPackage : public testing::Test {
 protected:
  PackageDriver driver{TARVEX_PACKAGE_DIR, "network"};
};

TEST_F(NetworkPackage, passes_on_the_loopback_interface) {
  driver.set("TestID4", "QuickStreamMegabytes", "64").set("TestID5", "QuickDatagrams", "2000");
  const auto run = runQuick(driver, "lo", {4, 5});
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED) << complaintsOf(run);
  EXPECT_TRUE(run.has(4));
  EXPECT_TRUE(run.has(5));
  EXPECT_GT(std::stod(run.measurement("streamRate")), 0);
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(NetworkPackage, warns_of_a_rate_below_the_one_asked_for) {
  driver.set("TestID4", "QuickStreamMegabytes", "16").set("TestID4", "MinimumRate", "1000000000");
  const auto run = runQuick(driver, "lo", {4});
  EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_TRUE(run.has(104));
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(NetworkPackage, quick_request_takes_what_the_user_set_for_all_requests) {
  driver.set("TestID5", "QuickDatagrams", "").set("TestID5", "Datagrams", "700");
  const auto run = runQuick(driver, "lo", {5});
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED) << complaintsOf(run);
  EXPECT_EQ(run.parametersOf(5).at(1), "700");
}

TEST_F(NetworkPackage, setting_that_is_missing_leaves_no_verdict_and_is_named) {
  driver.set("TestID4", "StallSeconds", "");
  const auto run = runQuick(driver, "lo", {4});
  EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_THAT(run.parametersOf(9006).at(3),
              HasSubstr("the key StallSeconds is missing for test 4"));
}

TEST_F(NetworkPackage, offers_on_the_loopback_interface_only_what_makes_sense_there) {
  EXPECT_FALSE(driver.supports("lo", 1));
  EXPECT_FALSE(driver.supports("lo", 2));
  EXPECT_FALSE(driver.supports("lo", 3));
  EXPECT_TRUE(driver.supports("lo", 4));
  EXPECT_TRUE(driver.supports("lo", 5));
  EXPECT_FALSE(driver.supports("lo", 6));
  EXPECT_THAT(driver.logText(), HasSubstr("LOOPBACK_WITHOUT_PARTNER"));
}

TEST_F(NetworkPackage, gives_each_device_a_lock_of_its_own) {
  std::vector<std::string> tags;
  for (auto& device : driver.devices()) {
    tags.push_back(device.getDevice()->getResourceTag());
  }
  EXPECT_THAT(tags, Contains("host/lo"));
  EXPECT_THAT(PackageKit::findTagClashes(tags), IsEmpty());
  EXPECT_EQ(driver.device("lo").getDevice()->getDeviceStatus(), 0U);
}

/// @brief In a namespace of its own, so that the pair is the only thing there besides "lo".
class NetworkPackagePair : public testing::Test {
 protected:
  void SetUp() override {
    if (unshare(CLONE_NEWNET) != 0) {
      GTEST_SKIP() << "needs CAP_SYS_ADMIN: " << std::strerror(errno);
    }
    const NetlinkSocket socket;
    if (rtnl_link_veth_add(socket.get(), "left", "right", getpid()) < 0) {
      GTEST_SKIP() << "the kernel has no virtual pairs";
    }
  }

  void configure(PackageDriver& driver) const {
    driver.set("TestID6", "FirstInterface", "left").set("TestID6", "SecondInterface", "right");
    driver.set("TestID6", "RecordDirectory", folder.path());
    driver.set("TestID6", "QuickStreamMegabytes", "16").set("TestID6", "QuickDatagrams", "1000");
    driver.set("TestID6", "CarrierSeconds", "10");
  }

  TestSupport::TemporaryDirectory folder;
};

TEST_F(NetworkPackagePair, passes_in_factory_mode) {
  PackageDriver driver(TARVEX_PACKAGE_DIR, "network", DiagnosticMode::FACTORY);
  configure(driver);
  ASSERT_TRUE(driver.supports("left", 6)) << driver.logText();
  EXPECT_FALSE(driver.supports("right", 6));
  const auto run = runQuick(driver, "left", {6});
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED) << complaintsOf(run);
  EXPECT_GT(std::stod(run.measurement("streamRateBack")), 0);
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
  EXPECT_EQ(driver.device("left").getDevice()->getDeviceStatus(), 2U) << "is back, switched off";
}

TEST_F(NetworkPackagePair, is_not_offered_to_customers) {
  PackageDriver driver(TARVEX_PACKAGE_DIR, "network", DiagnosticMode::CUSTOMER);
  configure(driver);
  for (const int test : {3, 6}) {
    EXPECT_FALSE(driver.supports("left", test));
    EXPECT_THAT(driver.logText(),
                HasSubstr("test " + std::to_string(test) +
                          " is not supported on host/left: KIT_NOT_OFFERED (CUSTOMER)"));
  }
}

TEST_F(NetworkPackagePair, fails_without_a_partner) {
  PackageDriver driver(TARVEX_PACKAGE_DIR, "network", DiagnosticMode::FACTORY);
  const NetlinkSocket socket;
  ASSERT_EQ(rtnl_link_veth_add(socket.get(), "other", "alone", getpid()), 0);
  configure(driver);
  driver.set("TestID6", "SecondInterface", "other").set("TestID6", "CarrierSeconds", "0.1");
  const auto run = runQuick(driver, "left", {6});
  EXPECT_EQ(run.verdict, DiagnosticResult::FAILED);
  EXPECT_TRUE(run.has(201));
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

/// @brief The number in the record of an interface that is away: the process that took it.
pid_t ownerOf(const std::string& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::ifstream file(entry.path());
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with("owner=")) {
        return std::stoi(line.substr(std::string("owner=").size()));
      }
    }
  }
  return 0;
}

/// @brief For the kernel to move interfaces, which takes turns on the whole machine.
constexpr auto kPatience = std::chrono::seconds(100);

bool isUp(const std::string& interface) {
  return if_nametoindex(interface.c_str()) != 0 && readLink(interface).up;
}

TEST_F(NetworkPackagePair, is_as_before_after_the_death_of_its_worker) {
  InterfaceSetter("left").switchOn();
  PackageDriver driver(TARVEX_PACKAGE_DIR, "network", DiagnosticMode::FACTORY);
  configure(driver);
  driver.set("TestID6", "QuickStreamMegabytes", "1000000");
  driver.devices();
  std::thread killer([&] {
    pid_t worker = 0;
    EXPECT_TRUE(eventually([&] { return (worker = ownerOf(folder.path())) > 0; }, kPatience));
    EXPECT_TRUE(eventually([] { return if_nametoindex("right") == 0; }, kPatience));
    // Without a number the signal would be for all that run these tests.
    ASSERT_GT(worker, 0);
    kill(worker, SIGKILL);
  });
  const auto run = runQuick(driver, "left", {6});
  killer.join();
  EXPECT_NE(run.verdict, DiagnosticResult::PASSED);
  EXPECT_TRUE(eventually([] { return isUp("left") && if_nametoindex("right") != 0; }, kPatience));
  EXPECT_FALSE(isUp("right")) << "was off before";
  EXPECT_TRUE(eventually([&] { return std::filesystem::is_empty(folder.path()); }));
}

TEST_F(NetworkPackagePair, answers_an_abort_at_any_moment_and_is_as_before) {
  PackageDriver driver(TARVEX_PACKAGE_DIR, "network", DiagnosticMode::FACTORY);
  configure(driver);
  driver.set("TestID6", "StreamMegabytes", "1000000").set("Package", "AbortGrace", "60");
  DeviceEnum::VirtualDevice& device = driver.device("left");
  for (int moment = 0; moment < 10; ++moment) {
    const auto diagnostics = driver.makeDiagnostics();
    Diag::DiagnosticSettings settings;
    settings.setTestNumberVector({6});
    std::thread pass([&] { diagnostics->runDiagnostic(device, &settings); });
    std::this_thread::sleep_for(moment * std::chrono::milliseconds(15));
    const auto begin = std::chrono::steady_clock::now();
    diagnostics->abortDiagnostic();
    pass.join();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kAbortLimit) << "moment " << moment;
    EXPECT_NE(if_nametoindex("left"), 0U);
    EXPECT_NE(if_nametoindex("right"), 0U);
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(NetworkPackagePair, has_no_verdict_while_it_is_switched_off) {
  PackageDriver driver(TARVEX_PACKAGE_DIR, "network");
  configure(driver);
  const auto run = runQuick(driver, "left", {1});
  EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_EQ(run.parametersOf(9040).at(3), "INTERFACE_OFF");
}

}  // namespace
}  // namespace TarvexDiags::Network
