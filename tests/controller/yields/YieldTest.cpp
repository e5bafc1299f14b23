// How often an operation yields the processor. On a machine whose cores are all busy each yield
// gives a time slice away, so an operation makes those of its locks and of the methods that it is
// told to be made of, and no other; the way of a request those of its locks alone.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <iterator>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "Diag/DiagnosticSettings.h"
#include "DiagCtrl/DiagDevice.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/DiagnosticPackage.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/GlobalSettings.h"
#include "DiagCtrl/PackageTestInfo.h"
#include "DiagCtrl/ResourceLockManager.h"
#include "DiagCtrl/TestRequest.h"
#include "DiagCtrl/TestRequestManager.h"
#include "tests/support/ControllerTest.h"
#include "tests/support/Eventually.h"
#include "tests/support/ThreadCreation.h"
#include "tests/support/YieldCount.h"

namespace TarvexDiags::Yields {
namespace {

using Diag::DiagnosticSettings;
using DiagCtrl::DiagnosticController;
using DiagCtrl::TestRequest;
using DiagCtrl::TestRequestManager;
using Scripted::Call;
using Scripted::CallRecord;
using TestSupport::ControllerHarness;
using TestSupport::ControllerTest;
using TestSupport::eventually;
using TestSupport::PackageConfig;
using TestSupport::ThreadCreation;
using TestSupport::yieldsOfThisThread;

// With the trace off a method yields once, where it ends; a free lock once, where it is taken.
constexpr unsigned long kMethod = 1;
constexpr unsigned long kLock = 1;
constexpr unsigned long kAccessor = kMethod;
constexpr unsigned long kLockedAccessor = kMethod + kLock;
// The controller forwards to its status.
constexpr unsigned long kPhaseRead = kMethod + kLockedAccessor;
constexpr unsigned long kClientCall = kMethod + kPhaseRead;
constexpr unsigned long kPackageLookup = kLockedAccessor;
constexpr unsigned long kRequestLookup = kLockedAccessor;
constexpr unsigned long kSignal = kMethod;
constexpr unsigned long kRemoveId = kMethod + kLock + kRequestLookup + kLockedAccessor;

/// An operation and the most yields that it may make.
struct Row {
  const char* operation;
  unsigned long yields;
  std::function<void()> act;
};

unsigned long yieldsOf(const std::function<void()>& act) {
  const unsigned long before = yieldsOfThisThread();
  act();
  return yieldsOfThisThread() - before;
}

/// A lock that another thread holds just then costs more, so the best of some tries counts.
void expectNoMore(const Row& row) {
  constexpr int tries = 20;
  unsigned long fewest = std::numeric_limits<unsigned long>::max();
  for (int i = 0; i < tries && fewest > row.yields; ++i) {
    fewest = std::min(fewest, yieldsOf(row.act));
  }
  EXPECT_LE(fewest, row.yields) << row.operation;
}

void expectNoMore(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    expectNoMore(row);
  }
}

class YieldTest : public ControllerTest {
 protected:
  static constexpr unsigned int kDevices = 3;
  Scripted::Script& alpha = harness.addPackage("ALPHA", PackageConfig(3));

  void start() {
    alpha.setDevices(static_cast<int>(kDevices));
    harness.start();
    yieldsOfThisThread();
  }
  TestRequestManager& requests() { return *harness->getTestRequestMgrPtr(); }
  TestRequest& request(unsigned long id) { return *requests().getTestRequestObj(id, 0); }
};

}  // namespace

