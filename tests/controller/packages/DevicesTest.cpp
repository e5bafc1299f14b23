// Which tests run on which devices, settled once when devices are enumerated.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DeviceEnum/VirtualDevice.h"
#include "Diag/IDiagnostics.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlInitialisationFailed.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlObjectNotFound.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagValidator.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "tests/support/BrokenLock.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/PackageConfig.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TraceFile.h"

TARVEX_PRIVATE_MEMBER(TestsLockTag, DiagCtrl::DiagnosticPackage::mmtxTestIdTestObjMapLock);
TARVEX_PRIVATE_MEMBER(TestIdsLockTag, DiagCtrl::DiagnosticPackage::mmtxTestIdMapLock);
TARVEX_PRIVATE_MEMBER(DevicesLockTag, DiagCtrl::DiagnosticPackage::mmtxDevIdDevObjectMapLock);
TARVEX_PRIVATE_MEMBER(DeviceIdsLockTag, DiagCtrl::DiagnosticPackage::mmtxDeviceIdListLock);
TARVEX_PRIVATE_MEMBER(DisabledDevicesLockTag, DiagCtrl::PackageTestInfo::mmtxDisDeviceListLock);
TARVEX_PRIVATE_MEMBER(EnabledTestsLockTag, DiagCtrl::DiagDevice::mmtxTestIdMapLock);

namespace TarvexDiags::DiagCtrl {
namespace {

using DeviceEnum::IDevice;
using DeviceEnum::VirtualDevice;
using DeviceEnum::VirtualDeviceVector;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using TestSupport::BrokenLock;
using TestSupport::PackageConfig;
using TestSupport::privateMember;

/// Answers which tests suit which devices, and notes in which order it was asked.
class SupportOnly final : public Diag::IDiagnostics {
 public:
  typedef std::pair<std::string, int> Pair;

  bool IsDeviceSupported(VirtualDevice& device, int testId) override {
    const Pair pair(device.getDevice()->getDeviceName(), testId);
    asked.push_back(pair);
    if (throws) {
      throw std::runtime_error("no power");
    }
    return refused.count(pair) == 0;
  }

  Diag::DiagnosticResult* runDiagnostic(VirtualDevice&, Diag::DiagnosticSettings*) override {
    return &m_result;
  }
  Diag::DiagnosticStatus getDiagnosticStatus() override { return {}; }
  void abortDiagnostic() override {}
  void suspendDiagnostic() override {}
  void resumeDiagnostic() override {}
  std::vector<Diag::DiagnosticEvent*>* getDiagnosticEvents() override { return nullptr; }
  std::vector<Diag::DiagnosticResult*>* getDiagnosticResults() override { return nullptr; }

  std::set<Pair> refused;
  std::vector<Pair> asked;
  bool throws = false;

 private:
  Diag::DiagnosticResult m_result;
};

class DevicesTest : public ::testing::Test {
 protected:
  DevicesTest() {
    DiagTracer::getInstance()->openTraceFile(m_directory.path().c_str(), 3);
    m_package = std::make_unique<DiagnosticPackage>("ALPHA", 1);
  }
  ~DevicesTest() override {
    m_package.reset();
    delete DiagUtil::getInstance();
    delete DiagValidator::getInstance();
    delete DiagTracer::getInstance();
  }

  void describe(const PackageConfig& config) {
    m_package->initialize(config.writeTo(m_directory).c_str());
  }

  /// Hands devices with these disable names over, named "first", "second" and "third".
  void enumerate(const std::vector<std::string>& disableNames) {
    static const char* const kNames[] = {"first", "second", "third"};
    VirtualDeviceVector devices;
    for (std::size_t index = 0; index < disableNames.size(); ++index) {
      devices.emplace_back(
          new IDevice("tag" + std::to_string(index), kNames[index], disableNames[index]));
    }
    m_package->createDeviceVector(&devices, &m_diagnostics);
  }

  std::vector<int> enabledOn(int device) {
    std::vector<int> tests;
    for (const auto& [test, value] : m_package->getDevice(device)->getEnableTestIdMap()) {
      EXPECT_EQ(value, 0);
      tests.push_back(test);
    }
    return tests;
  }
  std::vector<int> disabledOn(int device) {
    std::vector<int>* tests = nullptr;
    m_package->getDevice(device)->getDisbleTestList(tests);
    const std::unique_ptr<std::vector<int>> owned(tests);
    return *owned;
  }
  PackageTestInfo& test(int id) { return *m_package->getTestInfoFromPackage(id); }

