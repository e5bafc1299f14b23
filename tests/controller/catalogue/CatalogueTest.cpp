// Queries on packages, devices and tests.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "tests/support/BigLock.h"
#include "tests/support/ControllerTest.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/ThreadState.h"

TARVEX_PRIVATE_MEMBER(ShutDownRequestTag, DiagCtrl::DiagnosticController::mbShutDownRequest);

namespace TarvexDiags::Catalogue {
namespace {

using DiagCtrl::DiagDevice;
using DiagCtrl::DiagnosticController;
using DiagCtrl::DiagnosticPackage;
using DiagCtrl::PackageList;
using DiagCtrl::PackageTestInfo;
using Scripted::Call;
using Scripted::CallRecord;
using Scripted::Script;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsNull;
using TestSupport::Companion;
using TestSupport::ControllerTest;
using TestSupport::PackageConfig;
using enum DiagnosticController::errorCode;
typedef std::vector<int> Ids;

constexpr unsigned int kLargest = 4294967295U;

/// ALPHA has four tests: 2 is withdrawn in its own section, 3 by an entry for any machine, and 4 is
/// disabled on the device "second". Of its three devices the last supports nothing. BETA has one of
/// each, GAMMA is left out by the control file.
class CatalogueTest : public ControllerTest {
 protected:
  void SetUp() override {
    alpha
        .setDevices({{.tag = "a/1", .name = "first", .status = 4},
                     {.tag = "a/2", .name = "second", .status = 5},
                     {.tag = "a/3", .name = "third", .status = 6}})
        .setSupport([](const std::string& device, int) { return device != "third"; });
    harness.addPackage("BETA");
    harness.addPackage("GAMMA");
    harness.control().disablePackage("GAMMA");
    harness.control().traced(harness.directory().path()).with("DebugLog", "DIAG_ERROR");
    harness.start();
    alpha.clearLog();
  }

  /// A call that must fail, with a vector all the same.
  void expectFailure(Code code, const std::function<Code(Ids*&)>& ask) {
    Ids* ids = nullptr;
    EXPECT_EQ(ask(ids), code);
    const std::unique_ptr<Ids> owned(ids);
    ASSERT_NE(ids, nullptr);
    EXPECT_THAT(*ids, IsEmpty());
  }