TEST_F(YieldTest, a_query_yields_for_its_phase_and_its_lookups) {
  start();
  int number = 0;
  unsigned int status = 0;
  DiagCtrl::DiagnosticPackage* package = nullptr;
  DiagCtrl::DiagDevice* device = nullptr;
  DiagCtrl::PackageTestInfo* test = nullptr;
  const auto ids = [](auto call) {
    return [call] {
      std::vector<int>* list = nullptr;
      call(list);
      delete list;
    };
  };
  DiagnosticController& controller = harness.controller();
  expectNoMore({
      {"getNumberOfDiagPackages", kClientCall + kLock,
       [&] { controller.getNumberOfDiagPackages(number); }},
      {"getDiagPackage", kClientCall + kPackageLookup,
       [&] { controller.getDiagPackage(1, package); }},
      {"getDevice", kClientCall + kPackageLookup + kLockedAccessor,
       [&] { controller.getDevice(1, 1, device); }},
      {"getTest", kClientCall + kPackageLookup + kLockedAccessor,
       [&] { controller.getTest(1, 1, test); }},
      {"getDeviceIdList", kClientCall + kPackageLookup + kLockedAccessor,
       ids([&](auto& list) { controller.getDeviceIdList(1, list); })},
      {"getValidDeviceIdList", kClientCall + kPackageLookup + kLockedAccessor + kAccessor,
       ids([&](auto& list) { controller.getValidDeviceIdList(1, 1, list); })},
      {"getTestIdList", kClientCall + kPackageLookup + kLockedAccessor,
       ids([&](auto& list) { controller.getTestIdList(1, list); })},
      {"getValidTestIdList", kClientCall + kPackageLookup + 2 * kLockedAccessor,
       ids([&](auto& list) { controller.getValidTestIdList(1, 1, list); })},
      {"getDisableTestList", kClientCall + kPackageLookup + kAccessor,
       ids([&](auto& list) { controller.getDisableTestList(1, list); })},
      {"getDisableDeviceList", kClientCall + kPackageLookup + 2 * kLockedAccessor,
       ids([&](auto& list) { controller.getDisableDeviceList(1, 1, list); })},
      {"getDisablePackageList", kClientCall + kLock,
       [&] {
         DiagCtrl::PackageList* list = nullptr;
         controller.getDisablePackageList(list);
         delete list;
       }},
      {"getDeviceStatus", kClientCall + kPackageLookup + kLockedAccessor + kLock + kAccessor,
       [&] { controller.getDeviceStatus(1, 1, status); }},
  });
}

TEST_F(YieldTest, a_setting_yields_for_both_of_its_locks) {
  start();
  DiagnosticController& controller = harness.controller();
  auto level = DiagCtrl::DiagCtrlConstants::DIAG_NO;
  auto runMode = DiagCtrl::GlobalSettings::SERIAL;
  auto diagMode = DiagCtrl::GlobalSettings::CUSTOMER;
  bool flag = false;
  constexpr unsigned long read = kClientCall + kLock + kLockedAccessor;
  constexpr unsigned long change = kMethod + read;  // the check of the argument comes first
  expectNoMore({
      {"getDebugLog", read, [&] { controller.getDebugLog(level); }},
      {"getRunMode", read, [&] { controller.getRunMode(runMode); }},
      {"getDiagLogMode", read, [&] { controller.getDiagLogMode(flag); }},
      {"getHaltOnError", read, [&] { controller.getHaltOnError(flag); }},
      {"getDiagnosticMode", read, [&] { controller.getDiagnosticMode(diagMode); }},
      {"setDebugLog", change + kLock, [&] { controller.setDebugLog(level); }},
      {"setRunMode", change, [&] { controller.setRunMode(runMode); }},
      {"setDiagLogMode", change, [&] { controller.setDiagLogMode(flag); }},
      {"setHaltOnError", change, [&] { controller.setHaltOnError(flag); }},
      {"setDiagnosticMode", change, [&] { controller.setDiagnosticMode(diagMode); }},
  });
}