  TestSupport::TemporaryDirectory m_directory;
  TestSupport::TraceFile m_trace{m_directory.path()};
  SupportOnly m_diagnostics;
  std::unique_ptr<DiagnosticPackage> m_package;
};

TEST_F(DevicesTest, devices_are_numbered_from_1_in_the_order_of_the_enumerator) {
  describe(PackageConfig(1));
  enumerate({"a", "b", "c"});
  EXPECT_EQ(m_package->getNumOfDevices(), 3);
  EXPECT_THAT(m_package->getDeviceIdList(), ElementsAre(1, 2, 3));
  ASSERT_THAT(m_package->getDeviceVector(), SizeIs(3));
  for (int id = 1; id <= 3; ++id) {
    EXPECT_EQ(m_package->getDevice(id),
              m_package->getDeviceVector()[static_cast<std::size_t>(id - 1)]);
  }
  EXPECT_EQ(m_package->getDevice(2)->getIDevice()->getDeviceName(), "second");
}

TEST_F(DevicesTest, every_pair_is_asked_for_once_device_by_device_in_ascending_order) {
  describe(PackageConfig(4).withdrawTest(2).disableTest(3));
  enumerate({"a", "b"});
  const std::vector<SupportOnly::Pair> expected = {
      {"first", 1}, {"first", 4}, {"second", 1}, {"second", 4}};
  EXPECT_EQ(m_diagnostics.asked, expected);
  enabledOn(1);
  disabledOn(2);
  test(1).getEnableDeviceList();
  EXPECT_EQ(m_diagnostics.asked, expected) << "queries do not ask again";
}

TEST_F(DevicesTest, the_three_states_of_a_pair_stand_on_both_sides) {
  describe(PackageConfig(3).disableDevices(2, {"a"}));
  m_diagnostics.refused = {{"first", 3}, {"second", 1}};
  enumerate({"a", "b"});

  EXPECT_THAT(enabledOn(1), ElementsAre(1));
  EXPECT_THAT(disabledOn(1), ElementsAre(2));
  EXPECT_THAT(enabledOn(2), ElementsAre(2, 3));
  EXPECT_THAT(disabledOn(2), IsEmpty());

  EXPECT_THAT(test(1).getEnableDeviceList(), ElementsAre(1));
  EXPECT_THAT(test(1).getDisableDeviceList(), IsEmpty()) << "not supported is not disabled";
  EXPECT_THAT(test(2).getEnableDeviceList(), ElementsAre(2));
  EXPECT_THAT(test(2).getDisableDeviceList(), ElementsAre(1));
  EXPECT_THAT(test(3).getEnableDeviceList(), ElementsAre(2));
  EXPECT_TRUE(m_trace.contains("IsDeviceSupported check failed for first"));
  EXPECT_TRUE(m_trace.contains("IsDeviceSupported check failed for second"));
}

TEST_F(DevicesTest, a_listed_device_that_does_not_support_the_test_is_in_no_list) {
  describe(PackageConfig(1).disableDevices(1, {"a"}));
  m_diagnostics.refused = {{"first", 1}};
  enumerate({"a"});
  EXPECT_THAT(disabledOn(1), IsEmpty());
  EXPECT_THAT(test(1).getDisableDeviceList(), IsEmpty());
}

TEST_F(DevicesTest, disable_names_match_in_any_case_and_all_devices_of_the_name) {
  describe(PackageConfig(1).disableDevices(1, {"other", "SLOT1"}));
  enumerate({"slot1", "Slot2", "sLoT1"});
  EXPECT_THAT(test(1).getDisableDeviceList(), ElementsAre(1, 3));
  EXPECT_THAT(test(1).getEnableDeviceList(), ElementsAre(2));
}

TEST_F(DevicesTest, device_names_do_not_count) {
  describe(PackageConfig(1).disableDevices(1, {"first"}));
  enumerate({"slot1"});
  EXPECT_THAT(enabledOn(1), ElementsAre(1));
}

TEST_F(DevicesTest, the_first_entry_of_a_test_that_applies_is_the_one_that_counts) {
  describe(PackageConfig(2)
               .disableDevices(1, {"a"}, "WinNT")
               .disableDevices(1, {"b"})
               .disableDevices(1, {"c"})
               .disableDevices(2, {"c"}, "LINUX", "65537"));
  enumerate({"a", "b", "c"});
  EXPECT_THAT(test(1).getDisableDeviceList(), ElementsAre(2));
  EXPECT_THAT(test(2).getDisableDeviceList(), ElementsAre(3));
}

TEST_F(DevicesTest, only_so_many_names_of_an_entry_are_read_as_it_counts) {
  describe(PackageConfig(1)
               .disableDevices(1, {"a", "b"})
               .withKey("DisableDeviceTestID1", "NumberOfDevice", "1"));
  enumerate({"a", "b"});
  EXPECT_THAT(test(1).getDisableDeviceList(), ElementsAre(1));
}

TEST_F(DevicesTest, an_entry_with_a_machine_id_of_zero_applies_to_no_machine) {
  describe(PackageConfig(1).disableDevices(1, {"a"}, "", "0"));
  enumerate({"a"});
  EXPECT_THAT(enabledOn(1), ElementsAre(1));
}

TEST_F(DevicesTest, a_device_without_tests_keeps_its_id) {
  describe(PackageConfig(2));
  m_diagnostics.refused = {{"first", 1}, {"first", 2}};
  enumerate({"a", "b"});
  EXPECT_THAT(enabledOn(1), IsEmpty());
  EXPECT_THAT(disabledOn(1), IsEmpty());
  EXPECT_THAT(m_package->getDeviceIdList(), ElementsAre(1, 2));
  EXPECT_THAT(enabledOn(2), ElementsAre(1, 2));
}

TEST_F(DevicesTest, no_devices_need_no_diagnostics_object) {
  describe(PackageConfig(1));
  VirtualDeviceVector none;
  m_package->createDeviceVector(&none, nullptr);
  EXPECT_EQ(m_package->getNumOfDevices(), 0);
  EXPECT_THAT(m_package->getDeviceIdList(), IsEmpty());
  EXPECT_THAT(test(1).getEnableDeviceList(), IsEmpty());
}

TEST_F(DevicesTest, devices_without_a_diagnostics_object_are_an_object_not_found) {
  describe(PackageConfig(1));
  VirtualDeviceVector devices{VirtualDevice(new IDevice("tag", "name", "disable"))};
  EXPECT_THROW(m_package->createDeviceVector(&devices, nullptr), DiagCtrlObjectNotFound);
}

TEST_F(DevicesTest, a_stand_in_without_a_device_is_an_object_not_found) {
  describe(PackageConfig(1));
  VirtualDeviceVector devices{VirtualDevice(new IDevice("tag", "name", "disable")),
                              VirtualDevice(nullptr)};
  EXPECT_THROW(m_package->createDeviceVector(&devices, &m_diagnostics), DiagCtrlObjectNotFound);
  EXPECT_EQ(m_package->getNumOfDevices(), 0);
}

TEST_F(DevicesTest, no_tests_need_no_question) {
  describe(PackageConfig(0).with("NumberOfTests", "-1"));
  enumerate({"a"});
  EXPECT_THAT(m_diagnostics.asked, IsEmpty());
  EXPECT_EQ(m_package->getNumOfDevices(), 1);
}

TEST_F(DevicesTest, a_device_outlives_the_vector_that_it_came_from) {
  describe(PackageConfig(1));
  enumerate({"a"});  // the vector is gone with the call
  DiagDevice& device = *m_package->getDevice(1);
  EXPECT_EQ(device.getIDevice()->getResourceTag(), "tag0");
  EXPECT_EQ(device.getVirtualDeviceRef().getDevice()->getDeviceStatus(), 0U);
  EXPECT_EQ(&device.getVirtualDeviceRef(), &device.getVirtualDeviceRef());
  EXPECT_EQ(device.getVirtualDeviceRef().getDevice(), device.getIDevice());
}

TEST_F(DevicesTest, the_list_of_disabled_tests_is_a_new_vector_each_time) {
  describe(PackageConfig(1).disableDevices(1, {"a"}));
  enumerate({"a"});
  std::vector<int>* first = nullptr;
  std::vector<int>* second = nullptr;
  m_package->getDevice(1)->getDisbleTestList(first);
  m_package->getDevice(1)->getDisbleTestList(second);
  const std::unique_ptr<std::vector<int>> owned[] = {std::unique_ptr<std::vector<int>>(first),
                                                     std::unique_ptr<std::vector<int>>(second)};
  EXPECT_NE(first, second);
  EXPECT_THAT(*first, ElementsAre(1));
}

TEST_F(DevicesTest, an_unknown_device_is_a_missing_key) {
  describe(PackageConfig(1));
  enumerate({"a"});
  for (const int id : {0, 2, -1}) {
    try {
      m_package->getDevice(id);
      ADD_FAILURE() << "nothing thrown";
    } catch (DiagCtrlKeyNotExistException& failure) {
      EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::KeyNotExistException);
      EXPECT_THAT(failure.dump(), HasSubstr("DiagnosticPackage::getDevice()"));
    }
  }
}

TEST_F(DevicesTest, what_the_package_throws_passes_through) {
  describe(PackageConfig(1));
  m_diagnostics.throws = true;
  EXPECT_THROW(enumerate({"a"}), std::runtime_error);
}

TEST_F(DevicesTest, a_test_that_is_offered_and_does_not_exist_is_an_object_not_found) {
  describe(PackageConfig(1));
  m_package->updateTestIdMap(9, 0);
  try {
    enumerate({"a"});
    ADD_FAILURE() << "nothing thrown";
  } catch (DiagCtrlObjectNotFound& failure) {
    EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::ObjectNotFound);
    EXPECT_THAT(failure.dump(), HasSubstr("DiagnosticPackage::createDeviceVector()"));
  }
  EXPECT_TRUE(m_trace.contains("Incorrect Flow of Program. Should Never reach here."));
}

