// Discovery of packages and their enumeration, when it goes well.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "tests/support/ControllerTest.h"
#include "tests/support/Places.h"
#include "tests/support/ProcessMaps.h"
#include "tests/support/ThreadState.h"
#include "tests/support/WaitPlace.h"

namespace TarvexDiags::DiagCtrl {
namespace {

using Scripted::Call;
using Scripted::CallRecord;
using Scripted::Living;
using Scripted::Script;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using TestSupport::Companion;
using TestSupport::ControllerHarness;
using TestSupport::ControllerTest;
using TestSupport::isMapped;
using TestSupport::PackageConfig;
using enum DiagnosticController::errorCode;
using Phase = DiagControllerStatus;

class EnumerationTest : public ControllerTest {
 protected:
  /// Everything up to the enumeration, with controller events collected.
  void startWithoutEnumeration() {
    harness.initialize();
    harness.registerForAll();
  }
  int packageCount() {
    int count = -1;
    EXPECT_EQ(controller().getNumberOfDiagPackages(count), SUCCESS);
    return count;
  }
  std::vector<std::string> disabledPackages() {
    PackageList* list = nullptr;
    EXPECT_EQ(controller().getDisablePackageList(list), SUCCESS);
    const std::unique_ptr<PackageList> owned(list);
    return {list->begin(), list->end()};
  }
  std::vector<int> tests(int package) {
    return idsOf([&](std::vector<int>*& ids) { return controller().getTestIdList(package, ids); });
  }
  std::vector<int> devices(int package) {
    return idsOf(
        [&](std::vector<int>*& ids) { return controller().getDeviceIdList(package, ids); });
  }
  int progress() {
    int value = -7;
    EXPECT_EQ(controller().getEnumerationProgress(value), SUCCESS);
    return value;
  }
  /// The values of the progress, in the order in which they were set.
  std::vector<std::string> tracedProgress() {
    const std::string text = "Progress of Enumeration is : : ";
    std::vector<std::string> values;
    for (const std::string& line : trace().rawLines()) {
      if (const auto at = line.find(text); at != std::string::npos) {
        values.push_back(line.substr(at + text.size()));
      }
    }
    return values;
  }
};

// ---- What is a package ---------------------------------------------------------------------

TEST_F(EnumerationTest, an_empty_directory_can_be_tried_again_once_a_package_lies_in_it) {
  startWithoutEnumeration();
  EXPECT_EQ(controller().enumerateAllPackages(), NO_PACKAGE_ENABLED);
  EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
  harness.addPackage("ALPHA");
  EXPECT_EQ(controller().enumerateAllPackages(), SUCCESS);
  EXPECT_THAT(harness.catalogue(), ElementsAre("ALPHA"));
  EXPECT_EQ(harness.phase(), Phase::IDLE);
}

TEST_F(EnumerationTest, a_directory_that_cannot_be_read_is_told_and_can_be_tried_again) {
  const std::string missing = harness.directory().file("packages");
  harness.control().packDirPath(missing);
  startWithoutEnumeration();
  EXPECT_EQ(controller().enumerateAllPackages(), PACKAGE_FILE_NOT_FOUND);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("UNABLE_TO_READ_CURRENT_DIR E 0"));
  EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
  std::filesystem::create_directory(missing);
  EXPECT_EQ(controller().enumerateByPackageClass({}), NO_PACKAGE_ENABLED);
}

TEST_F(EnumerationTest, a_client_that_fetches_when_the_failure_wakes_it_is_served) {
  harness.control().packDirPath(harness.directory().file("packages"));
  startWithoutEnumeration();
  for (int go = 0; go < 50 && !HasFailure(); ++go) {
    auto code = OUT_OF_RANGE;
    TestSupport::Companion client([&] {
      harness.callBack().wait();
      DiagCtrl::CtrlEventVector* events = nullptr;
      code = controller().getDiagnosticCtrlEvents(1, events);
      const std::unique_ptr<DiagCtrl::CtrlEventVector> owned(events);
      if (events != nullptr) {
        std::for_each(events->begin(), events->end(), [](auto* event) { delete event; });
      }
    });
    ASSERT_TRUE(TestSupport::waitsAt(client, TestSupport::waitPlaceOf(harness.callBack())));
    EXPECT_EQ(controller().enumerateAllPackages(), PACKAGE_FILE_NOT_FOUND);
    ASSERT_TRUE(client.ends());
    EXPECT_EQ(code, SUCCESS);
  }
}

TEST_F(EnumerationTest, a_bad_list_of_disabled_packages_is_read_anew_at_the_next_try) {
  harness.addPackage("ALPHA");
  harness.addPackage("BETA");
  harness.control().disablePackage("ALPHA").withKey("DisablePackage", "NumPackages", "2");
  startWithoutEnumeration();
  EXPECT_EQ(controller().enumerateAllPackages(), INVALID_VALUE_IN_CONFIG_FILE);
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
  EXPECT_EQ(harness.phase(), Phase::INITIALIZE);
  harness.control().withKey("DisablePackage", "NumPackages", "1").writeTo(harness.directory());
  EXPECT_EQ(controller().enumerateAllPackages(), SUCCESS);
  EXPECT_THAT(harness.catalogue(), ElementsAre("BETA"));
  EXPECT_THAT(disabledPackages(), ElementsAre("ALPHA")) << "though its entry was read twice";
}

TEST_F(EnumerationTest, the_last_extension_alone_makes_a_name_one_of_a_package) {
  harness.addPackage("ALPHA");
  harness.addPackage("B.cfg");
  for (const std::string other : {"GAMMA.cfg.bak", "DELTA.cfg~", "EPSILON.CFG", "ZETAcfg"}) {
    harness.packages().directory().write(other, PackageConfig().text());
    harness.packages().copyLibrary(other.substr(0, other.find('.')),
                                   TestSupport::modulePath("loader_complete"));
  }
  harness.start();
  EXPECT_THAT(harness.catalogue(), ElementsAre("ALPHA", "B.cfg"));
}

TEST_F(EnumerationTest, a_name_of_nothing_but_the_extension_is_one_of_a_package_too) {
  harness.addPackage("");
  harness.addPackage("ALPHA");
  harness.start();
  EXPECT_THAT(harness.catalogue(), ElementsAre("", "ALPHA"));
}

TEST_F(EnumerationTest, a_description_without_a_library_that_can_be_read_is_passed_over) {
  harness.addPackage("ALPHA");
  harness.addPackage("BETA");
  harness.packages().removeLibrary("BETA");
  harness.addPackage("GAMMA");
  harness.packages().removeLibrary("GAMMA");
  std::filesystem::create_symlink("/nonexistent/library", harness.packages().libraryPath("GAMMA"));
  harness.packages().copyLibrary("DELTA",
                                 TestSupport::modulePath("loader_complete"));  // and no description
  harness.start();
  EXPECT_THAT(harness.catalogue(), ElementsAre("ALPHA"));
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
}

TEST_F(EnumerationTest, packages_stand_in_the_byte_order_of_their_names) {
  for (const char* name : {"b", "B", "a10", "a2", "a", "A_1", "A1", "Z"}) {
    harness.addPackage(name);
  }
  harness.start();
  EXPECT_THAT(harness.catalogue(), ElementsAre("A1", "A_1", "B", "Z", "a", "a10", "a2", "b"));
}

// ---- Disabled packages -----------------------------------------------------------------------

TEST_F(EnumerationTest, with_every_package_disabled_the_enumeration_succeeds_without_any) {
  harness.addPackage("ALPHA");
  harness.addPackage("BETA");
  harness.control().disablePackage("ALPHA").disablePackage("BETA").disablePackage("MISSING");
  harness.start();
  EXPECT_EQ(harness.phase(), Phase::IDLE);
  EXPECT_EQ(packageCount(), 0);
  EXPECT_THAT(disabledPackages(), ::testing::UnorderedElementsAre("ALPHA", "BETA"));
  EXPECT_THAT(Script::of("ALPHA").calls(), IsEmpty());
}

TEST_F(EnumerationTest, packages_are_disabled_by_their_base_name_and_with_regard_to_case) {
  harness.addPackage("ALPHA", PackageConfig().named("DisplayName").mnemonic("MNEMO"));
  harness.control().disablePackage("alpha").disablePackage("DisplayName").disablePackage("MNEMO");
  harness.start();
  EXPECT_THAT(harness.catalogue(), ElementsAre("ALPHA"));
  EXPECT_THAT(disabledPackages(), IsEmpty());
}

TEST_F(EnumerationTest, of_two_entries_for_one_package_the_one_that_applies_decides) {
  harness.addPackage("ALPHA");
  harness.addPackage("BETA");
  harness.control().disablePackage("ALPHA", "WinNT").disablePackage("ALPHA");
  harness.start();
  EXPECT_THAT(harness.catalogue(), ElementsAre("BETA"));
  EXPECT_THAT(disabledPackages(), ElementsAre("ALPHA"));
}

TEST_F(EnumerationTest, names_of_disabled_packages_stay_readable_after_a_shut_down) {
  harness.addPackage("ALPHA");
  harness.control().disablePackage("ALPHA");
  harness.start();
  PackageList* list = nullptr;
  ASSERT_EQ(controller().getDisablePackageList(list), SUCCESS);
  const std::unique_ptr<PackageList> owned(list);
  harness.shutDown();
  EXPECT_STREQ(list->front(), "ALPHA");
}

// ---- What a package is asked -------------------------------------------------------------------

TEST_F(EnumerationTest, a_package_is_asked_in_order_and_its_objects_go_in_order) {
  Script& alpha = harness.addPackage("ALPHA", PackageConfig(2));
  harness.start();
  std::vector<std::string> calls;
  for (const CallRecord& call : alpha.calls()) {
    calls.emplace_back(Scripted::nameOf(call.call));
  }
  EXPECT_THAT(calls, ElementsAre("SetConfigFile", "SetLogDir", "GetEnumerator", "GetDevices",
                                 "GetDiagnostics", "IsSupported", "IsSupported",
                                 "DestroyDiagnostics", "DestroyEnumerator"));
  EXPECT_EQ(alpha.living(), (Living{.diagnostics = 0, .enumerators = 0, .devices = 1}));
}

TEST_F(EnumerationTest, a_package_hears_of_its_files_its_resource_and_the_modes) {
  Script& alpha = harness.addPackage(
      "ALPHA", PackageConfig().with("ResourceLockProperty", "bus").with("DeviceType", "42"));
  harness.control().logDirPath(harness.directory().path());
  harness.control().with("DiagLog", "TRUE").with("DiagnosticMode", "BRINGUP");
  harness.start();
  EXPECT_EQ(alpha.calls(Call::SetConfigFile)[0].text, harness.packages().configPath("ALPHA"));
  EXPECT_EQ(alpha.calls(Call::SetLogDir)[0].text, harness.directory().path());
  const CallRecord devices = alpha.calls(Call::GetDevices)[0];
  EXPECT_EQ(devices.text, "bus");
  EXPECT_EQ(devices.deviceType, 42U);
  for (const Call call : {Call::GetEnumerator, Call::GetDiagnostics}) {
    EXPECT_TRUE(alpha.calls(call)[0].diagLog);
    EXPECT_EQ(alpha.calls(call)[0].diagMode, static_cast<unsigned int>(GlobalSettings::BRINGUP));
  }
}

TEST_F(EnumerationTest, a_package_without_devices_enumerates_well) {
  harness.addPackage("ALPHA").setDevices(0);
  harness.start();
  EXPECT_THAT(devices(1), IsEmpty());
}

TEST_F(EnumerationTest, two_devices_of_one_resource_tag_are_traced_and_both_stay) {
  harness.addPackage("ALPHA").setDevices(
      {{.tag = "bus/slot", .name = "first"}, {.tag = "bus/slot", .name = "second"}});
  harness.control().traced(harness.directory().path()).with("DebugLog", "DIAG_WARNING");
  harness.start();
  EXPECT_THAT(devices(1), ElementsAre(1, 2));
  EXPECT_TRUE(trace().contains("RESOURCE_TAG_EXISTS: bus/slot"));
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
  EXPECT_EQ(controller().enumerateDiagPackages(1), SUCCESS);
  EXPECT_TRUE(trace().contains("NO_RESOURCE_TAG: bus/slot")) << "it was removed with the first";
}

TEST_F(EnumerationTest, the_trace_tells_each_name_and_never_a_veto) {
  harness.addPackage("ALPHA");
  harness.trace();
  harness.initialize();
  EXPECT_EQ(controller().enumerateByPackageClass({"SCRIPTED"}), SUCCESS);
  EXPECT_TRUE(trace().contains("package name is : ALPHA"));
  EXPECT_TRUE(trace().contains("Found package: "));
  EXPECT_FALSE(trace().contains("Dropping following package: "));
  EXPECT_FALSE(trace().contains("failing enumeration of"));
}

// ---- Dependencies ------------------------------------------------------------------------------

TEST_F(EnumerationTest, a_dependency_is_looked_for_beside_the_package_and_closed_again) {
  harness.addPackage("ALPHA", PackageConfig().with("SODependencies", "libhelper.so"));
  harness.packages().copyLibrary("helper", TestSupport::modulePath("loader_complete"));
  harness.start();
  EXPECT_THAT(harness.catalogue(), ElementsAre("ALPHA"));
  EXPECT_FALSE(isMapped(harness.packages().libraryPath("helper")));
}

TEST_F(EnumerationTest, a_dependency_is_looked_for_where_the_loader_looks_as_well) {
  harness.addPackage("ALPHA", PackageConfig().with("SODependencies", "libm.so.6"));
  harness.start();
  EXPECT_THAT(harness.catalogue(), ElementsAre("ALPHA"));
}

// ---- Classes -----------------------------------------------------------------------------------

class PackageClassTest : public EnumerationTest {
 protected:
  PackageClassTest() {
    harness.addPackage("ALPHA", PackageConfig().mnemonic("MEM").named("Memory"));
    harness.addPackage("BETA", PackageConfig().mnemonic("NET").named("Network"));
    harness.addPackage("GAMMA", PackageConfig().mnemonic("MEM").named("More memory"));
    startWithoutEnumeration();
  }
};

TEST_F(PackageClassTest, packages_with_a_wanted_mnemonic_stay) {
  EXPECT_EQ(controller().enumerateByPackageClass({"CPU", "MEM"}), SUCCESS);
  EXPECT_THAT(harness.catalogue(), ElementsAre("ALPHA", "GAMMA"));
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
  EXPECT_THAT(Script::of("BETA").calls(), IsEmpty());
}

TEST_F(PackageClassTest, the_result_is_that_of_the_last_package) {
  EXPECT_EQ(controller().enumerateByPackageClass({"NET"}), UNABLE_TO_LOAD_PACKAGE);
  EXPECT_THAT(harness.catalogue(), ElementsAre("BETA"));
  EXPECT_EQ(harness.phase(), Phase::IDLE);
}

TEST_F(PackageClassTest, case_counts_and_display_names_do_not) {
  EXPECT_EQ(controller().enumerateByPackageClass({"mem", "Memory", "ME"}), UNABLE_TO_LOAD_PACKAGE);
  EXPECT_EQ(packageCount(), 0);
  EXPECT_EQ(harness.phase(), Phase::IDLE) << "even with no package left";
}

TEST_F(PackageClassTest, an_empty_vector_wants_all) {
  EXPECT_EQ(controller().enumerateByPackageClass({}), SUCCESS);
  EXPECT_EQ(packageCount(), 3);
}

// ---- Progress ----------------------------------------------------------------------------------

TEST_F(EnumerationTest, progress_is_nothing_before_and_all_after_an_enumeration) {
  EXPECT_EQ(progress(), 0);
  Script& alpha = harness.addPackage("ALPHA");
  startWithoutEnumeration();
  EXPECT_EQ(progress(), 0);
  harness.enumerate();
  EXPECT_EQ(progress(), 100);
  alpha.holdRuns();
  harness.queue("ALPHA", 1, {1});
  EXPECT_EQ(progress(), 100);
}

TEST_F(EnumerationTest, progress_counts_packages_that_stay_against_those_not_yet_failed) {
  harness.control().traced(harness.directory().path()).with("DebugLog", "DIAG_ERROR");
  harness.addPackage("A");
  harness.addPackage("B", PackageConfig().without("Mnemonic"));
  harness.addPackage("C");
  std::vector<int> seen;
  for (const char* name : {"A", "C"}) {
    Script::of(name).on(Call::GetDevices, [&](const CallRecord&) {
      Companion other([&] { seen.push_back(progress()); });  // without the big lock
      EXPECT_TRUE(other.ends());
    });
  }
  harness.start();
  EXPECT_THAT(seen, ElementsAre(0, 33));
  EXPECT_THAT(tracedProgress(), ElementsAre("0", "33", "100"));
  EXPECT_THAT(harness.catalogue(), ElementsAre("A", "C")) << "without a gap in the indices";
}

TEST_F(EnumerationTest, with_the_last_package_failing_progress_stays_below_all_until_idle) {
  harness.control().traced(harness.directory().path()).with("DebugLog", "DIAG_ERROR");
  harness.addPackage("A");
  harness.addPackage("B");
  harness.addPackage("C", PackageConfig().without("Mnemonic"));
  startWithoutEnumeration();
  EXPECT_EQ(controller().enumerateAllPackages(), PACKAGE_INITIALIZE_FAILED);
  EXPECT_THAT(tracedProgress(), ElementsAre("0", "33", "66"));
  EXPECT_EQ(progress(), 100);
  EXPECT_EQ(harness.phase(), Phase::IDLE);
}

TEST_F(EnumerationTest, an_early_failure_does_not_show_in_the_result) {
  harness.addPackage("A", PackageConfig().without("Mnemonic"));
  harness.addPackage("B");
  startWithoutEnumeration();
  EXPECT_EQ(controller().enumerateAllPackages(), SUCCESS);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("PACKAGE_INITIALIZE_FAILED W 0"));
}

