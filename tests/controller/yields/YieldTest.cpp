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
constexpr unsigned long method = 1;
constexpr unsigned long lock = 1;
constexpr unsigned long accessor = method;
constexpr unsigned long lockedAccessor = method + lock;
// The controller forwards to its status.
constexpr unsigned long phaseRead = method + lockedAccessor;
constexpr unsigned long clientCall = method + phaseRead;
constexpr unsigned long packageLookup = lockedAccessor;
constexpr unsigned long requestLookup = lockedAccessor;
constexpr unsigned long signal = method;
constexpr unsigned long removeId = method + lock + requestLookup + lockedAccessor;

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
  static constexpr unsigned int devices = 3;
  Scripted::Script& alpha = harness.addPackage("ALPHA", PackageConfig(3));

  void start() {
    alpha.setDevices(static_cast<int>(devices));
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
      {"getNumberOfDiagPackages", clientCall + lock,
       [&] { controller.getNumberOfDiagPackages(number); }},
      {"getDiagPackage", clientCall + packageLookup,
       [&] { controller.getDiagPackage(1, package); }},
      {"getDevice", clientCall + packageLookup + lockedAccessor,
       [&] { controller.getDevice(1, 1, device); }},
      {"getTest", clientCall + packageLookup + lockedAccessor,
       [&] { controller.getTest(1, 1, test); }},
      {"getDeviceIdList", clientCall + packageLookup + lockedAccessor,
       ids([&](auto& list) { controller.getDeviceIdList(1, list); })},
      {"getValidDeviceIdList", clientCall + packageLookup + lockedAccessor + accessor,
       ids([&](auto& list) { controller.getValidDeviceIdList(1, 1, list); })},
      {"getTestIdList", clientCall + packageLookup + lockedAccessor,
       ids([&](auto& list) { controller.getTestIdList(1, list); })},
      {"getValidTestIdList", clientCall + packageLookup + 2 * lockedAccessor,
       ids([&](auto& list) { controller.getValidTestIdList(1, 1, list); })},
      {"getDisableTestList", clientCall + packageLookup + accessor,
       ids([&](auto& list) { controller.getDisableTestList(1, list); })},
      {"getDisableDeviceList", clientCall + packageLookup + 2 * lockedAccessor,
       ids([&](auto& list) { controller.getDisableDeviceList(1, 1, list); })},
      {"getDisablePackageList", clientCall + lock,
       [&] {
         DiagCtrl::PackageList* list = nullptr;
         controller.getDisablePackageList(list);
         delete list;
       }},
      {"getDeviceStatus", clientCall + packageLookup + lockedAccessor + lock + accessor,
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
  constexpr unsigned long read = clientCall + lock + lockedAccessor;
  constexpr unsigned long change = method + read;  // the check of the argument comes first
  expectNoMore({
      {"getDebugLog", read, [&] { controller.getDebugLog(level); }},
      {"getRunMode", read, [&] { controller.getRunMode(runMode); }},
      {"getDiagLogMode", read, [&] { controller.getDiagLogMode(flag); }},
      {"getHaltOnError", read, [&] { controller.getHaltOnError(flag); }},
      {"getDiagnosticMode", read, [&] { controller.getDiagnosticMode(diagMode); }},
      {"setDebugLog", change + lock, [&] { controller.setDebugLog(level); }},
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
      {"getTestRequestId", lockedAccessor, [&] { made.getTestRequestId(); }},
      {"setTestRequestId", accessor, [&] { made.setTestRequestId(1); }},
      {"getToBeDroppedFlag", lockedAccessor, [&] { made.getToBeDroppedFlag(); }},
      {"setToBeDroppedFlag", lockedAccessor, [&] { made.setToBeDroppedFlag(false); }},
      {"getTestRequestStatus", lockedAccessor, [&] { made.getTestRequestStatus(0); }},
      {"setTestRequestStatus", lockedAccessor,
       [&] { made.setTestRequestStatus(TestRequest::WAIT); }},
      {"getAbortStatus", lockedAccessor, [&] { made.getAbortStatus(); }},
      {"setAbortStatus", lockedAccessor, [&] { made.setAbortStatus(false, 0); }},
      {"getIDiagnosticsPtr", lockedAccessor, [&] { made.getIDiagnosticsPtr(); }},
      {"setIDiagnostics", lockedAccessor, [&] { made.setIDiagnostics(nullptr); }},
      {"getHaltedStatus", accessor, [&] { made.getHaltedStatus(); }},
      {"setHaltedStatus", lockedAccessor, [&] { made.setHaltedStatus(false); }},
      {"getHaltLoopOnError", accessor, [&] { made.getHaltLoopOnError(); }},
      {"setHaltLoopOnError", lockedAccessor, [&] { made.setHaltLoopOnError(false); }},
      {"getMonitored", accessor, [&] { made.getMonitored(); }},
      {"setMonitored", lockedAccessor, [&] { made.setMonitored(false); }},
      {"setExecutedAll", lockedAccessor, [&] { made.setExecutedAll(false); }},
      {"setHandle", accessor, [&] { made.setHandle(nullptr); }},
      {"getHandle", accessor, [&] { made.getHandle(); }},
      {"getExecutedOnce", accessor, [&] { made.getExecutedOnce(); }},
      {"setExecutedOnce", accessor, [&] { made.setExecutedOnce(false); }},
      {"getTestRequestStartTime", accessor, [&] { made.getTestRequestStartTime(); }},
      {"setTestRequestStartTime", accessor, [&] { made.setTestRequestStartTime(0); }},
      {"getDiagnosticSettings", accessor, [&] { made.getDiagnosticSettings(); }},
      {"getDiagPackageRef", accessor, [&] { made.getDiagPackageRef(); }},
      {"getDiagDeviceRef", accessor, [&] { made.getDiagDeviceRef(); }},
      {"getTestIdList", accessor, [&] { made.getTestIdList(); }},
      {"ifIDiagnosticsDeleted", lockedAccessor, [&] { made.ifIDiagnosticsDeleted(); }},
  });
}

TEST_F(YieldTest, a_step_through_the_queues_yields_for_its_lock_and_for_what_it_sets) {
  start();
  DiagCtrl::DiagnosticPackage* package = nullptr;
  harness->getDiagPackage(1, package);
  TestRequestManager queues;  // of its own, which no thread looks into
  constexpr auto WAIT = TestRequestManager::WAIT;
  constexpr auto PROCESS = TestRequestManager::PROCESS;
  constexpr auto EXECUTION = TestRequestManager::EXECUTION;
  unsigned long id = 0;
  const auto makeRequest = [&] {
    return new TestRequest(*package, *package->getDevice(1), new DiagnosticSettings);
  };
  TestRequest* made = makeRequest();
  const unsigned long first = queues.queueTestRequest(made);
  std::vector<TestRequest*> spare;
  std::generate_n(std::back_inserter(spare), 20, makeRequest);
  expectNoMore({
      {"queueTestRequest", method + 3 * lock + 2 * accessor + signal,
       [&] {
         id = queues.queueTestRequest(spare.back());
         spare.pop_back();
       }},
      {"getTestReqWaitQueueSize", lockedAccessor, [&] { queues.getTestReqWaitQueueSize(); }},
      {"getTestReqExecQueueSize", lockedAccessor, [&] { queues.getTestReqExecQueueSize(); }},
      {"getTestReqProcessQueueSize", accessor, [&] { queues.getTestReqProcessQueueSize(); }},
      {"pushBackTestRequestQueue(WAIT)", method + lock + 2 * lockedAccessor,
       [&] { queues.pushBackTestRequestQueue(WAIT, made); }},
      {"pushBackTestRequestQueue(PROCESS)", method + lock,
       [&] { queues.pushBackTestRequestQueue(PROCESS, made); }},
      {"pushFrontTestRequestQueue(PROCESS)", method + lock,
       [&] { queues.pushFrontTestRequestQueue(PROCESS, made); }},
      {"pushBackTestRequestQueue(EXECUTION)", method + lock + lockedAccessor,
       [&] { queues.pushBackTestRequestQueue(EXECUTION, made); }},
      {"frontTestRequestQueue", method + lock, [&] { queues.frontTestRequestQueue(PROCESS); }},
      {"getTestRequestObj", requestLookup, [&] { queues.getTestRequestObj(first, 0); }},
      {"getTestRequestIdList", lockedAccessor, [&] { queues.getTestRequestIdList(0); }},
      {"removeFromTestReqIdList", removeId, [&] { queues.removeFromTestReqIdList(id); }},
      {"getTestExecCompleted", lockedAccessor, [&] { queues.getTestExecCompleted(); }},
      {"setTestExecCompleted", lockedAccessor, [&] { queues.setTestExecCompleted(true); }},
      {"clearTestRequestIdList", lockedAccessor, [&] { queues.clearTestRequestIdList(0); }},
      {"clearTestRequestMap", method + lockedAccessor + lock,
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
  constexpr unsigned long oneLock = method + lock;
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
  constexpr unsigned long settingsCheck = method;
  constexpr unsigned long becomeActive = lockedAccessor;
  constexpr unsigned long once = clientCall + settingsCheck + lock + packageLookup + becomeActive;
  constexpr unsigned long readModes = 2 * lock;
  constexpr unsigned long equip = 2 * lock;  // object, status
  constexpr unsigned long intoTheQueue = 3 * lock;
  constexpr unsigned long setHaltOnError = lock;
  constexpr unsigned long readHaltOnError = lock;
  constexpr unsigned long aDevice = lock + setHaltOnError + readModes + equip + intoTheQueue;
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
       once + lockedAccessor + devices * (aDevice + readHaltOnError),
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
  constexpr unsigned long askAPackage = requestLookup + lock + phaseRead + requestLookup;
  constexpr unsigned long big = lock;
  constexpr unsigned long readStatus = lockedAccessor;
  constexpr unsigned long mark = readStatus + accessor + lockedAccessor;
  expectNoMore({
      {"getRequestStatus", clientCall + requestLookup + readStatus + accessor,
       [&] {
         controller.getRequestStatus(static_cast<long>(running), status, pass, passes, stress);
       }},
      {"getRequestIdList", clientCall + lockedAccessor,
       [&] {
         std::vector<unsigned long>* ids = nullptr;
         controller.getRequestIdList(ids);
         delete ids;
       }},
      {"getTestRequest", clientCall + requestLookup,
       [&] { controller.getTestRequest(static_cast<int>(running), found); }},
      {"getDiagnosticStatus", clientCall + askAPackage,
       [&] { controller.getDiagnosticStatus(running, diagStatus); }},
      {"getDiagnosticProgress", clientCall + askAPackage,
       [&] { controller.getDiagnosticProgress(running, progress); }},
      {"suspendTest", clientCall + big + requestLookup + readStatus,
       [&] { controller.suspendTest(running); }},
      {"resumeTest", clientCall + big + requestLookup + readStatus,
       [&] { controller.resumeTest(running); }},
      {"abortTest of a running test", clientCall + big + requestLookup + mark + removeId,
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
    creation.watch([this](int) { dispatcherAtStart = count(dispatcher); });
    alpha.on(Call::GetDiagnostics,
             [this](const CallRecord&) { dispatcherAtQueue = now(dispatcher); });
    alpha.on(Call::RunEnter, [this](const CallRecord&) { workerAtStart = count(worker); });
    alpha.on(Call::RunReturn, [this](const CallRecord&) {
      workerAtReturn = count(worker);
      monitorAtReturn = now(monitor);
    });
    alpha.on(Call::DestroyDiagnostics, [this](const CallRecord&) {
      verdict = count(monitor) - monitorAtReturn;
      workerAtEnd = now(worker);
      isFinished = true;
    });
    Fewest fewest;
    constexpr int requestsMeasured = 20;
    for (int i = 0; i < requestsMeasured; ++i) {
      isFinished = false;
      harness.queue("ALPHA", 1, {1});
      if (!eventually([this] { return isFinished.load(); })) {
        ADD_FAILURE() << "no verdict";
        break;
      }
      if (i > 0) {  // the first one shows which thread is which
        fewest.dispatch = std::min(fewest.dispatch, dispatcherAtStart - dispatcherAtQueue);
        fewest.workerToStart = std::min(fewest.workerToStart, workerAtStart.load());
        fewest.workerToEnd = std::min(fewest.workerToEnd, workerAtEnd - workerAtReturn);
        fewest.verdict = std::min(fewest.verdict, verdict.load());
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

  std::atomic<Count> dispatcher{nullptr};
  std::atomic<Count> worker{nullptr};
  std::atomic<Count> monitor{nullptr};
  std::atomic<unsigned long> dispatcherAtQueue{0};
  std::atomic<unsigned long> dispatcherAtStart{0};
  std::atomic<unsigned long> workerAtStart{0};
  std::atomic<unsigned long> workerAtReturn{0};
  std::atomic<unsigned long> workerAtEnd{0};
  std::atomic<unsigned long> monitorAtReturn{0};
  std::atomic<unsigned long> verdict{0};
  std::atomic<bool> isFinished{false};
};

// The threads of the pipeline trace a method where the trace is written, so with the trace off
// their locks alone yield.
//
// The dispatcher wakes up and finds its queue empty, moves the request into it, takes it from
// there, takes what its package and its device ask for, and makes a worker.
constexpr unsigned long wakeUp = lock;  // the time stamp
constexpr unsigned long beginPass = 2 * lock;
constexpr unsigned long moveFromWait = 4 * lock;
constexpr unsigned long takeDevice = 3 * lock;
constexpr unsigned long makeWorker = 4 * lock;
constexpr unsigned long dispatch =
    wakeUp + 2 * beginPass + moveFromWait + lock + takeDevice + makeWorker;
constexpr unsigned long noteTheWait = lock;  // of the dispatcher for the verdict, serially

// The worker reads its request, the enabled tests, the status and the open mode, and marks the
// start. A thread's first trace enters it into the tracer's list.
constexpr unsigned long firstTrace = lock;
constexpr unsigned long workerToStart = firstTrace + 6 * lock;

// Behind the pass it marks the end and gives back what the dispatcher took.
constexpr unsigned long giveMachineBack = 2 * lock;
constexpr unsigned long giveDeviceBack = 2 * lock;
constexpr unsigned long workerToEnd = 3 * lock + giveMachineBack + giveDeviceBack + method;

// The monitor wakes up in its phase, finds nothing started, polls the request, collects its
// results, judges it, tells clients, takes it off the list and reclaims its worker and its object.
constexpr unsigned long monitorWakeUp = 3 * lock;
constexpr unsigned long notifyClients = lock;
constexpr unsigned long poll = 3 * lock;  // progress, and still there
constexpr unsigned long collect = lock + notifyClients;
constexpr unsigned long judge = 2 * lock;
constexpr unsigned long tellClients = lock + notifyClients;
constexpr unsigned long takeOffTheList = 3 * lock;
constexpr unsigned long reclaimWorker = lock;  // joined under the map's lock
constexpr unsigned long drop = 2 * lock + tellClients + takeOffTheList + reclaimWorker + lock;
constexpr unsigned long judgement = monitorWakeUp + poll + collect + judge + drop + lock;

TEST_F(PipelineYieldTest, a_serial_request_yields_for_what_its_way_is_made_of) {
  const Fewest fewest = measure(false);
  EXPECT_LE(fewest.dispatch, dispatch + noteTheWait);
  EXPECT_LE(fewest.workerToStart, workerToStart);
  EXPECT_LE(fewest.workerToEnd, workerToEnd);
  EXPECT_LE(fewest.verdict, judgement);
}

TEST_F(PipelineYieldTest, a_parallel_request_yields_for_what_its_way_is_made_of) {
  const Fewest fewest = measure(true);
  EXPECT_LE(fewest.dispatch, dispatch);
  EXPECT_LE(fewest.workerToStart, workerToStart);
  EXPECT_LE(fewest.workerToEnd, workerToEnd);
  EXPECT_LE(fewest.verdict, judgement);
}

}  // namespace TarvexDiags::Yields