TEST_F(DevicesTest, clearing_destroys_the_devices_and_keeps_the_list_of_ids) {
  describe(PackageConfig(1));
  enumerate({"a", "b"});
  m_package->clearPackageData();
  EXPECT_EQ(m_package->getNumOfDevices(), 0);
  EXPECT_THAT(m_package->getDeviceVector(), IsEmpty());
  EXPECT_THAT(m_package->getDeviceIdList(), ElementsAre(1, 2)) << "until devices are made anew";
}

TEST_F(DevicesTest, clearing_forgets_the_disabled_devices) {
  describe(PackageConfig(1).disableDevices(1, {"a"}));
  m_package->clearPackageData();
  m_package->updateTestIdMap(1, 0);
  m_package->updateTestIdTestObjectMap(1, new PackageTestInfo);
  enumerate({"a"});
  EXPECT_THAT(enabledOn(1), ElementsAre(1));
}

TEST_F(DevicesTest, making_devices_anew_empties_the_lists_and_destroys_nothing) {
  describe(PackageConfig(1));
  enumerate({"a", "b"});
  const DeviceVector former = m_package->getDeviceVector();
  enumerate({"c"});
  EXPECT_THAT(m_package->getDeviceVector(), SizeIs(1));
  EXPECT_EQ(m_package->getNumOfDevices(), 1);
  EXPECT_THAT(m_package->getDeviceIdList(), ElementsAre(1));
  for (DiagDevice* const device : former) {
    EXPECT_THAT(device->getEnableTestIdMap(), SizeIs(1)) << "still alive";
    delete device;
  }
}