TEST_F(EnumerationTest, a_second_enumeration_is_refused) {
  harness.addPackage("ALPHA");
  harness.start();
  EXPECT_EQ(controller().enumerateAllPackages(), INCORRECT_PHASE);
  EXPECT_EQ(controller().enumerateByPackageClass({}), INCORRECT_PHASE);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("INCORRECT_PHASE E 0", "INCORRECT_PHASE E 0"));
  EXPECT_THAT(Script::of("ALPHA").calls(Call::GetDevices), SizeIs(1));
}

// ---- One package again -------------------------------------------------------------------------

TEST_F(EnumerationTest, one_package_again_reads_its_description_and_asks_for_its_devices_anew) {
  Script& alpha = harness.addPackage("ALPHA", PackageConfig(3));
  harness.addPackage("BETA");
  harness.start();
  harness.packages().writeConfig("ALPHA", PackageConfig(2).named("New name").withdrawTest(1));
  alpha.setDevices(2);
  alpha.clearLog();
  EXPECT_EQ(controller().enumerateDiagPackages(1), SUCCESS);
  EXPECT_EQ(harness.phase(), Phase::IDLE);
  EXPECT_THAT(tests(1), ElementsAre(2));
  EXPECT_THAT(devices(1), ElementsAre(1, 2));
  EXPECT_THAT(alpha.calls(Call::SetConfigFile), SizeIs(1));
  EXPECT_EQ(alpha.living().devices, 2);
  DiagnosticPackage* package = nullptr;
  ASSERT_EQ(controller().getDiagPackage(1, package), SUCCESS);
  EXPECT_STREQ(package->getPackageName(), "New name");
  const unsigned long id = harness.queue("ALPHA", 2, {2});
  EXPECT_TRUE(harness.awaitEnd(id)) << "its new devices have resource locks";
  EXPECT_THAT(harness.results(), ElementsAre("PASSED 1"));
}

