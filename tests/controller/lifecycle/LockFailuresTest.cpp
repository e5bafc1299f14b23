// What becomes of a lock that cannot be taken in the calls that enumerate, query, queue, estimate
// and give texts: the result, the event, and outputs that stay as they were.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Diag/DiagnosticResult.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "DiagCtrl/TestRequestManager.h"
#include "tests/support/BigLock.h"
#include "tests/support/BrokenLock.h"
#include "tests/support/ControllerTest.h"
#include "tests/support/CtrlEventTap.h"
#include "tests/support/PrivateMember.h"

TARVEX_PRIVATE_MEMBER(StatusTag, DiagCtrl::DiagnosticController::mpDiagCtrlStatus);
TARVEX_PRIVATE_MEMBER(PhaseLock, DiagCtrl::DiagControllerStatus::mmtxDiagCtrlStatusLock);
TARVEX_PRIVATE_MEMBER(ShutDownLock, DiagCtrl::DiagnosticController::mmtxShutDownLock);
TARVEX_PRIVATE_MEMBER(PackagesLock, DiagCtrl::DiagnosticController::mmtxPackageVectorLock);
TARVEX_PRIVATE_MEMBER(DisabledPackagesLock, DiagCtrl::DiagnosticController::mmtxDisPackageListLock);
TARVEX_PRIVATE_MEMBER(DeviceStatusLock, DiagCtrl::DiagnosticController::mmtxDeviceStatusLock);
TARVEX_PRIVATE_MEMBER(ProgressLock, DiagCtrl::DiagnosticController::mmtxProgressLock);
TARVEX_PRIVATE_MEMBER(TestIdsLock, DiagCtrl::DiagnosticPackage::mmtxTestIdMapLock);
TARVEX_PRIVATE_MEMBER(TestsLock, DiagCtrl::DiagnosticPackage::mmtxTestIdTestObjMapLock);
TARVEX_PRIVATE_MEMBER(DevicesLock, DiagCtrl::DiagnosticPackage::mmtxDevIdDevObjectMapLock);
TARVEX_PRIVATE_MEMBER(DeviceIdsLock, DiagCtrl::DiagnosticPackage::mmtxDeviceIdListLock);
TARVEX_PRIVATE_MEMBER(EnabledTestsLock, DiagCtrl::DiagDevice::mmtxTestIdMapLock);
TARVEX_PRIVATE_MEMBER(DisabledDevicesLock, DiagCtrl::PackageTestInfo::mmtxDisDeviceListLock);
TARVEX_PRIVATE_MEMBER(SettingsLock, DiagCtrl::GlobalSettings::mmtxGlobalSettLock);
TARVEX_PRIVATE_MEMBER(RequestsLock, DiagCtrl::TestRequestManager::mmtxTestReqIdMapLock);

namespace TarvexDiags::Lifecycle {
namespace {

using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagDevice;
using DiagCtrl::DiagnosticController;
using DiagCtrl::DiagnosticPackage;
using DiagCtrl::GlobalSettings;
using DiagCtrl::PackageTestInfo;
using DiagCtrl::TestRequestManager;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsNull;
using TestSupport::BrokenLock;
using TestSupport::ControllerHarness;
using TestSupport::ControllerTest;
using TestSupport::CtrlEventTap;
using TestSupport::privateMember;
using enum DiagnosticController::errorCode;
typedef DiagnosticController::errorCode Code;
typedef std::vector<int> Ids;
typedef std::vector<std::string> Lines;

/// The calls of these tests, each with outputs that a failure must leave as they are.
class Calls {
 public:
  typedef std::function<Code()> Call;
  typedef std::vector<std::pair<std::string, Call>> Named;

  explicit Calls(DiagnosticController& controller) : c(controller) {}