TEST_F(YieldTest, an_accessor_of_a_request_yields_for_itself_and_its_lock) {
  start();
  DiagCtrl::DiagnosticPackage* package = nullptr;
  harness->getDiagPackage(1, package);
  TestRequest made(*package, *package->getDevice(1), new DiagnosticSettings);
  expectNoMore({
      {"getTestRequestId", kLockedAccessor, [&] { made.getTestRequestId(); }},
      {"setTestRequestId", kAccessor, [&] { made.setTestRequestId(1); }},
      {"getToBeDroppedFlag", kLockedAccessor, [&] { made.getToBeDroppedFlag(); }},
      {"setToBeDroppedFlag", kLockedAccessor, [&] { made.setToBeDroppedFlag(false); }},
      {"getTestRequestStatus", kLockedAccessor, [&] { made.getTestRequestStatus(0); }},
      {"setTestRequestStatus", kLockedAccessor,
       [&] { made.setTestRequestStatus(TestRequest::WAIT); }},
      {"getAbortStatus", kLockedAccessor, [&] { made.getAbortStatus(); }},
      {"setAbortStatus", kLockedAccessor, [&] { made.setAbortStatus(false, 0); }},
      {"getIDiagnosticsPtr", kLockedAccessor, [&] { made.getIDiagnosticsPtr(); }},
      {"setIDiagnostics", kLockedAccessor, [&] { made.setIDiagnostics(nullptr); }},
      {"getHaltedStatus", kAccessor, [&] { made.getHaltedStatus(); }},
      {"setHaltedStatus", kLockedAccessor, [&] { made.setHaltedStatus(false); }},
      {"getHaltLoopOnError", kAccessor, [&] { made.getHaltLoopOnError(); }},
      {"setHaltLoopOnError", kLockedAccessor, [&] { made.setHaltLoopOnError(false); }},
      {"getMonitored", kAccessor, [&] { made.getMonitored(); }},
      {"setMonitored", kLockedAccessor, [&] { made.setMonitored(false); }},
      {"setExecutedAll", kLockedAccessor, [&] { made.setExecutedAll(false); }},
      {"setHandle", kAccessor, [&] { made.setHandle(nullptr); }},
      {"getHandle", kAccessor, [&] { made.getHandle(); }},
      {"getExecutedOnce", kAccessor, [&] { made.getExecutedOnce(); }},
      {"setExecutedOnce", kAccessor, [&] { made.setExecutedOnce(false); }},
      {"getTestRequestStartTime", kAccessor, [&] { made.getTestRequestStartTime(); }},
      {"setTestRequestStartTime", kAccessor, [&] { made.setTestRequestStartTime(0); }},
      {"getDiagnosticSettings", kAccessor, [&] { made.getDiagnosticSettings(); }},
      {"getDiagPackageRef", kAccessor, [&] { made.getDiagPackageRef(); }},
      {"getDiagDeviceRef", kAccessor, [&] { made.getDiagDeviceRef(); }},
      {"getTestIdList", kAccessor, [&] { made.getTestIdList(); }},
      {"ifIDiagnosticsDeleted", kLockedAccessor, [&] { made.ifIDiagnosticsDeleted(); }},
  });
}

TEST_F(YieldTest, a_step_through_the_queues_yields_for_its_lock_and_for_what_it_sets) {
  start();
  DiagCtrl::DiagnosticPackage* package = nullptr;
  harness->getDiagPackage(1, package);
  TestRequestManager queues;  // of its own, which no thread looks into
  constexpr auto wait = TestRequestManager::WAIT;
  constexpr auto process = TestRequestManager::PROCESS;
  constexpr auto execution = TestRequestManager::EXECUTION;
  unsigned long id = 0;
  const auto makeRequest = [&] {
    return new TestRequest(*package, *package->getDevice(1), new DiagnosticSettings);
  };
  TestRequest* made = makeRequest();
  const unsigned long first = queues.queueTestRequest(made);
  std::vector<TestRequest*> spare;
  std::generate_n(std::back_inserter(spare), 20, makeRequest);
  expectNoMore({
      {"queueTestRequest", kMethod + 3 * kLock + 2 * kAccessor + kSignal,
       [&] {
         id = queues.queueTestRequest(spare.back());
         spare.pop_back();
       }},
      {"getTestReqWaitQueueSize", kLockedAccessor, [&] { queues.getTestReqWaitQueueSize(); }},
      {"getTestReqExecQueueSize", kLockedAccessor, [&] { queues.getTestReqExecQueueSize(); }},
      {"getTestReqProcessQueueSize", kAccessor, [&] { queues.getTestReqProcessQueueSize(); }},
      {"pushBackTestRequestQueue(WAIT)", kMethod + kLock + 2 * kLockedAccessor,
       [&] { queues.pushBackTestRequestQueue(wait, made); }},
      {"pushBackTestRequestQueue(PROCESS)", kMethod + kLock,
       [&] { queues.pushBackTestRequestQueue(process, made); }},
      {"pushFrontTestRequestQueue(PROCESS)", kMethod + kLock,
       [&] { queues.pushFrontTestRequestQueue(process, made); }},
      {"pushBackTestRequestQueue(EXECUTION)", kMethod + kLock + kLockedAccessor,
       [&] { queues.pushBackTestRequestQueue(execution, made); }},
      {"frontTestRequestQueue", kMethod + kLock, [&] { queues.frontTestRequestQueue(process); }},
      {"getTestRequestObj", kRequestLookup, [&] { queues.getTestRequestObj(first, 0); }},
      {"getTestRequestIdList", kLockedAccessor, [&] { queues.getTestRequestIdList(0); }},
      {"removeFromTestReqIdList", kRemoveId, [&] { queues.removeFromTestReqIdList(id); }},
      {"getTestExecCompleted", kLockedAccessor, [&] { queues.getTestExecCompleted(); }},
      {"setTestExecCompleted", kLockedAccessor, [&] { queues.setTestExecCompleted(true); }},
      {"clearTestRequestIdList", kLockedAccessor, [&] { queues.clearTestRequestIdList(0); }},
      {"clearTestRequestMap", kMethod + kLockedAccessor + kLock,
       [&] { queues.clearTestRequestMap(); }},
  });
  for (TestRequest* unused : spare) {
    delete unused;
  }
}