  Script& alpha = harness.addPackage(
      "ALPHA", PackageConfig(4).withdrawTest(2).disableTest(3).disableDevices(4, {"SECOND"}));
};

TEST_F(CatalogueTest, packages_are_counted_and_found_by_index) {
  int count = 0;
  EXPECT_EQ(controller().getNumberOfDiagPackages(count), SUCCESS);
  EXPECT_EQ(count, 2);
  DiagnosticPackage* package = nullptr;
  EXPECT_EQ(controller().getDiagPackage(1, package), SUCCESS);
  EXPECT_STREQ(package->getPackageBaseName(), "ALPHA");
  EXPECT_EQ(controller().getDiagPackage(2, package), SUCCESS);
  EXPECT_STREQ(package->getPackageBaseName(), "BETA");
}

TEST_F(CatalogueTest, a_pointer_into_the_catalogue_is_the_same_at_each_query) {
  DiagDevice* device = nullptr;
  DiagDevice* again = nullptr;
  EXPECT_EQ(controller().getDevice(1, 2, device), SUCCESS);
  EXPECT_EQ(controller().getDevice(1, 2, again), SUCCESS);
  EXPECT_EQ(device, again);
  EXPECT_EQ(device->getIDevice()->getDeviceName(), "second");
  PackageTestInfo* test = nullptr;
  EXPECT_EQ(controller().getTest(1, 4, test), SUCCESS);
  EXPECT_STREQ(test->getTestName(), "Test 4");
}

TEST_F(CatalogueTest, all_devices_and_all_tests_on_offer_are_listed_in_order) {
  DiagnosticController& c = controller();
  EXPECT_THAT(idsOf([&](Ids*& ids) { return c.getDeviceIdList(1, ids); }), ElementsAre(1, 2, 3));
  EXPECT_THAT(idsOf([&](Ids*& ids) { return c.getTestIdList(1, ids); }), ElementsAre(1, 4));
}

TEST_F(CatalogueTest, pairs_are_valid_where_a_device_supports_a_test_that_is_not_disabled) {
  DiagnosticController& c = controller();
  const auto devicesOf = [&](unsigned int test) {
    return idsOf([&](Ids*& ids) { return c.getValidDeviceIdList(1, test, ids); });
  };
  const auto testsOf = [&](unsigned int device) {
    return idsOf([&](Ids*& ids) { return c.getValidTestIdList(1, device, ids); });
  };
  EXPECT_THAT(devicesOf(1), ElementsAre(1, 2));
  EXPECT_THAT(devicesOf(4), ElementsAre(1));
  EXPECT_THAT(testsOf(1), ElementsAre(1, 4));
  EXPECT_THAT(testsOf(2), ElementsAre(1));
  EXPECT_THAT(testsOf(3), IsEmpty()) << "it supports nothing";
}

TEST_F(CatalogueTest, a_test_that_no_device_supports_has_no_valid_device) {
  alpha.setSupport([](const std::string&, int) { return false; });
  ASSERT_EQ(controller().enumerateDiagPackages(1), SUCCESS);
  EXPECT_THAT(idsOf([&](Ids*& ids) { return controller().getValidDeviceIdList(1, 1, ids); }),
              IsEmpty());
}

TEST_F(CatalogueTest, what_was_left_out_is_listed_by_the_way_it_was_left_out) {
  DiagnosticController& c = controller();
  EXPECT_THAT(idsOf([&](Ids*& ids) { return c.getDisableTestList(1, ids); }), ElementsAre(3))
      << "not the test that its own section withdraws";
  EXPECT_THAT(idsOf([&](Ids*& ids) { return c.getDisableDeviceList(1, 4, ids); }), ElementsAre(2))
      << "not the device that does not support it";
  EXPECT_THAT(idsOf([&](Ids*& ids) { return c.getDisableDeviceList(1, 1, ids); }), IsEmpty());
  PackageList* packages = nullptr;
  EXPECT_EQ(c.getDisablePackageList(packages), SUCCESS);
  EXPECT_THAT(*std::unique_ptr<PackageList>(packages), ElementsAre(::testing::StrEq("GAMMA")));
}

TEST_F(CatalogueTest, a_vector_is_the_clients_to_change) {
  Ids* ids = nullptr;
  ASSERT_EQ(controller().getDeviceIdList(1, ids), SUCCESS);
  const std::unique_ptr<Ids> owned(ids);
  ids->clear();
  EXPECT_THAT(idsOf([&](Ids*& more) { return controller().getDeviceIdList(1, more); }),
              ElementsAre(1, 2, 3));
}

TEST_F(CatalogueTest, queries_ask_no_package_and_are_served_while_tests_run) {
  alpha.holdRuns();
  harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  const auto asked = alpha.count(Call::IsSupported);
  DiagnosticController& c = controller();
  EXPECT_THAT(idsOf([&](Ids*& ids) { return c.getValidTestIdList(1, 1, ids); }), ElementsAre(1, 4));
  EXPECT_THAT(idsOf([&](Ids*& ids) { return c.getTestIdList(2, ids); }), ElementsAre(1));
  EXPECT_EQ(alpha.count(Call::IsSupported), asked);
}

// ---- What does not exist -----------------------------------------------------------------------

TEST_F(CatalogueTest, an_unknown_package_has_nothing) {
  DiagnosticController& c = controller();
  for (const int index : {0, -1, 3, 99}) {
    SCOPED_TRACE(index);
    DiagnosticPackage* package = nullptr;
    DiagDevice* device = nullptr;
    PackageTestInfo* test = nullptr;
    unsigned int status = 77;
    EXPECT_EQ(c.getDiagPackage(index, package), OBJECT_NOT_FOUND);
    EXPECT_EQ(c.getDevice(index, 1, device), OBJECT_NOT_FOUND);
    EXPECT_EQ(c.getTest(index, 1, test), OBJECT_NOT_FOUND);
    EXPECT_EQ(c.getDeviceStatus(index, 1, status), OBJECT_NOT_FOUND);
    EXPECT_THAT(package, IsNull());
    EXPECT_THAT(device, IsNull());
    EXPECT_THAT(test, IsNull());
    EXPECT_EQ(status, 77U);
    const auto missing = OBJECT_NOT_FOUND;
    expectFailure(missing, [&](Ids*& ids) { return c.getDeviceIdList(index, ids); });
    expectFailure(missing, [&](Ids*& ids) { return c.getValidDeviceIdList(index, 1, ids); });
    expectFailure(missing, [&](Ids*& ids) { return c.getTestIdList(index, ids); });
    expectFailure(missing, [&](Ids*& ids) { return c.getValidTestIdList(index, 1, ids); });
    expectFailure(missing, [&](Ids*& ids) { return c.getDisableTestList(index, ids); });
    expectFailure(missing, [&](Ids*& ids) { return c.getDisableDeviceList(index, 1, ids); });
    EXPECT_THAT(harness.ctrlEvents(), Each("OBJECT_NOT_FOUND E 0"));
    EXPECT_EQ(harness.ctrlEvents().size(), 10U);
    harness.forget();
  }
}

TEST_F(CatalogueTest, an_unknown_device_is_not_found) {
  DiagnosticController& c = controller();
  for (const unsigned int id : {0U, 4U, kLargest}) {
    SCOPED_TRACE(id);
    DiagDevice* device = nullptr;
    unsigned int status = 77;
    EXPECT_EQ(c.getDevice(1, id, device), DEVICE_NOT_FOUND);
    EXPECT_EQ(c.getDeviceStatus(1, static_cast<int>(id), status), DEVICE_NOT_FOUND);
    EXPECT_THAT(device, IsNull());
    EXPECT_EQ(status, 77U);
    expectFailure(DEVICE_NOT_FOUND, [&](Ids*& ids) { return c.getValidTestIdList(1, id, ids); });
    EXPECT_THAT(harness.ctrlEvents(), ElementsAre("DEVICE_NOT_FOUND E 0", "DEVICE_NOT_FOUND E 0",
                                                  "DEVICE_NOT_FOUND E 0"));
    harness.forget();
  }
}

TEST_F(CatalogueTest, an_unknown_or_withdrawn_test_is_not_found) {
  DiagnosticController& c = controller();
  for (const unsigned int id : {0U, 2U, 3U, 5U, kLargest}) {
    SCOPED_TRACE(id);
    PackageTestInfo* test = nullptr;
    EXPECT_EQ(c.getTest(1, id, test), TEST_OBJECT_NOT_FOUND);
    EXPECT_THAT(test, IsNull());
    const auto missing = TEST_OBJECT_NOT_FOUND;
    expectFailure(missing, [&](Ids*& ids) { return c.getValidDeviceIdList(1, id, ids); });
    expectFailure(missing, [&](Ids*& ids) { return c.getDisableDeviceList(1, id, ids); });
    EXPECT_THAT(harness.ctrlEvents(),
                ElementsAre("TEST_OBJECT_NOT_FOUND E 0", "TEST_OBJECT_NOT_FOUND E 0",
                            "TEST_OBJECT_NOT_FOUND E 0"));
    harness.forget();
  }
}

TEST_F(CatalogueTest, a_query_that_fails_is_traced_with_its_code) {
  Ids* ids = nullptr;
  EXPECT_EQ(controller().getTestIdList(9, ids), OBJECT_NOT_FOUND);
  delete ids;
  DiagDevice* device = nullptr;
  EXPECT_EQ(controller().getDevice(1, 9, device), DEVICE_NOT_FOUND);
  EXPECT_TRUE(trace().contains("DiagnosticController::getTestIdList failed: 20"));
  EXPECT_TRUE(trace().contains("DiagnosticController::getDevice failed: 12"));
  EXPECT_EQ(trace().count(" failed: "), 2U);
}

TEST_F(CatalogueTest, names_that_an_ended_enumeration_left_over_count_without_an_index) {
  harness.shutDown();
  harness.initialize();
  auto& shutDownRequest = TestSupport::privateMember<ShutDownRequestTag>(controller());
  alpha.on(Call::GetDevices, [&](const CallRecord&) { shutDownRequest = true; });
  EXPECT_EQ(controller().enumerateAllPackages(), SUCCESS);
  shutDownRequest = false;
  int count = 0;
  EXPECT_EQ(controller().getNumberOfDiagPackages(count), SUCCESS);
  EXPECT_EQ(count, 2);
  DiagnosticPackage* package = nullptr;
  EXPECT_EQ(controller().getDiagPackage(1, package), SUCCESS);
  EXPECT_EQ(controller().getDiagPackage(2, package), OBJECT_NOT_FOUND);
}

// ---- The status of a device -----------------------------------------------------------------

TEST_F(CatalogueTest, the_status_of_a_device_is_asked_each_time) {
  unsigned int status = 0;
  EXPECT_EQ(controller().getDeviceStatus(1, 2, status), SUCCESS);
  EXPECT_EQ(status, 5U);
  alpha.setDeviceStatus("second", kLargest);
  EXPECT_EQ(controller().getDeviceStatus(1, 2, status), SUCCESS);
  EXPECT_EQ(status, kLargest);
  EXPECT_EQ(alpha.count(Call::DeviceStatus), 2U);
}

TEST_F(CatalogueTest, one_device_is_asked_at_a_time_across_all_packages) {
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  for (const char* name : {"ALPHA", "BETA"}) {
    Script::of(name).on(Call::DeviceStatus, [&](const CallRecord&) {
      most = std::max(most.load(), ++inside);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      --inside;
    });
  }
  {
    std::vector<std::unique_ptr<Companion>> clients;
    for (const int package : {1, 2, 1, 2}) {
      clients.push_back(std::make_unique<Companion>([this, package] {
        unsigned int status = 0;
        for (int i = 0; i < 5; ++i) {
          EXPECT_EQ(controller().getDeviceStatus(package, 1, status), SUCCESS);
        }
      }));
    }
  }
  EXPECT_EQ(most, 1);
}

TEST_F(CatalogueTest, a_device_that_throws_counts_as_not_found_and_leaves_no_lock) {
  alpha.throwAt(Call::DeviceStatus, "no power");
  unsigned int status = 77;
  EXPECT_EQ(controller().getDeviceStatus(1, 1, status), DEVICE_NOT_FOUND);
  EXPECT_EQ(status, 77U);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("DEVICE_NOT_FOUND E 0"));
  EXPECT_EQ(controller().getDeviceStatus(2, 1, status), SUCCESS);
}

// ---- Locks -----------------------------------------------------------------------------------

TEST_F(CatalogueTest, the_count_alone_waits_for_the_big_lock) {
  DiagCtrl::DiagCtrlLock& bigLock = TestSupport::bigLockOf(controller());
  bigLock.lock(-1);
  int count = 0;
  Companion counter([&] { controller().getNumberOfDiagPackages(count); });
  EXPECT_TRUE(waitsForBigLock(counter));
  Companion others([&] {
    DiagnosticController& c = controller();
    DiagnosticPackage* package = nullptr;
    DiagDevice* device = nullptr;
    unsigned int status = 0;
    PackageList* list = nullptr;
    EXPECT_EQ(c.getDiagPackage(1, package), SUCCESS);
    EXPECT_EQ(c.getDevice(1, 1, device), SUCCESS);
    EXPECT_EQ(c.getDeviceStatus(1, 1, status), SUCCESS);
    EXPECT_EQ(c.getDisablePackageList(list), SUCCESS);
    delete list;
    EXPECT_THAT(idsOf([&](Ids*& ids) { return c.getDeviceIdList(1, ids); }), ElementsAre(1, 2, 3));
  });
  EXPECT_TRUE(others.ends());
  bigLock.unlock();
  EXPECT_TRUE(counter.ends());
  EXPECT_EQ(count, 2);
}

}  // namespace
}  // namespace TarvexDiags::Catalogue