TEST_F(EnumerationTest, one_package_again_closes_the_library_that_was_open) {
  harness.addPackage("ALPHA");
  harness.start();
  const std::string old = harness.packages().directory().file("old.so");
  std::filesystem::rename(harness.packages().libraryPath("ALPHA"), old);
  ASSERT_TRUE(isMapped(old));
  harness.packages().copyLibrary("ALPHA", TestSupport::modulePath("loader_complete"));
  EXPECT_EQ(controller().enumerateDiagPackages(1), SUCCESS);
  EXPECT_FALSE(isMapped(old));
}

TEST_F(EnumerationTest, an_unknown_package_again_is_not_found_without_an_event) {
  harness.addPackage("ALPHA");
  harness.start();
  for (const int index : {0, -1, 2, 99}) {
    EXPECT_EQ(controller().enumerateDiagPackages(index), PACKAGE_NOT_FOUND);
    EXPECT_EQ(harness.phase(), Phase::IDLE);
  }
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
  EXPECT_THAT(harness.catalogue(), ElementsAre("ALPHA"));
}

TEST_F(EnumerationTest, a_package_that_fails_again_leaves_the_catalogue_but_not_the_count) {
  harness.addPackage("ALPHA");
  harness.addPackage("BETA");
  harness.start();
  harness.packages().writeConfig("ALPHA", PackageConfig().without("Mnemonic"));
  EXPECT_EQ(controller().enumerateDiagPackages(1), PACKAGE_INITIALIZE_FAILED);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("PACKAGE_INITIALIZE_FAILED W 0"));
  EXPECT_EQ(harness.phase(), Phase::IDLE);
  EXPECT_EQ(packageCount(), 2);
  DiagnosticPackage* package = nullptr;
  EXPECT_EQ(controller().getDiagPackage(1, package), OBJECT_NOT_FOUND);
  EXPECT_EQ(controller().getDiagPackage(2, package), SUCCESS);
  char key[] = "Mnemonic";
  char* token = nullptr;
  EXPECT_EQ(controller().getPackageToken(1, key, token), PACKAGE_NOT_FOUND);
  EXPECT_EQ(controller().enumerateDiagPackages(1), PACKAGE_NOT_FOUND) << "it has no index any more";
}