TEST_F(DevicesTest, lists_can_be_filled_by_hand) {
  auto* const device = new DiagDevice(VirtualDevice(new IDevice("tag", "name", "disable")));
  device->updateTestIdMap(4);
  device->updateTestIdMap(4);
  device->updateDisableTestList(5);
  m_package->getDeviceVector().push_back(device);  // which owns it
  m_package->updateDevIdDevObjectMap(7, device);
  m_package->updateDeviceIdList({7});
  EXPECT_THAT(enabledOn(7), ElementsAre(4));
  EXPECT_THAT(disabledOn(7), ElementsAre(5));
  EXPECT_THAT(m_package->getDeviceIdList(), ElementsAre(7));
}

// --- Locks that cannot be taken, which the library's own always can

/// A lookup, and the operation that its failure names.
struct LockedLookup {
  const char* text;
  std::function<void()> call;
};

void expectNamed(const std::vector<LockedLookup>& lookups) {
  for (const LockedLookup& lookup : lookups) {
    try {
      lookup.call();
      ADD_FAILURE() << lookup.text << ": nothing thrown";
    } catch (DiagCtrlMutexException& failure) {
      EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::MutexException);
      EXPECT_THAT(failure.dump(), HasSubstr(lookup.text));
    }
  }
}

TEST_F(DevicesTest, a_lookup_whose_lock_fails_is_named_after_itself_or_after_that_of_devices) {
  if (!TestSupport::locksCanBreak()) {
    GTEST_SKIP() << "built without locks that can break";
  }
  describe(PackageConfig(1));
  enumerate({"a"});
  DiagnosticPackage& package = *m_package;
  PackageTestInfo& info = test(1);
  DiagDevice& device = *package.getDevice(1);
  const BrokenLock tests(privateMember<TestsLockTag>(package));
  const BrokenLock testIds(privateMember<TestIdsLockTag>(package));
  const BrokenLock devices(privateMember<DevicesLockTag>(package));
  const BrokenLock deviceIds(privateMember<DeviceIdsLockTag>(package));
  const BrokenLock disabledDevices(privateMember<DisabledDevicesLockTag>(info));
  const BrokenLock enabledTests(privateMember<EnabledTestsLockTag>(device));
  expectNamed({
      {"DiagnosticPackage::getTestIdMap()", [&] { package.getTestIdMap(); }},
      {"DiagnosticPackage::getDevice()", [&] { package.getTestInfoFromPackage(1); }},
      {"DiagnosticPackage::getDevice()", [&] { package.getDevice(1); }},
      {"DiagnosticPackage::getDevice()", [&] { package.getNumOfDevices(); }},
      {"DiagnosticPackage::getDeviceIdList()", [&] { package.getDeviceIdList(); }},
      {"DiagnosticPackage::updateDeviceIdList()", [&] { package.updateDeviceIdList({}); }},
      {"DiagnosticPackage::getDevice()", [&] { info.getDisableDeviceList(); }},
      {"DiagDevice::getEnableTestIdMap()", [&] { device.getEnableTestIdMap(); }},
  });
}