TEST_F(YieldTest, a_resource_and_a_message_yield_for_one_lock) {
  start();
  auto& resources = *DiagCtrl::ResourceLockManager::getInstance();
  auto& messages = *DiagCtrl::EventManager::getInstance();
  const unsigned long events = harness.eventRegistration();
  int tag = 0;
  constexpr unsigned long oneLock = kMethod + kLock;
  expectNoMore({
      {"createResourceLock", oneLock,
       [&] { resources.createResourceLock("root/" + std::to_string(++tag), -1); }},
      {"getResourceLock", oneLock, [&] { resources.getResourceLock("root/1"); }},
      {"releaseResourceLock", oneLock, [&] { resources.releaseResourceLock("root/1"); }},
      {"removeResourceLock", oneLock,
       [&] { resources.removeResourceLock("root/" + std::to_string(tag--), -1); }},
      {"getSystemLockFlag", oneLock, [&] { resources.getSystemLockFlag(); }},
      {"setSystemLockFlag", oneLock, [&] { resources.setSystemLockFlag(false); }},
      {"logProgress", oneLock, [&] { messages.logProgress("ALPHA", 1, 50); }},
      {"getEvents", oneLock, [&] { delete messages.getEvents(events); }},
  });
}

// Told device by device: the request's making, its library, its object, its place in the queue. Of
// that the locks alone yield: where nothing is written, the methods are not traced.
TEST_F(YieldTest, queueing_yields_for_each_device_and_for_the_call_once) {
  start();
  alpha.holdRuns();
  constexpr unsigned long settingsCheck = kMethod;
  constexpr unsigned long becomeActive = kLockedAccessor;
  constexpr unsigned long once =
      kClientCall + settingsCheck + kLock + kPackageLookup + becomeActive;
  constexpr unsigned long readModes = 2 * kLock;
  constexpr unsigned long equip = 2 * kLock;  // object, status
  constexpr unsigned long intoTheQueue = 3 * kLock;
  constexpr unsigned long setHaltOnError = kLock;
  constexpr unsigned long readHaltOnError = kLock;
  constexpr unsigned long aDevice = kLock + setHaltOnError + readModes + equip + intoTheQueue;
  DiagnosticController& controller = harness.controller();
  DiagnosticSettings settings = ControllerHarness::settings();
  std::vector<int> tests{1};
  unsigned long id = 0;
  // The dispatcher stands still, so that it does not meet the client at a lock.
  requests().mmtxTestReqChangeLock.lock(0);
  expectNoMore({
      {"queueTest of a test, halting told", once + aDevice,
       [&] { controller.queueTest(1, 1, tests, settings, true, id); }},
      {"queueTest of a test", once + aDevice + readHaltOnError,
       [&] { controller.queueTest(1, 1, tests, settings, id); }},
      {"queueTest of a device", once + aDevice + readHaltOnError,
       [&] { controller.queueTest(1, 1, settings, id); }},
      {"queueTest of a package of three devices",
       once + kLockedAccessor + kDevices * (aDevice + readHaltOnError),
       [&] {
         DiagCtrl::VectorTestReqId* ids = nullptr;
         controller.queueTest(1, settings, ids);
         delete ids;
       }},
  });
  requests().mmtxTestReqChangeLock.unlock();
}