TEST_F(EnumerationTest, a_package_that_throws_again_leaves_the_catalogue_and_no_lock) {
  Script& alpha = harness.addPackage("ALPHA");
  harness.start();
  alpha.throwAt(Call::GetDevices, "not now");
  EXPECT_EQ(controller().enumerateDiagPackages(1), PACKAGE_NOT_FOUND);
  EXPECT_EQ(harness.phase(), Phase::IDLE);
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
  EXPECT_EQ(packageCount(), 1);
  EXPECT_EQ(alpha.living(), Living{});
}

// ---- One package again while requests of it still live --------------------------------------

class HalfQueuedTest : public EnumerationTest {
 protected:
  /// Leaves one request that runs under IDLE: the second device of the package fails to queue.
  void queueHalf() {
    alpha.setDevices(2);
    harness.start();
    alpha.holdRuns();
    const std::string library = harness.packages().libraryPath("ALPHA");
    alpha.on(Call::GetDiagnostics, [this, library](const CallRecord&) {
      harness.packages().copyLibrary("ALPHA", TestSupport::modulePath("loader_complete"));
      std::filesystem::resize_file(library, 5000);
    });
    auto settings = ControllerHarness::settings();
    VectorTestReqId* ids = nullptr;
    EXPECT_EQ(controller().queueTest(1, settings, ids), LOAD_LIBRARY_FAILED);
    harness.packages().copyLibrary("ALPHA", TestSupport::modulePath("scripted_package"));
    EXPECT_THAT(*std::unique_ptr<VectorTestReqId>(ids), ElementsAre(1U));
    EXPECT_EQ(harness.phase(), Phase::IDLE);
    ASSERT_TRUE(alpha.awaitRunning(1));
    alpha.on(Call::GetDiagnostics, {});
  }

