// The classes that packages and the controller share: values, copies, numbers and virtual order.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DeviceEnum/IDeviceEnumerator.h"
#include "DeviceEnum/VirtualDevice.h"
#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticSettings.h"
#include "Diag/DiagnosticStatus.h"
#include "Diag/IDiagnostics.h"
#include "System/Lock.h"
#include "tests/support/FlagByte.h"
#include "tests/support/Places.h"
#include "tests/support/VirtualPlace.h"

namespace TarvexDiags {
namespace {

using DeviceEnum::IDevice;
using DeviceEnum::IDeviceEnumerator;
using DeviceEnum::VirtualDevice;
using DeviceEnum::VirtualDeviceVector;
using Diag::DiagnosticEvent;
using Diag::DiagnosticResult;
using Diag::DiagnosticSettings;
using Diag::DiagnosticStatus;
using Diag::IDiagnostics;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using TestSupport::placeOf;

TEST(VirtualOrder, diagnostics_interface) {
  EXPECT_EQ(placeOf(&IDiagnostics::runDiagnostic), 2U);
  EXPECT_EQ(placeOf(&IDiagnostics::IsDeviceSupported), 3U);
  EXPECT_EQ(placeOf(&IDiagnostics::getDiagnosticStatus), 4U);
  EXPECT_EQ(placeOf(&IDiagnostics::abortDiagnostic), 5U);
  EXPECT_EQ(placeOf(&IDiagnostics::suspendDiagnostic), 6U);
  EXPECT_EQ(placeOf(&IDiagnostics::resumeDiagnostic), 7U);
  EXPECT_EQ(placeOf(&IDiagnostics::getDiagnosticEvents), 8U);
  EXPECT_EQ(placeOf(&IDiagnostics::getDiagnosticResults), 9U);
  static_assert(std::is_abstract_v<IDiagnostics> && std::has_virtual_destructor_v<IDiagnostics>);
}

TEST(VirtualOrder, first_operation_behind_the_destructor) {
  EXPECT_EQ(placeOf(&DiagnosticEvent::dump), 2U);
  EXPECT_EQ(placeOf(&DiagnosticResult::dump), 2U);
  EXPECT_EQ(placeOf(&VirtualDevice::getDevice), 2U);
  EXPECT_EQ(placeOf(&IDeviceEnumerator::getDeviceVector), 2U);
  static_assert(std::has_virtual_destructor_v<DiagnosticResult> &&
                std::has_virtual_destructor_v<VirtualDevice> &&
                std::has_virtual_destructor_v<IDevice> &&
                std::has_virtual_destructor_v<IDeviceEnumerator>);
}

TEST(Enumerations, have_the_numbers_that_packages_are_built_with) {
  const auto numbers = [](auto... values) {
    return std::vector<unsigned int>{static_cast<unsigned int>(values)...};
  };
  EXPECT_THAT(numbers(IDevice::QUERY, IDevice::READ_ONLY, IDevice::WRITE_ONLY, IDevice::READ_WRITE),
              ElementsAre(0, 1, 2, 3));
  EXPECT_THAT(
      numbers(IDeviceEnumerator::CUSTOMER, IDeviceEnumerator::FACTORY, IDeviceEnumerator::BRINGUP),
      ElementsAre(0, 1, 2));
  EXPECT_THAT(numbers(DiagnosticEvent::INFORMATION_EVENT, DiagnosticEvent::WARNING_EVENT,
                      DiagnosticEvent::ERROR_EVENT),
              ElementsAre(0, 1, 2));
  EXPECT_THAT(
      numbers(DiagnosticResult::PASSED, DiagnosticResult::UNUSUAL_STATUS, DiagnosticResult::FAILED),
      ElementsAre(0, 1, 2));
  EXPECT_THAT(
      numbers(DiagnosticStatus::READY, DiagnosticStatus::COMPLETED, DiagnosticStatus::EXECUTING,
              DiagnosticStatus::SUSPENDED, DiagnosticStatus::UNKNOWN),
      ElementsAre(0, 1, 2, 3, 4));
}

template <typename Enumeration>
constexpr bool kIsUnsignedInt = std::is_same_v<std::underlying_type_t<Enumeration>, unsigned int>;

static_assert(kIsUnsignedInt<IDevice::AccessMode> &&
              kIsUnsignedInt<IDeviceEnumerator::DiagnosticMode> &&
              kIsUnsignedInt<DiagnosticEvent::EventType> &&
              kIsUnsignedInt<DiagnosticResult::TestResult> &&
              kIsUnsignedInt<DiagnosticStatus::Status>);
static_assert(std::is_same_v<Uint, unsigned int> && std::is_same_v<Ulong, unsigned long>);
static_assert(std::is_same_v<VirtualDeviceVector, std::vector<VirtualDevice>>);

// --- Events and results

DiagnosticEvent makeEvent() {
  DiagnosticEvent event;
  event.setEventCode(17);
  event.setEventType(DiagnosticEvent::ERROR_EVENT);
  event.setTestRequestId(5);
  event.setParamVector({"slot 3", "0x1f"});
  return event;
}

TEST(DiagnosticEventTest, starts_as_an_information_about_nothing) {
  DiagnosticEvent event;
  EXPECT_EQ(event.getEventCode(), 0U);
  EXPECT_EQ(event.getEventType(), DiagnosticEvent::INFORMATION_EVENT);
  EXPECT_EQ(event.getTestRequestId(), 0U);
  EXPECT_THAT(event.getParamVector(), IsEmpty());
  EXPECT_EQ(event.dump(), "code 0, type INFORMATION_EVENT, request 0, parameters []");
}

TEST(DiagnosticEventTest, returns_what_was_set) {
  const DiagnosticEvent event = makeEvent();
  EXPECT_EQ(event.getEventCode(), 17U);
  EXPECT_EQ(event.getEventType(), DiagnosticEvent::ERROR_EVENT);
  EXPECT_EQ(event.getTestRequestId(), 5U);
  EXPECT_THAT(event.getParamVector(), ElementsAre("slot 3", "0x1f"));
}

TEST(DiagnosticEventTest, dump_tells_all_of_it_on_one_line) {
  DiagnosticEvent event = makeEvent();
  EXPECT_EQ(event.dump(),
            "code 17, type ERROR_EVENT, request 5, parameters [\"slot 3\", \"0x1f\"]");
  event.setEventType(DiagnosticEvent::WARNING_EVENT);
  EXPECT_THAT(event.dump(), HasSubstr("type WARNING_EVENT"));
}

TEST(DiagnosticEventTest, dump_keeps_line_breaks_and_quotes_out) {
  DiagnosticEvent event;
  event.setParamVector({std::string("a\nb\r\0c\"d\\e\x7f", 11), "gr\xC3\xBCn"});
  EXPECT_THAT(event.dump(), HasSubstr(R"(["a\x0ab\x0d\x00c\"d\\e\x7f", ")"
                                      "gr\xC3\xBCn\"]"));
}

TEST(DiagnosticEventTest, dump_shows_a_type_out_of_range_as_a_number) {
  DiagnosticEvent event;
  event.setEventType(static_cast<DiagnosticEvent::EventType>(9));
  EXPECT_THAT(event.dump(), HasSubstr("type 9,"));
}

TEST(DiagnosticEventTest, dump_returns_a_member_that_the_next_dump_renews) {
  DiagnosticEvent event = makeEvent();
  const std::string& text = event.dump();
  event.setEventCode(18);
  EXPECT_EQ(&event.dump(), &text);
  EXPECT_THAT(text, HasSubstr("code 18,"));
}

TEST(DiagnosticEventTest, copy_is_independent) {
  auto original = std::make_unique<DiagnosticEvent>(makeEvent());
  original->dump();
  DiagnosticEvent copy(*original);
  DiagnosticEvent assigned;
  assigned = *original;
  original->setEventCode(1);
  original->setParamVector({});
  original.reset();
  EXPECT_EQ(copy.dump(), makeEvent().dump());
  EXPECT_EQ(assigned.dump(), makeEvent().dump());
}

TEST(DiagnosticEventTest, distinct_objects_are_dumped_by_many_threads) {
  DiagnosticEvent original = makeEvent();
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int index = 0; index < 4; ++index) {
    threads.emplace_back([copy = original, &wrong]() mutable {
      for (int round = 0; round < 200; ++round) {
        wrong += copy.dump() ==
                         "code 17, type ERROR_EVENT, request 5, "
                         "parameters [\"slot 3\", \"0x1f\"]"
                     ? 0
                     : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, 0);
}

TEST(DiagnosticResultTest, without_a_verdict_is_never_a_pass) {
  const DiagnosticResult result;
  EXPECT_EQ(result.getTestResult(), DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_EQ(result.getEstimatedTime(), 0);
}

TEST(DiagnosticResultTest, copy_is_independent_and_keeps_the_event) {
  DiagnosticResult result;
  result.setTestRequestId(8);
  result.setTestResult(DiagnosticResult::FAILED);
  result.setEstimatedTime(-12);
  const DiagnosticResult copy(result);
  DiagnosticResult assigned;
  assigned = result;
  result.setTestResult(DiagnosticResult::PASSED);
  result.setTestRequestId(9);
  for (const DiagnosticResult* const kept :
       {&copy, static_cast<const DiagnosticResult*>(&assigned)}) {
    EXPECT_EQ(kept->getTestRequestId(), 8U);
    EXPECT_EQ(kept->getTestResult(), DiagnosticResult::FAILED);
    EXPECT_EQ(kept->getEstimatedTime(), -12);
  }
}

TEST(DiagnosticResultTest, dump_through_the_base_adds_the_verdict) {
  DiagnosticResult result;
  DiagnosticEvent& event = result;
  result.setTestResult(DiagnosticResult::PASSED);
  result.setEstimatedTime(30);
  EXPECT_EQ(event.dump(),
            "code 0, type INFORMATION_EVENT, request 0, parameters [], "
            "result PASSED, estimated time 30");
  result.setTestResult(DiagnosticResult::FAILED);
  EXPECT_THAT(event.dump(), HasSubstr("result FAILED"));
  result.setTestResult(DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_THAT(event.dump(), HasSubstr("result UNUSUAL_STATUS"));
  result.setTestResult(static_cast<DiagnosticResult::TestResult>(3));
  EXPECT_THAT(event.dump(), HasSubstr("result 3,"));
}

TEST(DiagnosticStatusTest, starts_unknown_and_returns_what_was_set) {
  DiagnosticStatus status;
  EXPECT_EQ(status.getStatus(), DiagnosticStatus::UNKNOWN);
  EXPECT_EQ(status.getProgress(), 0U);
  EXPECT_EQ(status.getPassCount(), 0U);
  EXPECT_EQ(status.getTimeRemaining(), 0);
  status.setStatus(DiagnosticStatus::SUSPENDED);
  status.setProgress(40);
  status.setPassCount(3);
  status.setTimeRemaining(-1);
  const DiagnosticStatus copy = status;
  EXPECT_EQ(copy.getStatus(), DiagnosticStatus::SUSPENDED);
  EXPECT_EQ(copy.getProgress(), 40U);
  EXPECT_EQ(copy.getPassCount(), 3U);
  EXPECT_EQ(copy.getTimeRemaining(), -1);
}

// --- Settings

TEST(DiagnosticSettingsTest, unfilled_object_asks_for_nothing) {
  const DiagnosticSettings settings;
  EXPECT_EQ(settings.getRequestedPassCount(), 0);
  EXPECT_EQ(settings.getRunTime(), 0UL);
  EXPECT_EQ(settings.getPassCount(), 1);
  EXPECT_EQ(settings.getOpenMode(), IDevice::QUERY);
  EXPECT_EQ(settings.getQuickTestMode(), 0);
  EXPECT_EQ(settings.getStressMode(), 0);
  EXPECT_EQ(settings.getHaltOnError(), 0);
  EXPECT_FALSE(settings.getReportStatusMessage());
  EXPECT_FALSE(settings.getLogEvents());
  EXPECT_FALSE(settings.getEstimationMode());
  EXPECT_EQ(settings.getTestRequestId(), 0U);
  EXPECT_EQ(settings.getParameterPointer(), nullptr);
  EXPECT_THAT(settings.getTestNumberVector(), IsEmpty());
  EXPECT_THAT(settings.getLogfileName(), IsEmpty());
  EXPECT_EQ(settings.getRefCount(), 0);
}

TEST(DiagnosticSettingsTest, long_constructor_takes_its_arguments_in_order) {
  const DiagnosticSettings settings(true, false, true, false, true, "run.log", 4, 600, 3, 2,
                                    IDevice::READ_WRITE);
  EXPECT_EQ(settings.getQuickTestMode(), 1);
  EXPECT_EQ(settings.getStressMode(), 0);
  EXPECT_EQ(settings.getHaltOnError(), 1);
  EXPECT_FALSE(settings.getReportStatusMessage());
  EXPECT_TRUE(settings.getLogEvents());
  EXPECT_EQ(settings.getLogfileName(), "run.log");
  EXPECT_EQ(settings.getTestRequestId(), 4U);
  EXPECT_EQ(settings.getRunTime(), 600UL);
  EXPECT_EQ(settings.getRequestedPassCount(), 3);
  EXPECT_EQ(settings.getPassCount(), 2);
  EXPECT_EQ(settings.getOpenMode(), IDevice::READ_WRITE);
  EXPECT_FALSE(settings.getEstimationMode());

  const DiagnosticSettings others(false, true, false, true, false, nullptr, 0, 1, 1, 1, 0);
  EXPECT_EQ(others.getQuickTestMode(), 0);
  EXPECT_EQ(others.getStressMode(), 1);
  EXPECT_EQ(others.getHaltOnError(), 0);
  EXPECT_TRUE(others.getReportStatusMessage());
  EXPECT_FALSE(others.getLogEvents());
  EXPECT_THAT(others.getLogfileName(), IsEmpty());
}

TEST(DiagnosticSettingsTest, each_setter_changes_its_own_field_only) {
  int parameter = 0;
  DiagnosticSettings settings;
  settings.setStressMode(true);
  EXPECT_EQ(settings.getStressMode(), 1);
  EXPECT_EQ(settings.getQuickTestMode(), 0);
  EXPECT_EQ(settings.getHaltOnError(), 0);
  settings.setQuickTestMode(true);
  EXPECT_EQ(settings.getQuickTestMode(), 1);
  EXPECT_EQ(settings.getHaltOnError(), 0);
  settings.setReportStatusMessage(true);
  EXPECT_TRUE(settings.getReportStatusMessage());
  EXPECT_FALSE(settings.getLogEvents());
  settings.setEstimationMode(true);
  EXPECT_TRUE(settings.getEstimationMode());
  settings.setLogEvents(true);
  settings.setEstimationMode(false);
  EXPECT_TRUE(settings.getLogEvents());
  EXPECT_FALSE(settings.getEstimationMode());
  settings.setLogfileName("name");
  EXPECT_EQ(settings.getLogfileName(), "name");
  settings.setLogfileName(nullptr);
  EXPECT_EQ(settings.getLogfileName(), "");
  settings.setParameterPointer(&parameter);
  EXPECT_EQ(settings.getParameterPointer(), &parameter);
  settings.setOpenMode(77);
  EXPECT_EQ(static_cast<unsigned int>(settings.getOpenMode()), 77U);
  settings.setRunTime(~0UL);
  EXPECT_EQ(settings.getRunTime(), ~0UL);
  settings.setPassCount(-5);
  settings.setRequestedPassCount(-6);
  EXPECT_EQ(settings.getPassCount(), -5);
  EXPECT_EQ(settings.getRequestedPassCount(), -6);
  settings.setTestNumberVector({3, 1});
  EXPECT_THAT(settings.getTestNumberVector(), ElementsAre(3, 1));
}

TEST(DiagnosticSettingsTest, copy_is_independent) {
  int parameter = 0;
  auto original = std::make_unique<DiagnosticSettings>(true, true, true, true, true, "a.log", 9, 60,
                                                       5, 4, IDevice::WRITE_ONLY);
  original->setTestNumberVector({1, 2, 3});
  original->setParameterPointer(&parameter);
  original->setEstimationMode(true);
  const DiagnosticSettings copy(*original);
  DiagnosticSettings assigned;
  assigned = *original;
  *original = DiagnosticSettings();
  EXPECT_EQ(original->getLogfileName(), "");
  original.reset();
  for (const DiagnosticSettings* const kept :
       {&copy, static_cast<const DiagnosticSettings*>(&assigned)}) {
    EXPECT_EQ(kept->getQuickTestMode(), 1);
    EXPECT_EQ(kept->getStressMode(), 1);
    EXPECT_EQ(kept->getHaltOnError(), 1);
    EXPECT_TRUE(kept->getReportStatusMessage());
    EXPECT_TRUE(kept->getLogEvents());
    EXPECT_EQ(kept->getLogfileName(), "a.log");
    EXPECT_EQ(kept->getTestRequestId(), 9U);
    EXPECT_EQ(kept->getRunTime(), 60UL);
    EXPECT_EQ(kept->getRequestedPassCount(), 5);
    EXPECT_EQ(kept->getPassCount(), 4);
    EXPECT_EQ(kept->getOpenMode(), IDevice::WRITE_ONLY);
    EXPECT_EQ(kept->getParameterPointer(), &parameter);
    EXPECT_TRUE(kept->getEstimationMode());
    EXPECT_THAT(kept->getTestNumberVector(), ElementsAre(1, 2, 3));
  }
}

TEST(DiagnosticSettingsTest, assignment_to_itself_changes_nothing) {
  DiagnosticSettings settings;
  settings.setTestNumberVector({7});
  settings.setLogfileName("kept");
  const DiagnosticSettings& same = settings;
  settings = same;
  EXPECT_THAT(settings.getTestNumberVector(), ElementsAre(7));
  EXPECT_EQ(settings.getLogfileName(), "kept");
}

TEST(DiagnosticSettingsTest, three_flags_show_a_byte_that_is_no_bool) {
  DiagnosticSettings settings;
  TestSupport::storeFlagByte(settings, &DiagnosticSettings::setHaltOnError, 2);
  TestSupport::storeFlagByte(settings, &DiagnosticSettings::setStressMode, 7);
  TestSupport::storeFlagByte(settings, &DiagnosticSettings::setQuickTestMode, 255);
  const DiagnosticSettings copy(settings);
  DiagnosticSettings assigned;
  assigned = settings;
  for (const DiagnosticSettings* const seen :
       {static_cast<const DiagnosticSettings*>(&settings), &copy,
        static_cast<const DiagnosticSettings*>(&assigned)}) {
    EXPECT_EQ(seen->getHaltOnError(), 2);
    EXPECT_EQ(seen->getStressMode(), 7);
    EXPECT_EQ(seen->getQuickTestMode(), 255);
  }
  settings.setHaltOnError(true);
  EXPECT_EQ(settings.getHaltOnError(), 1);
}

TEST(DiagnosticSettingsTest, references_are_counted_for_each_request) {
  DiagnosticSettings settings;
  settings.setTestRequestId(1);
  EXPECT_EQ(settings.addRef(), 1);
  EXPECT_EQ(settings.addRef(), 2);
  settings.setTestRequestId(2);
  EXPECT_EQ(settings.getRefCount(), 0);
  EXPECT_EQ(settings.addRef(), 1);
  EXPECT_EQ(settings.removeRef(), 0);
  EXPECT_EQ(settings.removeRef(), 0) << "a count never goes below zero";
  EXPECT_EQ(settings.getRefCount(), 0);
  settings.setTestRequestId(1);
  EXPECT_EQ(settings.getRefCount(), 2);
  EXPECT_EQ(settings.removeRef(), 1);
}

TEST(DiagnosticSettingsTest, nobody_holds_a_reference_to_a_fresh_copy) {
  DiagnosticSettings settings;
  settings.addRef();
  const DiagnosticSettings copy(settings);
  EXPECT_EQ(copy.getRefCount(), 0);
  DiagnosticSettings held;
  held.addRef();
  held.addRef();
  held = settings;
  EXPECT_EQ(held.getRefCount(), 2) << "references to the target stay";
  EXPECT_EQ(settings.getRefCount(), 1);
}

TEST(DiagnosticSettingsTest, is_read_and_copied_while_another_thread_writes) {
  DiagnosticSettings settings(false, false, false, false, false, "x.log", 1, 60, 1000, 1, 0);
  std::atomic<bool> ended{false};
  std::thread judge([&] {
    for (int pass = 1; pass <= 2000; ++pass) {
      settings.setPassCount(pass);
      settings.setHaltOnError(pass % 2 == 0);
      settings.setOpenMode(static_cast<unsigned int>(pass) % 4);
      settings.setRunTime(static_cast<unsigned long>(pass));
      settings.addRef();
    }
    ended = true;
  });
  int last = 0;
  bool ordered = true;
  while (!ended) {
    const DiagnosticSettings copy(settings);
    ordered = ordered && copy.getPassCount() >= last && copy.getHaltOnError() <= 1 &&
              settings.getPassCount() >= copy.getPassCount();
    last = copy.getPassCount();
    settings.getRefCount();
  }
  judge.join();
  EXPECT_TRUE(ordered);
  EXPECT_EQ(settings.getPassCount(), 2000);
  EXPECT_EQ(settings.getRefCount(), 2000);
}

TEST(LockTest, copy_and_assignment_leave_both_sides_as_they_are) {
  System::Lock held;
  held.lock();
  System::Lock copy(held);
  EXPECT_TRUE(copy.tryLock()) << "a copy starts free";
  System::Lock other;
  other = held;
  EXPECT_TRUE(other.tryLock());
  held = other;
  std::thread([&] { EXPECT_FALSE(held.tryLock()) << "still held by the first thread"; }).join();
  held.unlock();
  copy.unlock();
  other.unlock();
  const std::lock_guard<System::Lock> guard(held);
}

TEST(LockTest, keeps_threads_apart) {
  System::Lock lock;
  int count = 0;
  const auto raise = [&] {
    for (int round = 0; round < 1000; ++round) {
      const std::lock_guard<System::Lock> held(lock);
      ++count;
    }
  };
  std::thread first(raise);
  std::thread second(raise);
  first.join();
  second.join();
  EXPECT_EQ(count, 2000);
}

// --- Devices

/// A device that counts how many of its kind there are.
class CountedDevice : public IDevice {
 public:
  explicit CountedDevice(std::atomic<int>& living)
      : IDevice("root/bus/slot", "disk 1", "disk"), m_living(living) {
    ++m_living;
  }
  ~CountedDevice() override { --m_living; }
  unsigned int getDeviceStatus() override { return 11; }

 private:
  std::atomic<int>& m_living;
};

TEST(DeviceTest, keeps_its_three_names) {
  IDevice device("a/b", "name", "short");
  EXPECT_EQ(device.getResourceTag(), "a/b");
  EXPECT_EQ(device.getDeviceName(), "name");
  EXPECT_EQ(device.getDisableDeviceName(), "short");
  EXPECT_EQ(&device.getResourceTag(), &device.getResourceTag()) << "a reference, not a copy";
  EXPECT_EQ(device.getDeviceStatus(), 0U);
  static_assert(!std::is_copy_constructible_v<IDevice> && !std::is_copy_assignable_v<IDevice>);
}

TEST(VirtualDeviceTest, last_copy_deletes_the_device) {
  std::atomic<int> living{0};
  {
    VirtualDevice device(new CountedDevice(living));
    {
      VirtualDevice copy(device);
      VirtualDevice third(copy);
      EXPECT_EQ(copy.getDevice(), device.getDevice());
      EXPECT_EQ(third.getDevice(), device.getDevice());
    }
    EXPECT_EQ(living, 1);
    EXPECT_EQ(device.getDevice()->getDeviceStatus(), 11U);
  }
  EXPECT_EQ(living, 0);
}

TEST(VirtualDeviceTest, copy_works_after_the_vector_that_it_came_from_was_freed) {
  std::atomic<int> living{0};
  auto* const devices = new VirtualDeviceVector;
  for (int count = 0; count < 10; ++count) {
    devices->push_back(VirtualDevice(new CountedDevice(living)));
  }
  EXPECT_EQ(living, 10);
  auto copy = std::make_unique<VirtualDevice>((*devices)[4]);
  delete devices;
  EXPECT_EQ(living, 1);
  EXPECT_EQ(copy->getDevice()->getDeviceName(), "disk 1");
  copy.reset();
  EXPECT_EQ(living, 0);
}

TEST(VirtualDeviceTest, assignment_lets_go_of_the_former_device) {
  std::atomic<int> living{0};
  VirtualDevice first(new CountedDevice(living));
  VirtualDevice second(new CountedDevice(living));
  IDevice* const kept = second.getDevice();
  first = second;
  EXPECT_EQ(living, 1);
  EXPECT_EQ(first.getDevice(), kept);
  const VirtualDevice& same = first;
  first = same;
  EXPECT_EQ(living, 1);
  EXPECT_EQ(first.getDevice(), kept);
}

TEST(VirtualDeviceTest, stands_in_for_no_device) {
  VirtualDevice none(nullptr);
  VirtualDevice copy(none);
  EXPECT_EQ(copy.getDevice(), nullptr);
  static_assert(!std::is_convertible_v<IDevice*, VirtualDevice>, "taking over is explicit");
}

TEST(VirtualDeviceTest, copies_are_made_and_destroyed_by_many_threads) {
  std::atomic<int> living{0};
  auto original = std::make_unique<VirtualDevice>(new CountedDevice(living));
  std::vector<std::thread> threads;
  for (int index = 0; index < 4; ++index) {
    threads.emplace_back([own = *original]() mutable {
      for (int round = 0; round < 1000; ++round) {
        VirtualDevice copy(own);
        own = copy;
      }
    });
  }
  original.reset();
  for (std::thread& thread : threads) {
    thread.join();
  }
  threads.clear();
  EXPECT_EQ(living, 0);
}

TEST(VirtualDeviceTest, package_is_unloaded_once_its_devices_are_gone) {
  const std::string path = TestSupport::modulePath("framework_device_module");
  void* const package = dlopen(path.c_str(), RTLD_NOW);
  ASSERT_NE(package, nullptr) << dlerror();
  const auto makeDevices =
      reinterpret_cast<VirtualDeviceVector* (*)()>(dlsym(package, "makeDevices"));
  ASSERT_NE(makeDevices, nullptr);
  {
    const std::unique_ptr<VirtualDeviceVector> devices(makeDevices());
    VirtualDevice copy(devices->front());
    EXPECT_EQ(copy.getDevice()->getDeviceStatus(), 42U);
  }
  EXPECT_EQ(dlclose(package), 0);
  EXPECT_EQ(dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

/// An enumerator without devices, which shows its protected fields.
class BareEnumerator : public IDeviceEnumerator {
 public:
  using IDeviceEnumerator::IDeviceEnumerator;
  VirtualDeviceVector* getDeviceVector(const char* /*resourceString*/,
                                       Uint /*deviceType*/) override {
    return nullptr;
  }
  bool diagLog() const { return m_diagLog; }
  DiagnosticMode diagMode() const { return m_diagMode; }
};

TEST(DeviceEnumeratorTest, keeps_what_the_controller_passes_to_the_package) {
  const BareEnumerator plain;
  EXPECT_FALSE(plain.diagLog());
  EXPECT_EQ(plain.diagMode(), IDeviceEnumerator::CUSTOMER);
  const BareEnumerator given(true, IDeviceEnumerator::BRINGUP);
  EXPECT_TRUE(given.diagLog());
  EXPECT_EQ(given.diagMode(), IDeviceEnumerator::BRINGUP);
}

TEST(DeviceEnumeratorTest, builds_a_resource_tag_component_by_component) {
  BareEnumerator enumerator;
  std::string tag;
  EXPECT_EQ(enumerator.generateResourceTag(tag, "pci0"), "pci0");
  EXPECT_EQ(enumerator.generateResourceTag(tag, "bus3"), "pci0/bus3");
  const std::string& returned = enumerator.generateResourceTag(tag, "slot1");
  EXPECT_EQ(&returned, &tag);
  EXPECT_EQ(tag, "pci0/bus3/slot1");
  EXPECT_EQ(enumerator.generateResourceTag(tag, nullptr), "pci0/bus3/slot1/");
}

///  The smallest package: every operation can be implemented, and deletion reaches the derived
///  part.
class BareDiagnostics : public IDiagnostics {
 public:
  explicit BareDiagnostics(bool& destroyed) : m_destroyed(destroyed) {}
  ~BareDiagnostics() override { m_destroyed = true; }
  DiagnosticResult* runDiagnostic(VirtualDevice& /*device*/,
                                  DiagnosticSettings* settings) override {
    m_result.setTestRequestId(settings->getTestRequestId());
    m_result.setTestResult(DiagnosticResult::PASSED);
    return &m_result;
  }
  bool IsDeviceSupported(VirtualDevice& device, int testId) override {
    return device.getDevice() != nullptr && testId == 1;
  }
  DiagnosticStatus getDiagnosticStatus() override { return {}; }
  void abortDiagnostic() override {}
  void suspendDiagnostic() override {}
  void resumeDiagnostic() override {}
  std::vector<DiagnosticEvent*>* getDiagnosticEvents() override { return nullptr; }
  std::vector<DiagnosticResult*>* getDiagnosticResults() override {
    return new std::vector<DiagnosticResult*>{new DiagnosticResult(m_result)};
  }

 private:
  bool& m_destroyed;
  DiagnosticResult m_result;
};

TEST(DiagnosticsTest, is_implemented_and_deleted_through_the_interface) {
  bool destroyed = false;
  VirtualDevice device(new IDevice("tag", "name", "name"));
  DiagnosticSettings settings;
  settings.setTestRequestId(6);
  {
    const std::unique_ptr<IDiagnostics> diagnostics = std::make_unique<BareDiagnostics>(destroyed);
    EXPECT_TRUE(diagnostics->IsDeviceSupported(device, 1));
    EXPECT_EQ(diagnostics->getDiagnosticEvents(), nullptr);
    const DiagnosticResult* const result = diagnostics->runDiagnostic(device, &settings);
    const std::unique_ptr<std::vector<DiagnosticResult*>> drained(
        diagnostics->getDiagnosticResults());
    ASSERT_EQ(drained->size(), 1U);
    const std::unique_ptr<DiagnosticResult> first(drained->front());
    EXPECT_NE(first.get(), result);
    EXPECT_EQ(first->getTestRequestId(), 6U);
    EXPECT_EQ(first->getTestResult(), DiagnosticResult::PASSED);
    EXPECT_EQ(diagnostics->getDiagnosticStatus().getStatus(), DiagnosticStatus::UNKNOWN);
  }
  EXPECT_TRUE(destroyed);
}

}  // namespace
}  // namespace TarvexDiags