TEST_F(DevicesTest, tests_that_cannot_be_looked_up_leave_no_device) {
  if (!TestSupport::locksCanBreak()) {
    GTEST_SKIP() << "built without locks that can break";
  }
  describe(PackageConfig(1));
  {
    const BrokenLock tests(privateMember<TestsLockTag>(*m_package));
    try {
      enumerate({"a", "b"});
      ADD_FAILURE() << "nothing thrown";
    } catch (DiagCtrlObjectNotFound& failure) {
      EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::ObjectNotFound);
      EXPECT_THAT(failure.dump(), HasSubstr("DiagnosticPackage::createDeviceVector()"));
    }
  }
  EXPECT_THAT(m_package->getDeviceVector(), IsEmpty());
  EXPECT_THAT(m_package->getDeviceIdList(), IsEmpty());
  EXPECT_EQ(m_package->getNumOfDevices(), 0);
}

TEST_F(DevicesTest, a_package_that_runs_out_of_memory_keeps_nothing_half_made) {
  const std::string file = PackageConfig(4)
                               .withdrawTest(1)
                               .disableTest(2)
                               .disableDevices(3, {"a", "c"})
                               .disableDevices(3, {"b"})
                               .writeTo(m_directory);
  VirtualDeviceVector devices;
  for (const char* const name : {"a", "b", "c"}) {
    devices.emplace_back(new IDevice(name, name, name));
  }
  DiagTracer::getInstance()->setTraceLevel(DiagCtrlConstants::DIAG_NO);
  const auto describeAndEnumerate = [&] {
    DiagnosticPackage package("A package whose name needs memory", 1);
    try {
      package.initialize(file.c_str());
      package.createDeviceVector(&devices, &m_diagnostics);
    } catch (const DiagCtrlInitialisationFailed&) {
      // A file that there is no memory to read is one that cannot be read.
    }
    package.retirePackageData();
  };
  m_diagnostics.asked.reserve(1000);
  const auto nothing = [] {};
  TestSupport::failEachAllocation(nothing, describeAndEnumerate,
                                  [&] { m_diagnostics.asked.clear(); });
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