  Script& alpha = harness.addPackage("ALPHA", PackageConfig(1));
};

TEST_F(HalfQueuedTest, the_device_that_a_request_uses_is_kept_until_the_shut_down) {
  queueHalf();
  alpha.setDevices(1);
  EXPECT_EQ(controller().enumerateDiagPackages(1), SUCCESS);
  EXPECT_THAT(devices(1), ElementsAre(1)) << "replaced at once";
  EXPECT_EQ(alpha.living().devices, 3) << "two of them kept aside";
  EXPECT_EQ(alpha.running(), 1);
  alpha.releaseRuns();
  ASSERT_TRUE(alpha.awaitCalls(Call::RunReturn));
  harness.shutDown();
  EXPECT_EQ(alpha.living(), Living{});
  EXPECT_FALSE(isMapped(harness.packages().libraryPath("ALPHA")));
}

TEST_F(HalfQueuedTest, the_device_is_kept_also_by_a_package_that_leaves_the_catalogue) {
  queueHalf();
  harness.packages().writeConfig("ALPHA", PackageConfig().without("Mnemonic"));
  EXPECT_EQ(controller().enumerateDiagPackages(1), PACKAGE_INITIALIZE_FAILED);
  EXPECT_EQ(alpha.living().devices, 2);
  alpha.releaseRuns();
  ASSERT_TRUE(alpha.awaitCalls(Call::RunReturn));
  harness.shutDown();
  EXPECT_EQ(alpha.living(), Living{});
  EXPECT_FALSE(isMapped(harness.packages().libraryPath("ALPHA")));
}