  Named enumerations() {
    return {{"enumerateAllPackages", [this] { return c.enumerateAllPackages(); }},
            {"enumerateByPackageClass", [this] { return c.enumerateByPackageClass({"X"}); }},
            {"enumerateDiagPackages", [this] { return c.enumerateDiagPackages(1); }}};
  }
  Named idLists() {
    return {
        ids("getValidDeviceIdList", [this](Ids*& to) { return c.getValidDeviceIdList(1, 1, to); }),
        ids("getTestIdList", [this](Ids*& to) { return c.getTestIdList(1, to); }),
        ids("getValidTestIdList", [this](Ids*& to) { return c.getValidTestIdList(1, 1, to); }),
        ids("getDisableTestList", [this](Ids*& to) { return c.getDisableTestList(1, to); }),
        ids("getDisableDeviceList", [this](Ids*& to) { return c.getDisableDeviceList(1, 1, to); })};
  }
  std::pair<std::string, Call> deviceIdList() {
    return ids("getDeviceIdList", [this](Ids*& to) { return c.getDeviceIdList(1, to); });
  }
  Named objects() {
    return {object<DiagnosticPackage>("getDiagPackage",
                                      [this](auto*& to) { return c.getDiagPackage(1, to); }),
            object<DiagDevice>("getDevice", [this](auto*& to) { return c.getDevice(1, 1, to); }),
            object<PackageTestInfo>("getTest", [this](auto*& to) { return c.getTest(1, 1, to); }),
            {"getDeviceStatus", [this] {
               unsigned int status = 77;
               const Code code = c.getDeviceStatus(1, 1, status);
               EXPECT_EQ(status, 77U);
               return code;
             }}};
  }
  Named otherQueries() {
    return {{"getNumberOfDiagPackages",
             [this] {
               int count = 77;
               const Code code = c.getNumberOfDiagPackages(count);
               EXPECT_EQ(count, 77);
               return code;
             }},
            object<DiagCtrl::PackageList>("getDisablePackageList", [this](auto*& to) {
              return c.getDisablePackageList(to);
            })};
  }
  Named queueings() {
    return {queueing(
                "queueTest with tests and a flag",
                [this](unsigned long& id) { return c.queueTest(1, 1, tests, settings, true, id); }),
            queueing("queueTest with tests",
                     [this](unsigned long& id) { return c.queueTest(1, 1, tests, settings, id); }),
            queueing("queueTest of a device",
                     [this](unsigned long& id) { return c.queueTest(1, 1, settings, id); })};
  }
  /// Of a whole package, whose vector is made once it is known to have devices.
  Code queuePackage(bool makesVector) {
    DiagCtrl::VectorTestReqId* ids = nullptr;
    const Code code = c.queueTest(1, settings, ids);
    const std::unique_ptr<DiagCtrl::VectorTestReqId> owned(ids);
    EXPECT_EQ(ids != nullptr, makesVector);
    return code;
  }
  Named texts() {
    return {text("getTestToken", [this](char*& to) { return c.getTestToken(1, 1, word, to); }),
            text("getPackageToken", [this](char*& to) { return c.getPackageToken(1, word, to); }),
            text("getMessageToken",
                 [this](char*& to) {
                   return c.getMessageToken(1, Diag::DiagnosticEvent::ERROR_EVENT, 1, to);
                 }),
            text("getDeviceStatusToken",
                 [this](char*& to) { return c.getDeviceStatusToken(1, 1, to); }),
            text("getLocalizedString",
                 [this](char*& to) { return c.getLocalizedString(1, word, word, to); }),
            text("getLocalizedMessage", [this](char*& to) {
              DiagCtrl::ParamStringVector none;
              return c.getLocalizedMessage(1, word, word, none, to);
            })};
  }
  std::pair<std::string, Call> runEstimation() {
    return {"runEstimation", [this] {
              Ids requests;
              const Code code = c.runEstimation({1}, {1}, {1}, requests, settings);
              EXPECT_THAT(requests, IsEmpty());
              return code;
            }};
  }

  DiagnosticController& c;
  Diag::DiagnosticSettings settings = ControllerHarness::settings();
  std::vector<int> tests{1};
  char word[5] = "word";