TEST_F(YieldTest, a_control_call_yields_for_its_lookups_and_what_it_sets) {
  start();
  alpha.holdRuns();
  DiagnosticController& controller = harness.controller();
  const unsigned long running = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(harness.awaitStatus(running, TestRequest::RUNNING));
  std::vector<unsigned long> victims;
  for (int i = 0; i < 20; ++i) {
    victims.push_back(harness.queue("ALPHA", 2, {1}));
  }
  TestRequest::TestRequestStatus status{};
  Diag::DiagnosticStatus::Status diagStatus{};
  unsigned int progress = 0;
  int pass = 0;
  int passes = 0;
  bool stress = false;
  TestRequest* found = nullptr;
  // The wait for the lock can be long, so the phase and the request are looked at again behind it.
  constexpr unsigned long askAPackage = kRequestLookup + kLock + kPhaseRead + kRequestLookup;
  constexpr unsigned long big = kLock;
  constexpr unsigned long readStatus = kLockedAccessor;
  constexpr unsigned long mark = readStatus + kAccessor + kLockedAccessor;
  expectNoMore({
      {"getRequestStatus", kClientCall + kRequestLookup + readStatus + kAccessor,
       [&] {
         controller.getRequestStatus(static_cast<long>(running), status, pass, passes, stress);
       }},
      {"getRequestIdList", kClientCall + kLockedAccessor,
       [&] {
         std::vector<unsigned long>* ids = nullptr;
         controller.getRequestIdList(ids);
         delete ids;
       }},
      {"getTestRequest", kClientCall + kRequestLookup,
       [&] { controller.getTestRequest(static_cast<int>(running), found); }},
      {"getDiagnosticStatus", kClientCall + askAPackage,
       [&] { controller.getDiagnosticStatus(running, diagStatus); }},
      {"getDiagnosticProgress", kClientCall + askAPackage,
       [&] { controller.getDiagnosticProgress(running, progress); }},
      {"suspendTest", kClientCall + big + kRequestLookup + readStatus,
       [&] { controller.suspendTest(running); }},
      {"resumeTest", kClientCall + big + kRequestLookup + readStatus,
       [&] { controller.resumeTest(running); }},
      {"abortTest of a running test", kClientCall + big + kRequestLookup + mark + kRemoveId,
       [&] { controller.abortTest(running); }},
  });
}

/// The pipeline at work, one request at a time: what each thread yields on the way of a request.
class PipelineYieldTest : public YieldTest {
 protected:
  typedef std::atomic<unsigned long>* Count;

  /// The fewest yields of each stretch of the way, over some requests.
  struct Fewest {
    unsigned long dispatch = std::numeric_limits<unsigned long>::max();
    unsigned long workerToStart = dispatch;
    unsigned long workerToEnd = dispatch;
    unsigned long verdict = dispatch;
  };

  Fewest measure(bool isParallel) {
    if (isParallel) {
      harness.control().parallel();
    }
    start();
    // Long enough for the monitor to have gone back to sleep when it ends.
    alpha.everyPass({.duration = std::chrono::milliseconds(20)});
    ThreadCreation creation;
    creation.watch([this](int) { m_dispatcherAtStart = count(m_dispatcher); });
    // Or it would try the locks in vain that the dispatcher still has, a yield each.
    creation.atStart([] { std::this_thread::sleep_for(std::chrono::milliseconds(5)); });
    alpha.on(Call::GetDiagnostics,
             [this](const CallRecord&) { m_dispatcherAtQueue = now(m_dispatcher); });
    alpha.on(Call::RunEnter, [this](const CallRecord&) { m_workerAtStart = count(m_worker); });
    alpha.on(Call::RunReturn, [this](const CallRecord&) {
      m_workerAtReturn = count(m_worker);
      m_monitorAtReturn = now(m_monitor);
    });
    alpha.on(Call::DestroyDiagnostics, [this](const CallRecord&) {
      m_verdict = count(m_monitor) - m_monitorAtReturn;
      m_workerAtEnd = now(m_worker);
      m_isFinished = true;
    });
    Fewest fewest;
    constexpr int requestsMeasured = 20;
    for (int i = 0; i < requestsMeasured; ++i) {
      m_isFinished = false;
      harness.queue("ALPHA", 1, {1});
      if (!eventually([this] { return m_isFinished.load(); })) {
        ADD_FAILURE() << "no verdict";
        break;
      }
      if (i > 0) {  // the first one shows which thread is which
        fewest.dispatch = std::min(fewest.dispatch, m_dispatcherAtStart - m_dispatcherAtQueue);
        fewest.workerToStart = std::min(fewest.workerToStart, m_workerAtStart.load());
        fewest.workerToEnd = std::min(fewest.workerToEnd, m_workerAtEnd - m_workerAtReturn);
        fewest.verdict = std::min(fewest.verdict, m_verdict.load());
      }
    }
    for (const Call call :
         {Call::GetDiagnostics, Call::RunEnter, Call::RunReturn, Call::DestroyDiagnostics}) {
      alpha.on(call, nullptr);
    }
    return fewest;
  }