TEST_F(HalfQueuedTest, the_request_goes_on_once_a_later_one_makes_the_controller_active) {
  queueHalf();
  EXPECT_EQ(controller().enumerateDiagPackages(1), SUCCESS);
  const unsigned long later = harness.queue("ALPHA", 2, {1});
  EXPECT_EQ(later, 2U);
  alpha.releaseRuns();
  EXPECT_TRUE(harness.awaitEnd(1));
  EXPECT_TRUE(harness.awaitEnd(later));
  EXPECT_THAT(harness.results(), ::testing::UnorderedElementsAre("PASSED 1", "PASSED 2"));
}

TEST_F(HalfQueuedTest, a_request_that_was_forgotten_is_unknown_at_once_and_freed_by_the_shut_down) {
  queueHalf();
  EXPECT_EQ(controller().clearRequestIdList(), SUCCESS);
  TestRequest* request = nullptr;
  EXPECT_EQ(controller().getTestRequest(1, request), OBJECT_NOT_FOUND);
  EXPECT_THAT(harness.requestIds(), IsEmpty());
  EXPECT_EQ(alpha.running(), 1);
  EXPECT_EQ(controller().enumerateDiagPackages(1), SUCCESS);
  alpha.releaseRuns();
  ASSERT_TRUE(alpha.awaitCalls(Call::RunReturn));
  harness.shutDown();
  EXPECT_EQ(alpha.living(), Living{});
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