 private:
  template <class Ask>
  static std::pair<std::string, Call> ids(const std::string& name, Ask ask) {
    return {name, [ask] {
              Ids* handedOut = nullptr;
              const Code code = ask(handedOut);
              const std::unique_ptr<Ids> owned(handedOut);
              EXPECT_TRUE(handedOut != nullptr && handedOut->empty());
              return code;
            }};
  }
  template <class Object, class Ask>
  static std::pair<std::string, Call> object(const std::string& name, Ask ask) {
    return {name, [ask] {
              Object* handedOut = nullptr;
              const Code code = ask(handedOut);
              EXPECT_THAT(handedOut, IsNull());
              return code;
            }};
  }
  template <class Ask>
  static std::pair<std::string, Call> queueing(const std::string& name, Ask ask) {
    return {name, [ask] {
              unsigned long id = 77;
              const Code code = ask(id);
              EXPECT_EQ(id, 77U);
              return code;
            }};
  }
  template <class Ask>
  static std::pair<std::string, Call> text(const std::string& name, Ask ask) {
    return object<char>(name, ask);
  }
};

// ---- The phase cannot be read ------------------------------------------------------------------

/// On a controller that was not initialised: no other thread reads the phase meanwhile.
class PhaseLockFailureTest : public ControllerTest {
 protected:
  ~PhaseLockFailureTest() override {
    tap.take();
    DiagCtrl::EventManager::getInstance()->clearCtrlEventQueues();
  }

  void expectRefused(const Calls::Named& named, Code code = UNABLE_TO_GET_LOCK) {
    for (const auto& [name, call] : named) {
      SCOPED_TRACE(name);
      EXPECT_EQ(call(), code);
      EXPECT_EQ(tap.take(), Lines{"UNABLE_TO_GET_LOCK E 0"});
    }
  }

  CtrlEventTap tap;
  BrokenLock broken{
      privateMember<PhaseLock>(*privateMember<StatusTag>(*DiagnosticController::getInstance()))};
  Calls calls{*DiagnosticController::getInstance()};
};

TEST_F(PhaseLockFailureTest, refuses_all_that_reads_the_phase_first) {
  expectRefused(calls.enumerations());
  expectRefused(calls.idLists());
  expectRefused({calls.deviceIdList()});
  expectRefused(calls.objects());
  expectRefused(calls.otherQueries());
  expectRefused(calls.queueings());
  expectRefused({{"queueTest of a package", [this] { return calls.queuePackage(false); }}});
  expectRefused({calls.runEstimation()});
  expectRefused(calls.texts());
}

TEST_F(PhaseLockFailureTest, hands_out_no_record_of_the_health) {
  DiagControllerStatus* status = nullptr;
  EXPECT_EQ(controller().getDiagControllerStatus(status), UNABLE_TO_GET_LOCK);
  EXPECT_THAT(status, IsNull());
  EXPECT_THAT(tap.take(), ElementsAre("UNABLE_TO_GET_LOCK E 0"));
}

TEST_F(PhaseLockFailureTest, is_answered_as_a_wrong_phase_to_who_asks_for_the_progress) {
  int progress = 77;
  expectRefused({{"progress", [&] { return controller().getEnumerationProgress(progress); }}},
                INCORRECT_PHASE);
  EXPECT_EQ(progress, 77);
}

TEST_F(PhaseLockFailureTest, leaves_an_estimate_of_nothing_which_is_no_wrong_phase) {
  Ids times;
  int total = 77;
  EXPECT_TRUE(controller().getEstimatedTime({1}, times, total));
  EXPECT_EQ(total, -1);
  EXPECT_THAT(tap.take(), ElementsAre("UNABLE_TO_GET_LOCK E 0"));
  EXPECT_EQ(controller().getToTalTimeRemaining({1}, {5}), 0);
  EXPECT_THAT(tap.take(), ElementsAre("UNABLE_TO_GET_LOCK E 0"));
}

// ---- Locks behind the gate ---------------------------------------------------------------------

class LockFailureTest : public ControllerTest {
 protected:
  LockFailureTest() {
    harness.start();
    EXPECT_EQ(controller().getDiagPackage(1, package), SUCCESS);
    EXPECT_EQ(controller().getDevice(1, 1, device), SUCCESS);
    EXPECT_EQ(controller().getTest(1, 1, test), SUCCESS);
  }

  void expectAnswer(Code code, const std::string& event, const Calls::Named& named) {
    for (const auto& [name, call] : named) {
      SCOPED_TRACE(name);
      harness.forget();
      EXPECT_EQ(call(), code);
      EXPECT_THAT(harness.ctrlEvents(), ElementsAre(event));
    }
  }
  Calls::Named one(const std::string& name, Calls::Call call) { return {{name, std::move(call)}}; }
  /// Of a list of calls those with these names.
  static Calls::Named only(const Calls::Named& named, const std::vector<std::string>& names) {
    Calls::Named found;
    for (const auto& call : named) {
      if (std::find(names.begin(), names.end(), call.first) != names.end()) {
        found.push_back(call);
      }
    }
    EXPECT_EQ(found.size(), names.size());
    return found;
  }
  Calls::Named queuePackage(bool makesVector) {
    return one("queueTest of a package",
               [this, makesVector] { return calls.queuePackage(makesVector); });
  }