 private:
  /// Learns that the calling thread is that one, and reads its count.
  static unsigned long count(std::atomic<Count>& whose) {
    whose = &yieldsOfThisThread();
    return *whose.load();
  }
  static unsigned long now(const std::atomic<Count>& whose) {
    return whose.load() != nullptr ? whose.load()->load() : 0;
  }

  std::atomic<Count> m_dispatcher{nullptr};
  std::atomic<Count> m_worker{nullptr};
  std::atomic<Count> m_monitor{nullptr};
  std::atomic<unsigned long> m_dispatcherAtQueue{0};
  std::atomic<unsigned long> m_dispatcherAtStart{0};
  std::atomic<unsigned long> m_workerAtStart{0};
  std::atomic<unsigned long> m_workerAtReturn{0};
  std::atomic<unsigned long> m_workerAtEnd{0};
  std::atomic<unsigned long> m_monitorAtReturn{0};
  std::atomic<unsigned long> m_verdict{0};
  std::atomic<bool> m_isFinished{false};
};

// The threads of the pipeline trace a method where the trace is written, so with the trace off
// their locks alone yield.
//
// The dispatcher wakes up and finds its queue empty, moves the request into it, takes it from
// there, takes what its package and its device ask for, and makes a pass thread.
constexpr unsigned long kWakeUp = kLock;  // the time stamp
constexpr unsigned long kBeginPass = 2 * kLock;
constexpr unsigned long kMoveFromWait = 4 * kLock;
constexpr unsigned long kTakeDevice = 3 * kLock;
constexpr unsigned long kMakeWorker = 4 * kLock;
constexpr unsigned long kDispatch =
    kWakeUp + 2 * kBeginPass + kMoveFromWait + kLock + kTakeDevice + kMakeWorker;
constexpr unsigned long kNoteTheWait = kLock;  // of the dispatcher for the verdict, serially

// The pass thread reads its request, the enabled tests, the status and the open mode, and marks the
// start. A thread's first trace enters it into the tracer's list.
constexpr unsigned long kFirstTrace = kLock;
constexpr unsigned long kWorkerToStart = kFirstTrace + 6 * kLock;

// Behind the pass it marks the end and gives back what the dispatcher took.
constexpr unsigned long kGiveMachineBack = 2 * kLock;
constexpr unsigned long kGiveDeviceBack = 2 * kLock;
constexpr unsigned long kWorkerToEnd = 3 * kLock + kGiveMachineBack + kGiveDeviceBack + kMethod;

// The monitor wakes up in its phase, finds nothing started, polls the request, collects its
// results, judges it, tells clients, takes it off the list and reclaims its pass thread and its
// object.
constexpr unsigned long kMonitorWakeUp = 3 * kLock;
constexpr unsigned long kNotifyClients = kLock;
constexpr unsigned long kPoll = 3 * kLock;  // progress, and still there
constexpr unsigned long kCollect = kLock + kNotifyClients;
constexpr unsigned long kJudge = 2 * kLock;
constexpr unsigned long kTellClients = kLock + kNotifyClients;
constexpr unsigned long kTakeOffTheList = 3 * kLock;
constexpr unsigned long kReclaimWorker = kLock;  // joined under the map's lock
constexpr unsigned long kDrop = 2 * kLock + kTellClients + kTakeOffTheList + kReclaimWorker + kLock;
constexpr unsigned long kJudgement = kMonitorWakeUp + kPoll + kCollect + kJudge + kDrop + kLock;

TEST_F(PipelineYieldTest, a_serial_request_yields_for_what_its_way_is_made_of) {
  const Fewest fewest = measure(false);
  EXPECT_LE(fewest.dispatch, kDispatch + kNoteTheWait);
  EXPECT_LE(fewest.workerToStart, kWorkerToStart);
  EXPECT_LE(fewest.workerToEnd, kWorkerToEnd);
  EXPECT_LE(fewest.verdict, kJudgement);
}

TEST_F(PipelineYieldTest, a_parallel_request_yields_for_what_its_way_is_made_of) {
  const Fewest fewest = measure(true);
  EXPECT_LE(fewest.dispatch, kDispatch);
  EXPECT_LE(fewest.workerToStart, kWorkerToStart);
  EXPECT_LE(fewest.workerToEnd, kWorkerToEnd);
  EXPECT_LE(fewest.verdict, kJudgement);
}

}  // namespace TarvexDiags::Yields