  Scripted::Script& alpha = harness.addPackage("ALPHA", TestSupport::PackageConfig(2));
  DiagnosticPackage* package = nullptr;
  DiagDevice* device = nullptr;
  PackageTestInfo* test = nullptr;
  Calls calls{controller()};
  const std::string locked = "UNABLE_TO_GET_LOCK E 0";
  const std::string missing = "OBJECT_NOT_FOUND E 0";
};

TEST_F(LockFailureTest, of_the_packages_raises_a_missing_object_and_one_call_returns_it_as_well) {
  const BrokenLock broken(privateMember<PackagesLock>(controller()));
  expectAnswer(UNABLE_TO_GET_LOCK, missing, calls.objects());
  expectAnswer(UNABLE_TO_GET_LOCK, missing, calls.idLists());
  expectAnswer(OBJECT_NOT_FOUND, missing, {calls.deviceIdList()});
  expectAnswer(UNABLE_TO_GET_LOCK, missing, calls.queueings());
  expectAnswer(UNABLE_TO_GET_LOCK, missing, queuePackage(false));
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
}

TEST_F(LockFailureTest, of_what_one_query_reads_is_told_as_such) {
  {
    const BrokenLock broken(TestSupport::bigLockOf(controller()));
    expectAnswer(UNABLE_TO_GET_LOCK, locked,
                 only(calls.otherQueries(), {"getNumberOfDiagPackages"}));
    expectAnswer(UNABLE_TO_GET_LOCK, locked, calls.queueings());
    expectAnswer(UNABLE_TO_GET_LOCK, locked, queuePackage(false));
  }
  {
    const BrokenLock broken(privateMember<DisabledPackagesLock>(controller()));
    expectAnswer(UNABLE_TO_GET_LOCK, locked, only(calls.otherQueries(), {"getDisablePackageList"}));
  }
  {
    const BrokenLock broken(privateMember<DeviceStatusLock>(controller()));
    expectAnswer(UNABLE_TO_GET_LOCK, locked, only(calls.objects(), {"getDeviceStatus"}));
  }
  {
    const BrokenLock broken(privateMember<EnabledTestsLock>(*device));
    expectAnswer(UNABLE_TO_GET_LOCK, locked, only(calls.idLists(), {"getValidTestIdList"}));
  }
}

TEST_F(LockFailureTest, of_the_devices_is_told_as_such_by_queries_and_queueing) {
  {
    const BrokenLock broken(privateMember<DevicesLock>(*package));
    expectAnswer(UNABLE_TO_GET_LOCK, locked,
                 only(calls.objects(), {"getDevice", "getDeviceStatus"}));
    expectAnswer(UNABLE_TO_GET_LOCK, locked, only(calls.idLists(), {"getValidTestIdList"}));
    expectAnswer(UNABLE_TO_GET_LOCK, locked, calls.queueings());
    expectAnswer(UNABLE_TO_GET_LOCK, locked, queuePackage(true));
  }
  const BrokenLock broken(privateMember<DeviceIdsLock>(*package));
  expectAnswer(UNABLE_TO_GET_LOCK, locked, {calls.deviceIdList()});
  expectAnswer(UNABLE_TO_GET_LOCK, locked, queuePackage(false));
  EXPECT_THAT(harness.requestIds(), IsEmpty());
}

TEST_F(LockFailureTest, of_the_tests_raises_a_missing_test_or_a_missing_object) {
  {
    const BrokenLock broken(privateMember<TestsLock>(*package));
    const std::string event = "TEST_OBJECT_NOT_FOUND E 0";
    expectAnswer(TEST_OBJECT_NOT_FOUND, event, only(calls.objects(), {"getTest"}));
    expectAnswer(TEST_OBJECT_NOT_FOUND, event,
                 only(calls.idLists(), {"getValidDeviceIdList", "getDisableDeviceList"}));
  }
  {
    const BrokenLock broken(privateMember<TestIdsLock>(*package));
    expectAnswer(UNABLE_TO_GET_LOCK, missing, only(calls.idLists(), {"getTestIdList"}));
  }
  const BrokenLock broken(privateMember<DisabledDevicesLock>(*test));
  expectAnswer(UNABLE_TO_GET_LOCK, missing, only(calls.idLists(), {"getDisableDeviceList"}));
}

TEST_F(LockFailureTest, of_the_settings_leaves_no_queueing_and_no_request) {
  const BrokenLock broken(privateMember<SettingsLock>(*controller().getGlobalSettingsPtr()));
  expectAnswer(UNABLE_TO_ADD_TEST_REQUEST, "UNABLE_TO_ADD_TEST_REQUEST E 0",
               only(calls.queueings(), {"queueTest with tests and a flag"}));
  expectAnswer(UNABLE_TO_GET_LOCK, locked,
               only(calls.queueings(), {"queueTest with tests", "queueTest of a device"}));
  expectAnswer(UNABLE_TO_GET_LOCK, locked, queuePackage(true));
  EXPECT_THAT(harness.requestIds(), IsEmpty());
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
}

TEST_F(LockFailureTest, in_an_enumeration_leaves_its_phase_in_any_case) {
  harness.shutDown();
  harness.initialize();
  std::optional<BrokenLock> broken;
  Scripted::Script::of("ALPHA").on(Scripted::Call::GetDevices, [&](const Scripted::CallRecord&) {
    broken.emplace(privateMember<PhaseLock>(*privateMember<StatusTag>(controller())));
  });
  controller().enumerateAllPackages();
  broken.reset();
  EXPECT_NE(harness.phase(), DiagControllerStatus::ENUMERATE);
}

TEST_F(LockFailureTest, in_a_shut_down_leaves_no_phase_and_no_flag_behind) {
  {
    const BrokenLock broken(privateMember<ShutDownLock>(controller()));
    EXPECT_EQ(controller().shutDown(), SUCCESS);
  }
  EXPECT_FALSE(controller().getShutDownFlag());
  EXPECT_EQ(harness.phase(), DiagControllerStatus::UNINITIALISED);
  harness.start();
  {
    const BrokenLock broken(TestSupport::bigLockOf(controller()));
    EXPECT_EQ(controller().shutDown(), UNABLE_TO_GET_LOCK) << "nothing was touched";
  }
  EXPECT_FALSE(controller().getShutDownFlag());
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
}

TEST_F(LockFailureTest, of_the_progress_is_a_progress_of_minus_one_and_ends_no_enumeration) {
  int progress = 77;
  auto code = SUCCESS;
  harness.shutDown();
  harness.initialize();
  alpha.on(Scripted::Call::GetDevices, [&](const Scripted::CallRecord&) {
    const BrokenLock broken(privateMember<ProgressLock>(controller()));
    code = controller().getEnumerationProgress(progress);
  });
  const CtrlEventTap tap;
  EXPECT_EQ(controller().enumerateAllPackages(), SUCCESS);
  EXPECT_EQ(code, UNABLE_TO_GET_LOCK);
  EXPECT_EQ(progress, -1);
  EXPECT_THAT(tap.take(), IsEmpty());
}

TEST_F(LockFailureTest, on_the_way_to_a_configured_figure_ends_the_estimate) {
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(harness.awaitEnd(id) && harness.awaitIdle());
  const auto expectNoEstimate = [&](const std::string& event) {
    harness.forget();
    auto result = std::make_unique<Diag::DiagnosticResult>();
    result->setTestRequestId(static_cast<unsigned int>(id));
    DiagCtrl::EventManager::getInstance()->pushResultInAllResultQueue({result.release()});
    Ids times;
    int total = 77;
    EXPECT_TRUE(controller().getEstimatedTime({1}, times, total));
    EXPECT_EQ(total, -1);
    EXPECT_THAT(times, IsEmpty());
    EXPECT_THAT(harness.ctrlEvents(), ElementsAre(event));
  };
  {
    const BrokenLock broken(privateMember<RequestsLock>(*controller().getTestRequestMgrPtr()));
    expectNoEstimate(locked);
  }
  const BrokenLock broken(privateMember<TestsLock>(*package));
  expectNoEstimate("TEST_OBJECT_NOT_FOUND E 0");
}

}  // namespace
}  // namespace TarvexDiags::Lifecycle
